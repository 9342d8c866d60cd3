"""vlmctl install, uninstall and doctor, with the spooler that the system has."""

import os
import pathlib
import shutil
import socket
import struct
import subprocess
import tempfile
import unittest

from companion import EXAMPLES, NOBODY, Companion, windows
from vprinter import VirtualPrinter

PREFIX = pathlib.Path(os.environ.get("WINEPREFIX", windows.ROOT / "build/wine"))
SYSTEM = PREFIX / "drive_c/windows/system32"
COPY = SYSTEM / "vllm3mon.dll"
NAME = "Velun Language Monitor"
PRINT = r"HKLM\System\CurrentControlSet\Control\Print"
PENDING = (r"HKLM\System\CurrentControlSet\Control\Session Manager", "/v", "PendingFileRenameOperations")
DRIVER = PRINT + r"\Environments\Windows x64\Drivers\Version-3\Velun Test"
QUEUE = PRINT + r"\Printers\Velun Test"


def registry(*arguments):
    return subprocess.run([windows.RUNNER, "reg", *arguments], capture_output=True, text=True)


class Installation(Companion):
    """Each test begins without the monitor, and leaves the prefix so."""

    environment = {"VLM_SPOOLER": "wine"}

    def setUp(self):
        self.clean()
        self.addCleanup(self.clean)
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

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
        self.fails("install", says=rf"'{NAME}' is installed already")
        self.fails("install", "--name", "Another", says=rf"'{NAME}' is installed already")
        self.fails("uninstall", "--name", "Another", says=rf"no monitor 'Another'.*ours is '{NAME}'")
        self.assertTrue(self.registered())
        self.assertIn("deleted", self.works("uninstall"))
        self.assertFalse(self.registered())
        self.assertFalse(COPY.exists())
        self.fails("uninstall", says=f"no monitor '{NAME}' is installed")

    def test_what_is_no_monitor_stays_out_and_leaves_nothing_behind(self):
        text = self.folder / "text.dll"
        text.write_text("no DLL")
        for dll, says in ((text, "not a DLL"), (windows.BIN / "spoolss.dll", "no print monitor"),
                          (self.folder / "absent.dll", "not found")):
            with self.subTest(says):
                self.fails("install", "--dll", dll, says=says)
                self.assertFalse(self.registered())
                self.assertFalse(COPY.exists())

    def test_monitors_of_the_system_cannot_be_taken_away(self):
        self.fails("uninstall", "--name", "Local Port", says="not ours.*localspl.dll")
        self.assertTrue(self.registered("Local Port"))

    def test_a_copy_without_an_entry_is_deleted(self):
        shutil.copy(windows.BIN / "vllm3mon.dll", COPY)
        self.works("uninstall")
        self.assertFalse(COPY.exists())

    def test_a_copy_that_is_loaded_makes_way_for_the_next_installation(self):
        self.works("install")
        self.addCleanup(registry, "delete", *PENDING, "/f")
        document = self.folder / "document"
        document.write_bytes(bytes(4_000_000))
        with socket.create_server(("127.0.0.1", 0)) as printer:  # takes the connection and reads nothing
            loaded = subprocess.Popen([windows.RUNNER, windows.BIN / "vlmctl.exe", "print", document,
                                       "--dll", r"C:\windows\system32\vllm3mon.dll", "--timeout", "60",
                                       "--to", f"127.0.0.1:{printer.getsockname()[1]}"],
                                      stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                printer.settimeout(30)
                connection, _ = printer.accept()
                with connection:
                    self.assertIn("still loaded", self.works("uninstall"))
                    self.assertFalse(COPY.exists())
                    self.works("install")
            finally:
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
        service = windows.Dialogue("rpc_host.exe")
        try:
            self.assertEqual(service.line(), "ready")
            with VirtualPrinter() as printer:
                for address in (printer.wsd_url, f"127.0.0.1:{printer.raw_port}"):
                    lines = self.doctor("--printer", address, "--driver", EXAMPLES / "velun.ini")
                    self.assertEqual({health for health, _ in lines.values()}, {"ok"}, lines)
                    self.assertEqual(len(lines), 8, lines)
        finally:
            service.stop()

    def test_nothing_installed(self):
        lines = self.doctor()
        self.assertWrong(lines, "registered", "not among the spooler's monitors; 'vlmctl install'")
        self.assertWrong(lines, "file", "file not found.*install it")
        for endpoint in ("local", "pipe", "tcp"):
            self.assertWrong(lines, "rpc " + endpoint, "nobody serves there")
        self.assertNotEqual(lines["window"][0], "ok")

    def test_wrong_file(self):
        good = (windows.BIN / "vllm3mon.dll").read_bytes()
        version = good.index(struct.pack("<I", 0xFEEF04BD)) + 8
        other_version = good[:version] + struct.pack("<II", 9 << 16 | 8, 7 << 16) + good[version + 8:]
        for content, says in ((b"no DLL", "not a DLL"),
                              ((windows.BIN / "spoolss.dll").read_bytes(), "does not export InitializePrintMonitor2"),
                              (other_version, r"of version 9\.8\.7, this vlmctl of \d")):
            with self.subTest(says):
                COPY.write_bytes(content)
                self.assertWrong(self.doctor(), "file", says)

    def test_printer_that_does_not_answer(self):
        for address in (f"http://{NOBODY}/wsd/print/", NOBODY):
            with self.subTest(address):
                self.assertWrong(self.doctor("--printer", address), "printer", "connection.*is it on")

    def test_driver_of_an_ini_file_and_of_an_installed_printer(self):
        def settings(text):
            (self.folder / "driver.ini").write_text(text)
            return self.folder / "driver.ini"

        broken = self.folder / "broken.xml"
        broken.write_text('<Schema xmlns:bidi="urn:x">\n</Schem>\n')
        for text, says in (("[BidiFiles]\nBidiWSDFile=broken.xml\n", r"broken\.xml"),
                           ("[VelunDriverFiles]\nUIBidiWSDFile1=absent.xml\n", r"absent\.xml"),
                           ("[Other]\n", "names no extension file")):
            with self.subTest(says):
                self.assertWrong(self.doctor("--driver", settings(text)), "extensions", says)

        foreign = self.folder / "foreign.xml"
        foreign.write_bytes(pathlib.Path(__file__).with_name("port_monitor_file.xml").read_bytes())
        self.assertEqual(self.doctor("--driver", settings("[BidiFiles]\nBidiWSDFile=foreign.xml\n"))["extensions"],
                         ("ok", "1 files, 4 warnings"))

        self.assertWrong(self.doctor("--queue", "Nobody's"), "extensions", "no printer of this machine")
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
