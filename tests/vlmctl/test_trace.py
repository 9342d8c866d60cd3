"""vlmctl trace: what the monitor does in one process as it is seen from another."""

import datetime
import os
import pathlib
import queue
import re
import subprocess
import tempfile
import threading
import unittest

from companion import Companion, windows
from vprinter import VirtualPrinter

DOCUMENT = b"x" * 300_017
STAMP = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d"


class Listener:
    """vlmctl trace, running until `stop`, which is Ctrl+C."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen([windows.RUNNER, windows.BIN / "vlmctl.exe", "trace", "--seconds", "60",
                                         *arguments], text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.seen = []
        self.lines = queue.Queue()
        assert "listening" in self.process.stderr.readline()
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line.rstrip("\n"))

    def wait_for(self, pattern):
        while not self.seen or not re.search(pattern, self.seen[-1]):
            self.seen.append(self.lines.get(timeout=30))
        return self.seen[-1]

    def stop(self):
        # The runner is replaced by Wine, so this is the program itself.
        self.process.send_signal(2)
        self.process.wait(timeout=30)
        self.reader.join(timeout=30)
        while not self.lines.empty():
            self.seen.append(self.lines.get())
        self.process.stdout.close()
        self.process.stderr.close()
        return self.seen


def environment(level):
    return {**os.environ, "VLLM3MON_TRACE": level}


class TraceTest(Companion):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.document = pathlib.Path(cls.folder.name) / "report.prn"
        cls.document.write_bytes(DOCUMENT)
        cls.printer = VirtualPrinter()
        cls.address = f"127.0.0.1:{cls.printer.raw_port}"
        cls.port = f"IP_{cls.address}"

    @classmethod
    def tearDownClass(cls):
        cls.printer.stop()
        cls.folder.cleanup()

    def listen(self, *arguments):
        listener = Listener(*arguments)
        self.addCleanup(lambda: listener.process.poll() is None and listener.process.kill())
        return listener

    def print_document(self, level, to=None, document=None):
        return subprocess.run([windows.RUNNER, windows.BIN / "vlmctl.exe", "print", document or self.document, "--to",
                               to or self.address, "--timeout", "3"], env=environment(level), capture_output=True,
                              text=True, timeout=60)

    def test_jobs_of_other_processes_are_shown_filtered_saved_and_counted(self):
        kept = pathlib.Path(self.folder.name) / "kept.log"
        kept.write_text("what was there\n")
        begin = datetime.datetime.now(datetime.timezone.utc) - datetime.timedelta(milliseconds=1)
        listener = self.listen("--level", "info", "--save", kept)
        self.assertEqual(self.print_document("verbose").returncode, 0)
        listener.wait_for("job 1 ended")
        self.print_document("off")
        self.assertEqual(self.print_document("error", to="127.0.0.1:1").returncode, 1)
        listener.wait_for("127.0.0.1:1.: the lower monitor does not start the job")
        self.assertEqual(self.print_document("info").returncode, 0)
        listener.wait_for("job 1 ended")

        with self.subTest("a second reader is told"):
            self.fails("trace", "--seconds", "5", says="another program is already reading the debugger output")
        seen = listener.stop()
        with self.subTest("lines"):
            self.assertEqual(len(seen), 3, seen)
            for line in (seen[0], seen[2]):
                self.assertRegex(line, rf'^{STAMP} +\d+ Info: port "{self.port}": '
                                       rf"job 1 ended, {len(DOCUMENT)} bytes, 0 failed writes, \d+ ms$")
                written = datetime.datetime.fromisoformat(line.split()[0])
                self.assertTrue(begin < written < datetime.datetime.now(datetime.timezone.utc), line)
        with self.subTest("what is kept"):
            self.assertEqual(kept.read_text().splitlines(), ["what was there", *seen])
        with self.subTest("summary of the saved lines"):
            saved = pathlib.Path(self.folder.name) / "trace.log"
            saved.write_text("\n".join(seen) + "\nError: something else\n")
            milliseconds = sum(int(number) for number in re.findall(r"(\d+) ms", "\n".join(seen)))
            table = self.works("trace", "--summary", "--file", saved)
            self.assertRegex(table, rf"(?m)^{self.port} +2 +{2 * len(DOCUMENT)} +0 +0 +0 +0 +{milliseconds}$")
            self.assertRegex(table, r"(?m)^IP_127\.0\.0\.1:1 +0 +0 +0 +0 +0 +1 +0$")
            self.assertIn("errors without a port: 1\n", table)
            table = self.works("trace", "--summary", "--file", saved, "--port", self.port.lower())
            self.assertNotIn("IP_127.0.0.1:1 ", table)
            self.assertNotIn("no port", table)

    def test_live_summary_counts_writes_that_fail(self):
        listener = self.listen("--summary")
        self.printer.set_fault("reset", after=1000, connections=1)
        self.addCleanup(self.printer.clear_fault)
        # More than the system takes in without a reader.
        large = pathlib.Path(self.folder.name) / "large.prn"
        large.write_bytes(bytes(16 << 20))
        self.print_document("info", document=large)
        self.print_document("info")
        table = "\n".join(listener.stop())
        jobs, count, failed = map(int, re.search(rf"(?m)^{self.port} +(\d+) +(\d+) +(\d+) ", table).groups())
        self.assertEqual((jobs, failed), (2, 1), table)
        self.assertTrue(len(DOCUMENT) <= count < 16 << 20, table)

    def test_remote_calls_are_shown_with_their_codes(self):
        host = windows.Dialogue("rpc_host.exe", VLLM3MON_TRACE="info")
        try:
            self.assertEqual(host.line(), "ready")
            listener = self.listen("--level", "info")
            self.works("rpc", "query", "USB001", "16")
            self.works("rpc", "command", "USB001", "--short", "180")
            self.fails("rpc", "query", "USB003", "1", says="161: the printer's port is not open")
            self.fails("rpc", "query", "Büro", "1", says="110: no USB printer")
            listener.wait_for("code 110")
            lines = [re.sub(r"\d+ ms$", "N ms", line.split(maxsplit=2)[2]) for line in listener.stop()]
        finally:
            host.stop()
        self.assertEqual(lines, [
            'Info: port "USB001": remote query ended, code 0, 16 bytes, N ms',
            'Info: port "USB001": remote command ended, code 0, 8 bytes, N ms',
            'Error: port "USB003": a remote call while the port is not open, error 161',
            'Info: port "USB003": remote query ended, code 161, 0 bytes, N ms',
            'Error: port "": no USB printer with Bidi goes by the name Büro, error 110',
            'Info: port "": remote query ended, code 110, 0 bytes, N ms'])

    def test_saved_trace_that_cannot_be_read_is_refused(self):
        for path in (self.folder.name, pathlib.Path(self.folder.name) / "none"):
            self.fails("trace", "--file", path, says=f"^vlmctl: cannot read {path}$")
            self.fails("trace", "--save", pathlib.Path(path) / "none" / "x", "--seconds", "1", says="cannot write .*x: ")


if __name__ == "__main__":
    unittest.main()
