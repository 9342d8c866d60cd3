"""What the DLL file itself promises: one export, system DLLs only, hardening, a version."""

import os
import pathlib
import re
import subprocess
import unittest

DLL = pathlib.Path(os.environ["VLM_BIN"]) / "vllm3mon.dll"

# What every Windows has. A compiler's runtime beside the DLL would be missing on a print server.
SYSTEM_DLLS = {"advapi32.dll", "crypt32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll", "oleaut32.dll", "rpcrt4.dll",
               "spoolss.dll", "user32.dll", "wininet.dll", "winspool.drv", "ws2_32.dll"}


class ShapeTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.headers = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", DLL], capture_output=True, text=True,
                                     check=True).stdout

    def test_is_an_x64_dll_with_address_randomisation_and_no_execute(self):
        self.assertIn("pei-x86-64", self.headers)
        for flag in ("DYNAMIC_BASE", "NX_COMPAT", "HIGH_ENTROPY_VA"):
            self.assertRegex(self.headers, rf"(?m)^\s+{flag}$")

    def test_exports_the_entry_point_and_nothing_else(self):
        table = self.headers.split("[Ordinal/Name Pointer] Table", 1)[1].split("\n\n", 1)[0]
        self.assertEqual(re.findall(r"\] +(?:\+base\[ *\d+\] +\w+ +)?(\w+)$", table, re.M), ["InitializePrintMonitor2"])

    def test_imports_system_dlls_only(self):
        imported = {name.lower() for name in re.findall(r"DLL Name: (\S+)", self.headers)}
        self.assertTrue(imported)
        runtime = {name for name in imported if name.startswith("api-ms-win-crt-")}
        # One C runtime: the system's own, or the one for programs, whose DLLs have these names.
        self.assertNotEqual(bool(runtime), "msvcrt.dll" in imported)
        self.assertLessEqual(imported - runtime, SYSTEM_DLLS)

    def test_bears_the_version_of_the_project(self):
        cmake = (pathlib.Path(__file__).resolve().parents[2] / "CMakeLists.txt").read_text()
        version = re.search(r"project\(vllm3mon VERSION (\S+)", cmake)[1]
        resource = DLL.read_bytes()
        for text in ("VS_VERSION_INFO", "vllm3mon.dll", version):
            self.assertIn(text.encode("utf-16-le"), resource)

    def test_holds_the_labels_of_the_codec_for_a_debugger(self):
        # One that is logged and one that nothing uses: an optimizer leaves out either kind by a way of its own.
        for label in ("VPCA Coder (Version):", "VPCA Decoder (EventEx):"):
            self.assertIn((label + "\0").encode("utf-16-le"), DLL.read_bytes(), label)


if __name__ == "__main__":
    unittest.main()
