"""What the tests of the companion share: it is run as a user runs it, and judged by what a user sees."""

import functools
import http.server
import os
import pathlib
import pty
import queue
import re
import subprocess
import sys
import tempfile
import threading
import tty
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import windows  # noqa: E402
from vprinter import VirtualPrinter  # noqa: E402

EXAMPLES = windows.ROOT / "examples" / "bidi"
EXTENSIONS = ("--ext", EXAMPLES / "velun-base.xml", "--ext", EXAMPLES / "velun-finisher.xml")
NOBODY = "127.0.0.1:1"


class Lines:
    """What a program prints, line by line; all of it so far is in `seen`."""

    def __init__(self, program):
        self.seen = []
        self._program = program
        self._lines = queue.Queue()
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        for line in self._program.stdout:
            self._lines.put(line.rstrip("\n"))

    def next(self):
        self.seen.append(self._lines.get(timeout=30))
        return self.seen[-1]

    def wait_for(self, pattern):
        while not re.search(pattern, self.next()):
            pass

    def after_interrupt(self):
        """Ends the program as Ctrl+C does; all its lines."""
        self._program.send_signal(2)
        self._program.wait(timeout=30)
        self._reader.join(timeout=30)
        while not self._lines.empty():
            self.next()
        return self.seen


class Companion(unittest.TestCase):
    environment = {}

    @functools.cached_property
    def folder(self):
        """Of this test alone."""
        return pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def write(self, name, content):
        file = self.folder / name
        file.write_bytes(content if isinstance(content, bytes) else content.encode())
        return file

    def vlmctl(self, *arguments, **more):
        return windows.vlmctl(*arguments, **self.environment, **more)

    def works(self, *arguments, **more):
        """What it printed."""
        result = self.vlmctl(*arguments, **more)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result.stdout

    def fails(self, *arguments, status=1, says, **more):
        """One line says why."""
        result = self.vlmctl(*arguments, **more)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        self.assertRegex(result.stderr, says)
        self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)
        return result

    def start(self, *arguments, **more):
        """The program at work; it is over when the test is."""
        program = windows.start("vlmctl.exe", *arguments, **more)
        self.addCleanup(self._end, program)
        return program

    @staticmethod
    def _end(program):
        if program.poll() is None:
            program.kill()
        with program:  # closes what it was read through
            pass

    def start_on_a_terminal(self, *arguments):
        """The terminal, which is the program's input and shows its errors, and the program."""
        terminal, other_end = pty.openpty()
        self.addCleanup(os.close, terminal)
        tty.setraw(other_end)  # any echo is the console's, which Wine makes of the terminal
        # The copy of the error stream that the runner can make would stand between the program and the terminal.
        environment = {name: value for name, value in os.environ.items() if name != "VLM_ERROR_LOG"}
        program = self.start(*arguments, stdin=other_end, stdout=subprocess.PIPE, stderr=other_end, env=environment,
                             start_new_session=True)
        os.close(other_end)
        return terminal, program

    def start_rpc_host(self, **environment):
        host = windows.Dialogue("rpc_host.exe", **environment)
        self.addCleanup(host.stop)
        self.assertEqual(host.line(), "ready")

    def serve(self, answer, kind="application/soap+xml"):
        """The URL of a print service that answers everything with this until the test is over."""
        body = answer if isinstance(answer, bytes) else answer.encode()

        class Service(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                self.rfile.read(int(self.headers.get("Content-Length", 0)))
                self.send_response(200)
                self.send_header("Content-Type", kind)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            do_GET = do_POST

            def log_message(self, *_):
                pass

        server = self.enterContext(http.server.ThreadingHTTPServer(("127.0.0.1", 0), Service))
        thread = threading.Thread(target=server.serve_forever, args=(0.05,))
        thread.start()
        self.addCleanup(thread.join)
        self.addCleanup(server.shutdown)
        return f"http://127.0.0.1:{server.server_port}/wsd/print/"


class WithPrinter(Companion):
    """All tests have one virtual printer; nothing is wrong with it when a test begins."""

    options = ()

    @classmethod
    def setUpClass(cls):
        cls.printer = cls.enterClassContext(VirtualPrinter(*cls.options))
        cls.url = cls.printer.wsd_url
        cls.address = f"127.0.0.1:{cls.printer.raw_port}"

    def setUp(self):
        self.printer.clear_fault()
        self.printer.clear_answer()
        self.printer.clear_wsd_fault()
        self.printer.clear_wsd_style()
        self._documents = len(self.printer.documents())

    def record(self):
        """What the printer has of this test's document."""
        return self.printer.wait_for_documents(self._documents + 1)[-1]
