"""vlmctl deptid check, from the terminal or a pipe to a department-ID service: the virtual printer's, and one that a
SOAP toolkit makes, whose parser knows nothing of ours."""

import contextlib
import json
import os
import pathlib
import re
import select
import subprocess
import tempfile
import time
import unittest

from companion import Companion, WithPrinter, windows

SECRET = "Xq7-<\"hidden\"> & 'geheim' \u20ac\U0001F512"
TERMINAL_CODE = re.compile(rb"\x1b\[[?0-9;]*[A-Za-z]")
NOBODY = "http://127.0.0.1:1/active/deptid"
TOOLKIT = pathlib.Path(os.environ.get("DEPTID_TOOLKIT", windows.ROOT / "build/native/bin/deptid_toolkit"))


def check(url, user, *arguments, password="x\n", **environment):
    return windows.run("vlmctl.exe", "--trace", "deptid", "check", url, "--user", user, *arguments, stdin=password,
                       **environment)


class Check(Companion):
    def expect(self, done, status, output, errors=""):
        """The trace stands on standard error, too; only the last line there is the command's own."""
        lines = [line for line in done.stderr.splitlines() if not line.startswith("trace: ")]
        self.assertEqual((done.returncode, done.stdout), (status, output), done.stderr)
        self.assertEqual(len(lines), 1 if errors else 0, done.stderr)
        self.assertRegex("".join(lines), errors or "^$")


class AgainstThePrinter(Check, WithPrinter):
    @classmethod
    def setUpClass(cls):
        with tempfile.NamedTemporaryFile("w", suffix=".json") as accounts:
            json.dump([{"username": "4711", "password": SECRET, "type": "department"},
                       {"username": "open", "password": ""}], accounts)
            accounts.flush()
            cls.options = ("--accounts", accounts.name)
            super().setUpClass()
        cls.url = cls.printer.deptid_url
        cls.host = cls.url.removesuffix("/active/deptid")

    def test_verdict_of_the_printer(self):
        for user, arguments, password, status, verdict in (
                ("4711", ("--type", "department", "--domain", "sales"), f"{SECRET}\r\nnot this\n", 0, "allowed\n"),
                ("4711", (), f"{SECRET}\n", 1, "refused\n"),
                ("4711", ("--type", "department"), f"{SECRET} ", 1, "refused\n"),
                ("open", (), "\n", 0, "allowed\n")):
            with self.subTest(user, arguments=arguments):
                self.expect(check(self.host, user, *arguments, password=password), status, verdict)
                request = self.printer.deptid_requests()[-1]
                self.assertEqual(request["findings"], [])
                self.assertEqual((request["path"], request["version"], request["headers"]["SOAPAction"]),
                                 ("/active/deptid", "HTTP/1.0", '""'))

    def test_says_why_it_cannot_ask(self):
        for fault, says in (("soap11-fault", ": fault Server: The print engine is busy$"),
                            ("soap12-fault", "status 500 and no readable"), ("not-found", "HTTP status 404; the answer is not from"),
                            ("close", "did not answer in HTTP|no answer")):
            with self.subTest(fault):
                self.printer.set_wsd_fault(fault)
                self.expect(check(self.url, "4711"), 1, "", says)
        self.expect(check(NOBODY, "4711"), 1, "", ":1: no connection \\(12029\\)$")

    def test_password_has_to_come_from_outside_the_command_line(self):
        self.expect(check(self.url, "4711", password=""), 1, "", "no password on standard input$")
        self.expect(check(self.url, "4711", password="x" * 1024 + "\r\n"), 1, "refused\n")
        self.expect(check(self.url, "4711", password="x" * 1025), 1, "", "longer than 1,024")
        self.expect(check(self.url, "4711", password="x\x08\n"), 1, "", "control character")

    def test_terminal_does_not_show_what_is_typed(self):
        terminal, program = self.start_on_a_terminal("deptid", "check", self.url, "--user", "4711", "--type", "department")
        shown, typed, give_up = b"", False, time.monotonic() + 30
        with contextlib.suppress(OSError):  # the program has ended, and with it the other end of the terminal
            while select.select([terminal], [], [], max(0, give_up - time.monotonic()))[0]:
                shown = TERMINAL_CODE.sub(b"", shown + os.read(terminal, 4096))
                if not typed and shown.endswith(b"Password:"):  # the blank behind it is such a code
                    typed = os.write(terminal, f"{SECRET}\r".encode()) > 0
        program.kill()
        self.assertEqual(program.stdout.read(), "allowed\n", shown)
        self.assertRegex(shown, rb"^Password:\s*$")

    def test_password_appears_nowhere(self):
        for fault in (None, "soap11-fault", "not-found", "html", "truncated"):
            if fault:
                self.printer.set_wsd_fault(fault)
            done = check(self.url, "4711", password=f"{SECRET}\n", VLLM3MON_TRACE="verbose")
            self.assertIn("trace: Info: host ", done.stderr)
            for part in ("Xq7", "hidden", "geheim"):
                self.assertNotIn(part, done.stdout + done.stderr, fault)


class AgainstAToolkit(Check):
    @classmethod
    def setUpClass(cls):
        cls.service = subprocess.Popen([TOOLKIT], stdout=subprocess.PIPE, text=True)
        cls.url = f"http://127.0.0.1:{int(cls.service.stdout.readline())}"

    @classmethod
    def tearDownClass(cls):
        cls.service.kill()
        cls.service.communicate()

    def test_understands_our_message_and_we_its_answers(self):
        for password, status, verdict in (("\"quoted\" 'too' ", 0, "allowed\n"), ("wrong", 1, "refused\n")):
            done = check(self.url, "Jones & Sons", "--domain", "<sales>", password=f"{password}\n")
            self.expect(done, status, verdict)
        self.expect(check(self.url, "fault"), 1, "", "status 500 and no readable")


if __name__ == "__main__":
    unittest.main()
