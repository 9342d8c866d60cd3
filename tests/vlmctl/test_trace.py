"""vlmctl trace: what the monitor does in one process as it is seen from another."""

import datetime
import re
import subprocess
import unittest

from companion import Lines, WithPrinter

DOCUMENT = b"x" * 300_017
STAMP = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d"


class TraceTest(WithPrinter):
    def setUp(self):
        super().setUp()
        self.document = self.write("report.prn", DOCUMENT)
        self.port = f"IP_{self.address}"

    def listen(self, *arguments):
        program = self.start("trace", "--seconds", "60", *arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertIn("listening", program.stderr.readline())
        return Lines(program)

    def print_document(self, level, to=None, document=None):
        return self.vlmctl("print", document or self.document, "--to", to or self.address, "--timeout", "3",
                           VLLM3MON_TRACE=level)

    def test_jobs_of_other_processes_are_shown_filtered_saved_and_counted(self):
        kept = self.write("kept.log", "what was there\n")
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
        seen = listener.after_interrupt()
        with self.subTest("lines"):
            self.assertEqual(len(seen), 3, seen)
            for line in (seen[0], seen[2]):
                self.assertRegex(line, rf'^{STAMP} +\d+ Info: port "{self.port}": '
                                       rf"job 1 ended, {len(DOCUMENT)} bytes, 0 failed writes, \d+ ms$")
                written = datetime.datetime.fromisoformat(line.split()[0])
                self.assertTrue(begin < written < datetime.datetime.now(datetime.timezone.utc), line)
        with self.subTest("what is kept"):
            self.assertEqual(kept.read_text().splitlines(), ["what was there", *seen])

    def test_live_summary_counts_writes_that_fail(self):
        listener = self.listen("--summary")
        self.printer.set_fault("reset", after=1000, connections=1)
        # More than the system takes in without a reader.
        self.print_document("info", document=self.write("large.prn", bytes(16 << 20)))
        self.print_document("info")
        table = "\n".join(listener.after_interrupt())
        jobs, count, failed = map(int, re.search(rf"(?m)^{self.port} +(\d+) +(\d+) +(\d+) ", table).groups())
        self.assertEqual((jobs, failed), (2, 1), table)
        self.assertTrue(len(DOCUMENT) <= count < 16 << 20, table)

    def test_remote_calls_are_shown_with_their_codes(self):
        self.start_rpc_host(VLLM3MON_TRACE="info")
        listener = self.listen("--level", "info")
        self.works("rpc", "query", "USB001", "16")
        self.works("rpc", "command", "USB001", "--short", "180")
        self.fails("rpc", "query", "USB003", "1", says="161: the printer's port is not open")
        self.fails("rpc", "query", "Büro", "1", says="110: no USB printer")
        listener.wait_for("code 110")
        lines = [re.sub(r"\d+ ms$", "N ms", line.split(maxsplit=2)[2]) for line in listener.after_interrupt()]
        self.assertEqual(lines, [
            'Info: port "USB001": remote query ended, code 0, 16 bytes, N ms',
            'Info: port "USB001": remote command ended, code 0, 8 bytes, N ms',
            'Error: port "USB003": a remote call while the port is not open, error 161',
            'Info: port "USB003": remote query ended, code 161, 0 bytes, N ms',
            'Error: port "": no USB printer with Bidi goes by the name Büro, error 110',
            'Info: port "": remote query ended, code 110, 0 bytes, N ms'])

    def test_saved_trace_that_cannot_be_read_is_refused(self):
        for path in (self.folder, self.folder / "none"):
            self.fails("trace", "--file", path, says=f"^vlmctl: cannot read {path}$")
            self.fails("trace", "--save", path / "none" / "x", "--seconds", "1", says="cannot write .*x: ")


if __name__ == "__main__":
    unittest.main()
