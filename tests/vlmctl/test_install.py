"""vlmctl install, uninstall and doctor, with the spooler that the system has."""

import os
import pathlib
import shutil
import socket
import struct
import subprocess
import threading
import time
import unittest

from companion import EXAMPLES, NOBODY, Companion, windows
from vprinter import VirtualPrinter

SYSTEM = windows.PREFIX / "drive_c/windows/system32"
COPY = SYSTEM / "vllm3mon.dll"
NAME = "Velun Language Monitor"
PRINT = r"HKLM\System\CurrentControlSet\Control\Print"
PENDING = (r"HKLM\System\CurrentControlSet\Control\Session Manager", "/v", "PendingFileRenameOperations")
DRIVER = PRINT + r"\Environments\Windows x64\Drivers\Version-3\Velun Test"
QUEUE = PRINT + r"\Printers\Velun Test"


class Image:
    """A DLL's bytes, with the places of what can be wrong in it."""

    def __init__(self, content):
        self.bytes = content
        self.header = self.u32(0x3C)
        self.sections = self.header + 24 + struct.unpack_from("<H", content, self.header + 20)[0]

    def u32(self, at):
        return struct.unpack_from("<I", self.bytes, at)[0]

    def section(self, number):
        return self.sections + 40 * number

    def offset(self, address):
        """Where in the file something is that is loaded there."""
        for number in range(struct.unpack_from("<H", self.bytes, self.header + 6)[0]):
            start, size, offset = struct.unpack_from("<III", self.bytes, self.section(number) + 12)
            if start <= address < start + size:
                return address - start + offset
        raise ValueError(address)

    def directory(self, number):
        return self.offset(self.u32(self.header + 24 + 112 + 8 * number))

    def changed(self, at, value, width=4):
        return self.bytes[:at] + value.to_bytes(width, "little") + self.bytes[at + width:]


def registry(*arguments):
    return subprocess.run([windows.RUNNER, "reg", *arguments], capture_output=True, text=True)


class Installation(Companion):
    """Each test begins without the monitor, and leaves the prefix so."""

    environment = {"VLM_SPOOLER": "wine"}

    def setUp(self):
        self.clean()
        self.addCleanup(self.clean)

    @staticmethod
    def clean():
        registry("delete", rf"{PRINT}\Monitors\{NAME}", "/f")
        for file in SYSTEM.glob("vllm3mon.dll*"):
            file.unlink()

    def registered(self, name=NAME):
        return registry("query", rf"{PRINT}\Monitors\{name}", "/v", "Driver").returncode == 0

    def doctor(self, *arguments):
        """The lines of the report: check to (health, text). The exit status has to go with them."""
        result = self.vlmctl("doctor", *arguments)
        lines = {line[9:20].strip(): (line[:8].strip(), line[21:]) for line in result.stdout.splitlines()}
        wrong = [what for what, (health, _) in lines.items() if health == "wrong"]
        self.assertEqual(result.returncode, 1 if wrong else 0, result.stdout + result.stderr)
        return lines

    def assertWrong(self, lines, what, says):
        health, text = lines[what]
        self.assertEqual(health, "wrong", text)
        self.assertRegex(text, says)


