"""vlmctl print, from the command line to the printer's store."""

import hashlib
import os
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import windows  # noqa: E402
from vprinter import VirtualPrinter  # noqa: E402

MEGABYTE = 1_000_000


class PrintTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.document = pathlib.Path(cls.folder.name) / "report – März.prn"
        cls.content = os.urandom(3 * MEGABYTE + 17)
        cls.document.write_bytes(cls.content)
        cls.printer = VirtualPrinter()

    @classmethod
    def tearDownClass(cls):
        cls.printer.stop()
        cls.folder.cleanup()

    def setUp(self):
        self.printer.clear_fault()
        self.printer.clear_answer()
        self.address = f"127.0.0.1:{self.printer.raw_port}"

    def fails(self, *arguments, status=1, says):
        result = windows.vlmctl("print", *arguments)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        self.assertRegex(result.stderr, says)
        if status == 1:
            self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)
        return result

    def test_document_arrives_unchanged_and_its_job_is_tracked(self):
        before = len(self.printer.documents())
        result = windows.vlmctl("print", self.document, "--to", self.address)
        self.assertEqual(result.returncode, 0, result.stderr)
        record = self.printer.wait_for_documents(before + 1)[-1]
        self.assertEqual(record["sha256"], hashlib.sha256(self.content).hexdigest())
        self.assertTrue(record["complete"])
        self.assertRegex(result.stdout, r"100%")
        self.assertRegex(result.stdout, rf"sent +{len(self.content)} bytes in \d")
        self.assertRegex(result.stdout, r"job events +sent to printer, last page ejected")

    def test_empty_document_is_a_document(self):
        empty = self.document.with_name("empty")
        empty.write_bytes(b"")
        before = len(self.printer.documents())
        self.assertEqual(windows.vlmctl("print", empty, "--to", self.address).returncode, 0)
        self.assertEqual(self.printer.wait_for_documents(before + 1)[-1]["bytes"], 0)

    def test_answers_of_the_printer_are_shown_made_printable(self):
        self.printer.set_answer("READY\x1b[2J", when="open")
        result = windows.vlmctl("print", self.document, "--to", self.address, "--answer")
        self.assertRegex(result.stdout, r"printer says +READY\?\[2J")
        self.printer.set_answer("DONE", when="document")
        result = windows.vlmctl("print", self.document, "--to", self.address)
        self.assertRegex(result.stdout, r"printer says +DONE")

    def test_what_cannot_work_says_so_in_one_line(self):
        with self.subTest("no file"):
            self.fails(self.document.with_name("none"), "--to", self.address, says="cannot read .*none")
        with self.subTest("a folder"):
            self.fails(self.folder.name, "--to", self.address, says="cannot read ")
        with self.subTest("nobody listens"):
            self.printer.set_fault("refuse")
            self.fails(self.document, "--to", self.address, says=rf"no connection to {self.address}: .*refused")
        with self.subTest("no DLL"):
            self.fails(self.document, "--to", self.address, "--dll", "Z:\\none.dll", says=r"there is no Z:\\none\.dll")
        with self.subTest("not a DLL"):
            self.fails(self.document, "--to", self.address, "--dll", self.document, says="cannot be loaded")
        with self.subTest("a DLL, but no monitor"):
            self.fails(self.document, "--to", self.address, "--dll", windows.BIN / "spoolss.dll",
                       says="is no print monitor")
        for wrong in ("", ":9100", "host:", "host:0", "host:65536", "host:9100x", "[::1"):
            with self.subTest(to=wrong):
                self.fails(self.document, f"--to={wrong}", status=2, says=".")

    def test_connection_lost_in_the_middle_says_how_much_had_gone(self):
        self.printer.set_fault("reset", after=MEGABYTE, connections=1)
        result = self.fails(self.document, "--to", self.address, says=r"lost after (\d+) of 3000017 bytes")
        sent = int(result.stderr.split(" after ")[1].split()[0])
        self.assertGreaterEqual(sent, MEGABYTE)
        self.assertLessEqual(sent, len(self.content))

    def test_printer_that_stops_reading_ends_the_print_at_the_time_out(self):
        big = self.document.with_name("big")
        big.write_bytes(bytes(20 * MEGABYTE))  # more than all socket buffers on the way
        self.printer.set_fault("stall", after=1000, connections=1)
        self.fails(big, "--to", self.address, "--timeout", "1", says=r"stopped reading after \d+ of 20000000 bytes")

    def test_reset_at_the_very_end_is_no_success(self):
        self.printer.set_fault("reset", after=len(self.content) - 1, connections=1)
        self.fails(self.document, "--to", self.address, says="connection was lost after")


if __name__ == "__main__":
    unittest.main()
