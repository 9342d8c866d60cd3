"""Ctrl+C in every kind of command: one line, exit status 130, and nothing that looks done."""

import os
import signal
import subprocess
import tempfile
import time
import unittest

from companion import EXAMPLES, WithPrinter
from vprinter import wait_until

BIG = 20_000_000  # more than all socket buffers on the way


class InterruptTest(WithPrinter):
    def setUp(self):
        super().setUp()
        self.big = self.write("big", bytes(BIG))

    def start_waiting(self, *arguments, **more):
        # Kept open, and never written to.
        silence, writer = os.pipe()
        self.addCleanup(os.close, writer)
        program = self.start(*arguments, stdin=silence, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                             env=os.environ | more)
        os.close(silence)
        return program

    def interrupt(self, program, how=signal.SIGINT):
        program.send_signal(how)
        return program.communicate(timeout=20)

    def printing(self):
        """In the middle of a document that the printer does not take on."""
        self.printer.set_fault("stall", after=100_000)
        program = self.start_waiting("print", self.big, "--to", self.address, "--timeout", "60")
        wait_until(lambda: self.printer.state()["openConnections"] > 0, "a connection")
        time.sleep(0.5)
        return program

    def record_without_fault(self):
        self.printer.clear_fault()
        return self.record()

    def test_print_says_how_much_had_gone_and_the_printer_knows_it_is_not_all(self):
        program = self.printing()
        _, errors = self.interrupt(program)
        self.assertEqual(program.returncode, 130, errors)
        self.assertRegex(errors, rf"\Avlmctl: interrupted after \d{{6,8}} of {BIG} bytes; .*the connection was reset.*\n\Z")
        record = self.record_without_fault()
        self.assertFalse(record["complete"], record)
        self.assertLess(record["bytes"], BIG)

    def test_print_that_is_killed_leaves_no_whole_document_either(self):
        program = self.printing()
        self.interrupt(program, signal.SIGKILL)
        self.assertFalse(self.record_without_fault()["complete"])

    def test_whatever_waits_is_ended_at_once_and_leaves_nothing_behind(self):
        self.printer.set_wsd_fault("mute")
        with tempfile.TemporaryDirectory() as temporary:
            for arguments in (("deptid", "check", self.url, "--user", "4711"), ("status", self.url),
                              ("bidi", "get", "--ext", EXAMPLES / "velun-base.xml", "--printer", self.url, "--port", "wsd",
                               r"\Printer.Consumables.Black:Level"), ("trace",)):
                with self.subTest(arguments[0]):
                    program = self.start_waiting(*arguments, TMP=f"Z:{temporary}", TEMP=f"Z:{temporary}")
                    time.sleep(2)
                    self.assertIsNone(program.poll(), arguments)
                    begin = time.monotonic()
                    output, errors = self.interrupt(program)
                    self.assertLess(time.monotonic() - begin, 5)
                    self.assertEqual((program.returncode, output, errors.splitlines()[-1]),
                                     (130, "", "vlmctl: interrupted"))
                    self.assertEqual(os.listdir(temporary), [])

    def test_password_prompt_on_a_terminal(self):
        terminal, program = self.start_on_a_terminal("deptid", "check", self.printer.deptid_url, "--user", "4711")
        shown = b""
        while b"w\x1b" not in shown and b"Passw" not in shown:
            shown += os.read(terminal, 4096)
        time.sleep(0.5)
        os.write(terminal, b"\x03")
        self.assertEqual(program.wait(timeout=20), 130)
        self.assertEqual(program.stdout.read(), "")


if __name__ == "__main__":
    unittest.main()