class Install(Installation):
    def test_puts_the_monitor_into_the_system_and_takes_it_out_again(self):
        self.works("install")
        self.assertTrue(self.registered())
        self.assertEqual(COPY.read_bytes(), (windows.BIN / "vllm3mon.dll").read_bytes())
        self.fails("install", says=rf"'{NAME}' is already installed")
        self.fails("install", "--name", "Another", says=rf"'{NAME}' is already installed")
        self.fails("uninstall", "--name", "Another", says=rf"no monitor 'Another'.*name is '{NAME}'")
        self.assertTrue(self.registered())
        self.assertIn("deleted", self.works("uninstall"))
        self.assertFalse(self.registered())
        self.assertFalse(COPY.exists())
        self.fails("uninstall", says=f"no monitor '{NAME}' is installed")

    def assert_refused(self, dll, says):
        self.fails("install", "--dll", dll, says=says)
        self.assertEqual(list(SYSTEM.glob("vllm3mon.dll*")), [])

    def test_what_is_no_monitor_stays_out_and_leaves_nothing_behind(self):
        for dll, says in ((self.write("text.dll", "no DLL"), "not a DLL"), (windows.BIN / "spoolss.dll", "not a print monitor"),
                          (windows.BIN / "spoolhost.exe", "it is a program"), (self.folder / "absent.dll", "not found"),
                          (self.folder, "a folder"), ("NUL", "not a file"),
                          # Its code would end the companion.
                          (windows.BIN / "loud.dll", "not a print monitor")):
            with self.subTest(dll):
                self.assert_refused(dll, says)
        self.assertFalse(self.registered())

    def test_damaged_files_stay_out(self):
        image = Image((windows.BIN / "vllm3mon.dll").read_bytes())
        exports, names = image.directory(0), image.offset(image.u32(image.directory(0) + 32))
        far = 0x7FFFFFF0
        for name, content, says in (
                ("empty", b"", "too short"), ("a head", image.bytes[:64], "header lies outside"),
                ("headers only", image.bytes[:0x200], "within its headers|outside the file"),
                ("header far away", image.changed(0x3C, far), "header lies outside"),
                ("another header", image.changed(image.header, 0x1234), "it has no PE header"),
                ("for x86", image.changed(image.header + 4, 0x14C, 2), "not a DLL for x64"),
                ("for ARM64", image.changed(image.header + 4, 0xAA64, 2), "not a DLL for x64"),
                ("32-bit header", image.changed(image.header + 24, 0x10B, 2), "not a DLL for x64"),
                ("65,535 sections", image.changed(image.header + 6, 0xFFFF, 2), "too many sections"),
                ("sections overlap", image.changed(image.section(1) + 12, image.u32(image.section(0) + 12)), "overlap"),
                ("a section far away", image.changed(image.section(0) + 20, far), "section lies outside"),
                ("a section too long", image.changed(image.section(0) + 16, far), "section lies outside|overlap"),
                ("no exports", image.changed(image.header + 24 + 112, 0), "does not export"),
                ("exports far away", image.changed(image.header + 24 + 112, far), "export directory"),
                ("a name far away", image.changed(names, far), "export directory"),
                ("4 G names", image.changed(exports + 24, 0xFFFFFFFF), "too many exports"),
                ("more names than there are", image.changed(exports + 24, 60_000), "export directory"),
                ("another name", image.bytes.replace(b"InitializePrintMonitor2", b"InitializePrintMonitor3"), "not export"),
                ("no function", image.changed(exports + 20, 0), "a function that it does not have"),
                ("forwarded", image.changed(image.offset(image.u32(exports + 28)), image.u32(image.header + 24 + 112)),
                 "in another DLL"),
                ("no code", image.changed(image.offset(image.u32(exports + 28)), 0), "not code"),
                ("resources far away", image.changed(image.header + 24 + 128, far), "resources"),
                ("65,535 resources", image.changed(image.directory(2) + 14, 0xFFFF, 2), "resources"),
                ("65 MB", image.bytes + bytes(65 << 20), "too large for a monitor")):
            with self.subTest(name):
                self.assert_refused(self.write("damaged.dll", content), says)
        self.assertFalse(self.registered())

    def test_what_was_looked_at_is_what_is_copied(self):
        good = (windows.BIN / "vllm3mon.dll").read_bytes()
        loud = (windows.BIN / "loud.dll").read_bytes()
        dll, over = self.write("changing.dll", good), threading.Event()

        def change():
            while not over.is_set():
                for content in (good, loud):
                    self.write("next", content).replace(dll)
                    time.sleep(0.002)

        changing = threading.Thread(target=change)
        changing.start()
        try:
            for _ in range(8):
                done = self.vlmctl("install", "--dll", dll)
                self.assertIn(done.returncode, (0, 1), done.stderr)
                self.assertEqual(COPY.read_bytes() if COPY.exists() else None, None if done.returncode else good)
                self.clean()
        finally:
            over.set()
            changing.join()

    def test_file_that_somebody_writes_is_refused(self):
        dll = self.folder / "held.dll"
        shutil.copy(windows.BIN / "vllm3mon.dll", dll)
        program, held = ("Z:" + str(path).replace("/", "\\") for path in (windows.BIN / "vlmctl.exe", dll))
        # The shell has it open for writing, for the output, while the program runs.
        done = subprocess.run([windows.RUNNER, "cmd", "/c", f"{program} install --dll {held} >> {held}"],
                              capture_output=True, text=True, env=os.environ | self.environment)
        self.assertRegex(done.stderr, "another process is writing it")
        self.assertFalse(COPY.exists())

    def test_link_to_a_monitor_gives_a_file_and_a_link_in_its_place_is_not_followed(self):
        link, other = self.folder / "link.dll", self.write("other", "somebody's")
        link.symlink_to(windows.BIN / "vllm3mon.dll")
        COPY.symlink_to(other)
        self.works("install", "--dll", link)
        self.assertFalse(COPY.is_symlink())
        self.assertEqual(COPY.read_bytes(), (windows.BIN / "vllm3mon.dll").read_bytes())
        self.assertEqual(other.read_bytes(), b"somebody's")
        self.works("uninstall")

    def test_monitors_of_the_system_cannot_be_taken_away(self):
        self.fails("uninstall", "--name", "Local Port", says="another monitor.*localspl.dll")
        self.assertTrue(self.registered("Local Port"))

    def test_a_copy_without_an_entry_is_deleted(self):
        shutil.copy(windows.BIN / "vllm3mon.dll", COPY)
        self.works("uninstall")
        self.assertFalse(COPY.exists())

    def test_a_copy_that_is_loaded_makes_way_for_the_next_installation(self):
        self.works("install")
        self.addCleanup(registry, "delete", *PENDING, "/f")
        document = self.write("document", bytes(4_000_000))
        with socket.create_server(("127.0.0.1", 0)) as printer:  # takes the connection and reads nothing
            loaded = self.start("print", document, "--dll", r"C:\windows\system32\vllm3mon.dll", "--timeout", "60",
                                "--to", f"127.0.0.1:{printer.getsockname()[1]}", stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)
            printer.settimeout(30)
            with printer.accept()[0]:
                self.assertIn("still loaded", self.works("uninstall"))
                self.assertFalse(COPY.exists())
                self.works("install")
            loaded.kill()
            loaded.wait(20)
        # At a restart the old copy goes, the new one stays.
        pending = registry("query", *PENDING).stdout.lower()
        self.assertIn("vllm3mon.dll.removed-", pending)
        self.assertNotRegex(pending, r"vllm3mon\.dll(?!\.removed-)")
        self.works("uninstall")


