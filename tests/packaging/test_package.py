"""The archives that are shipped: complete, unaltered, consistent, and the same when they are made again."""

import binascii
import configparser
import hashlib
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import unittest
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = os.environ["VLM_BIN"]
VERSION = re.search(r"project\(vllm3mon VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]
NAME = f"vllm3mon-{VERSION}"
PROGRAMS = ("vllm3mon.dll", "vlmctl.exe")

# Without one of these somebody cannot do his work.
EXPECTED = {*PROGRAMS, "vllm3mon.inf", "LICENSE", "README.md", "CHANGES.md", "SHA256SUMS", "docs/installing.md",
            "docs/rpc.md", "examples/bidi/velun.ini", "examples/bidi/velun-base.xml", "packaging/bidi-extension.xsd"}


def make(folder):
    subprocess.run([sys.executable, "-B", ROOT / "tools/package.py", "--bin", BIN, "--out", folder], check=True,
                   stdout=subprocess.DEVNULL)


def read(path):
    """An archive's files by name, without the one folder that holds them all."""
    with zipfile.ZipFile(path) as archive:
        names = archive.namelist()
        assert all(name.startswith(path.stem + "/") for name in names), names
        return {name.removeprefix(path.stem + "/"): archive.read(name) for name in names}


def sections(image):
    """The sections of a PE image by name: their bytes in the file."""
    header = struct.unpack_from("<I", image, 0x3C)[0]
    count, _, strings, symbols, optional = struct.unpack_from("<HIIIH", image, header + 6)
    long_names = strings + symbols * 18
    found = {}
    for i in range(count):
        at = header + 24 + optional + 40 * i
        name = image[at:at + 8].rstrip(b"\0").decode()
        if name.startswith("/"):
            begin = long_names + int(name[1:])
            name = image[begin:image.index(b"\0", begin)].decode()
        size, begin = struct.unpack_from("<II", image, at + 16)
        found[name] = image[begin:begin + size]
    return found


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        make(cls.folder / "first")
        cls.files = read(cls.folder / "first" / f"{NAME}.zip")
        cls.symbols = read(cls.folder / "first" / f"{NAME}-symbols.zip")

    def test_holds_what_everyone_needs_and_sums_that_match(self):
        self.assertLessEqual(EXPECTED, self.files.keys())
        self.assertFalse([name for name in self.files if name.endswith((".in", ".debug"))])
        for files in (self.files, self.symbols):
            sums = dict(reversed(line.split("  ")) for line in files["SHA256SUMS"].decode().splitlines())
            self.assertEqual(sums, {name: hashlib.sha256(content).hexdigest() for name, content in files.items()
                                    if name != "SHA256SUMS"})

    def test_programs_are_stripped_and_find_their_own_debug_file(self):
        for name in PROGRAMS:
            with self.subTest(name):
                program, debug = self.files[name], self.symbols[name + ".debug"]
                self.assertFalse([section for section in sections(program) if section.startswith(".debug")])
                self.assertIn(".debug_info", sections(debug).keys())
                link = sections(program)[".gnu_debuglink"]
                target = link[:link.index(b"\0")]
                self.assertEqual(target.decode(), name + ".debug")
                checksum = struct.unpack_from("<I", link, (len(target) + 4) // 4 * 4)[0]
                self.assertEqual(checksum, binascii.crc32(debug))

    def test_links_of_the_documents_lead_to_files_of_the_package(self):
        names = set(self.files)
        folders = {os.path.dirname(name) for name in names}
        for name in names:
            if not name.endswith(".md"):
                continue
            targets = re.findall(r"\]\((?!https?:)([^)#]+)", self.files[name].decode())
            paths = {os.path.normpath(os.path.join(os.path.dirname(name), target)) for target in targets}
            self.assertEqual(paths - names - folders, set(), name)

    def test_version_is_the_same_everywhere(self):
        for name in PROGRAMS:
            # The fixed part of the version resource, by its signature and version: a program that reads such resources
            # holds the signature in its code, too.
            fixed = self.files[name].index(struct.pack("<II", 0xFEEF04BD, 0x10000))
            high, low = struct.unpack_from("<II", self.files[name], fixed + 8)
            self.assertEqual(f"{high >> 16}.{high & 0xFFFF}.{low >> 16}", VERSION, name)
        self.assertRegex(self.files["vllm3mon.inf"].decode(), rf"(?m)^DriverVer += \d\d/\d\d/\d{{4}},{VERSION}\.0\r$")
        self.assertIn(f"## {VERSION}", self.files["CHANGES.md"].decode())

    def test_is_the_same_when_it_is_made_again(self):
        make(self.folder / "second")
        for archive in (self.folder / "first").iterdir():
            again = self.folder / "second" / archive.name
            self.assertEqual(read(archive)["SHA256SUMS"], read(again)["SHA256SUMS"])
            self.assertTrue(archive.read_bytes() == again.read_bytes(), archive.name)


class InfTest(unittest.TestCase):
    """The driver team's template, as the printer class installer would follow it."""

    @classmethod
    def setUpClass(cls):
        # Lines without '=' are the entries of file lists.
        cls.inf = configparser.ConfigParser(allow_no_value=True, delimiters="=", comment_prefixes=";",
                                            interpolation=None)
        cls.inf.optionxform = str
        cls.inf.read_string((ROOT / "packaging/vllm3mon.inf.in").read_text(encoding="ascii"))

    def values(self, section, key):
        text = self.inf[section][key]
        for name, value in self.inf["Strings"].items():
            text = text.replace(f"%{name}%", value)
        self.assertNotIn("%", text)
        return [value.strip(' "') for value in text.split(",")]

    def test_every_section_and_string_that_is_named_exists(self):
        (maker, models, architecture), = [[key, *self.values("Manufacturer", key)] for key in self.inf["Manufacturer"]]
        self.assertIn(maker.strip("%"), self.inf["Strings"])
        for model in self.inf[f"{models}.{architecture}"]:
            install = self.values(f"{models}.{architecture}", model)[0]
            self.assertIn(model.strip("%"), self.inf["Strings"])
            for section in self.values(install, "CopyFiles"):
                self.assertTrue(self.inf[section], section)
        for section in self.inf:
            for key, value in self.inf[section].items():
                if value is not None and section != "Strings":
                    self.values(section, key)

    def test_every_copied_file_is_where_the_template_says(self):
        for section in self.values("Driver", "CopyFiles"):
            for entry in self.inf[section]:
                file = entry.split(",")[0]
                _, *folder = self.values("SourceDisksFiles", file)
                if file != "vllm3mon.dll":
                    self.assertTrue((ROOT / folder[0].replace("\\", "/") / file).is_file(), file)

    def test_monitor_goes_where_the_spooler_loads_it_and_the_ini_file_where_the_monitor_looks(self):
        name, file = self.values("Driver", "LanguageMonitor")
        self.assertEqual(file, "vllm3mon.dll")
        header = (ROOT / "tools/vlmctl/installation/monitor_installation.h").read_text()
        self.assertIn(f'kMonitorName[] = "{name}"', header)
        self.assertEqual(self.inf["DestinationDirs"]["MonitorFiles"], "66002")
        self.assertEqual(self.inf["DestinationDirs"]["DefaultDestDir"], "66000")
        self.assertEqual([entry.split(",")[0] for entry in self.inf["MonitorFiles"]], ["vllm3mon.dll"])
        # What the INI file names without a directory has to lie beside it.
        driver_files = set(self.inf["DriverFiles"])
        self.assertIn("velun.ini", driver_files)
        ini = configparser.ConfigParser()
        ini.read_string((ROOT / "examples/bidi/velun.ini").read_text())
        named = {file for section in ini.sections() for file in ini[section].values() if "," not in file}
        self.assertTrue(named)
        self.assertLessEqual(named, driver_files)


if __name__ == "__main__":
    unittest.main()