class Doctor(Installation):
    def test_everything_in_place(self):
        self.works("install")
        self.start_rpc_host()
        with VirtualPrinter() as printer:
            for address in (printer.wsd_url, f"127.0.0.1:{printer.raw_port}"):
                lines = self.doctor("--printer", address, "--driver", EXAMPLES / "velun.ini")
                self.assertEqual({health for health, _ in lines.values()}, {"ok"}, lines)
                self.assertEqual(len(lines), 8, lines)

    def test_nothing_installed(self):
        lines = self.doctor()
        self.assertWrong(lines, "registered", "not registered with the spooler; run 'vlmctl install'")
        self.assertWrong(lines, "file", "file not found.*install it")
        for endpoint in ("local", "pipe", "tcp"):
            self.assertWrong(lines, "rpc " + endpoint, "no server listens at this endpoint")
        self.assertNotEqual(lines["window"][0], "ok")

    def test_wrong_file(self):
        good = (windows.BIN / "vllm3mon.dll").read_bytes()
        version = good.index(struct.pack("<I", 0xFEEF04BD)) + 8
        other_version = good[:version] + struct.pack("<II", 9 << 16 | 8, 7 << 16) + good[version + 8:]
        for content, says in ((b"no DLL", "not a DLL"),
                              ((windows.BIN / "spoolss.dll").read_bytes(), "does not export InitializePrintMonitor2"),
                              (other_version, r"has version 9\.8\.7, this vlmctl \d")):
            with self.subTest(says):
                COPY.write_bytes(content)
                self.assertWrong(self.doctor(), "file", says)

    def test_printer_that_does_not_answer(self):
        for address in (f"http://{NOBODY}/wsd/print/", NOBODY):
            with self.subTest(address):
                self.assertWrong(self.doctor("--printer", address), "printer", "connection.*check that it is on")

    def test_driver_of_an_ini_file_and_of_an_installed_printer(self):
        def settings(text):
            return self.write("driver.ini", text)

        self.write("foreign.xml", pathlib.Path(__file__).with_name("port_monitor_file.xml").read_bytes())
        self.write("broken.xml", '<Schema xmlns:bidi="urn:x">\n</Schem>\n')
        for text, says in (("[BidiFiles]\nBidiWSDFile=broken.xml\n", r"broken\.xml"),
                           ("[VelunDriverFiles]\nUIBidiWSDFile1=absent.xml\n", r"absent\.xml"),
                           ("[VelunDriverFiles]\nUIBidiWSDFile2=foreign.xml\n", r"UIBidiWSDFile2 in \[VelunDriverFiles\] is never"),
                           ("[BidiFiles]\nBidiWSDFile=foreign.xml\n[VelunDriverFiles]\nUIBidiWSDFile1=foreign.xml\n"
                            "uibidiwsdfile3=foreign.xml\nUIBidiWSDFile4=x.xml\n", r"uibidiwsdfile3 in .*\(2 such entries\)"),
                           ("[BidiFiles]\nBidiWSDFile=foreign.xml\n[VelunDriverFiles]\nUIBidiWSDFile01=foreign.xml\n",
                            "UIBidiWSDFile01 in"),
                           ("[BidiFiles]\nBidiWSDFile=foreign.xml\nUIBidiWSDFile1=foreign.xml\n", r"in \[BidiFiles\] is never"),
                           ("[BidiFiles]\nBidiWSDFile=foreign.xml\n[VelunDriverFiles]\nBidiWSDFile=foreign.xml\n",
                            r"BidiWSDFile in \[VelunDriverFiles\]"),
                           ("[Other]\n", "names no extension file")):
            with self.subTest(says):
                self.assertWrong(self.doctor("--driver", settings(text)), "extensions", says)

        self.assertEqual(self.doctor("--driver", settings("[BidiFiles]\nBidiWSDFile=foreign.xml\n"))["extensions"],
                         ("ok", "1 file, 4 warnings"))

        self.assertWrong(self.doctor("--queue", "Nobody's"), "extensions", "not a printer on this machine")
        self.install_printer(EXAMPLES / "velun.ini")
        self.assertEqual(self.doctor("--queue", "Velun Test")["extensions"], ("ok", "2 files, 0 warnings"))
        self.install_printer(settings("[BidiFiles]\nBidiWSDFile=broken.xml\n"))
        self.assertWrong(self.doctor("--queue", "Velun Test"), "extensions", r"broken\.xml")

    def install_printer(self, ini):
        """A printer in the registry whose driver depends on the INI file."""
        ini = "Z:" + str(ini).replace("/", "\\")
        for key, values in ((DRIVER, {"Driver": "a.dll", "Configuration File": "a.dll", "Data File": "a.gpd",
                                      "Monitor": NAME, "Datatype": "RAW"}),
                            (QUEUE, {"Name": "Velun Test", "Printer Driver": "Velun Test", "Port": "LPT1:",
                                     "Datatype": "RAW", "Print Processor": "winprint"})):
            self.addCleanup(registry, "delete", key, "/f")
            for name, value in values.items():
                registry("add", key, "/v", name, "/d", value, "/f")
        registry("add", DRIVER, "/v", "Version", "/t", "REG_DWORD", "/d", "3", "/f")
        registry("add", DRIVER, "/v", "Dependent Files", "/t", "REG_MULTI_SZ", "/d", ini, "/f")


if __name__ == "__main__":
    unittest.main()
