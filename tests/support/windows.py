"""Runs the Windows programs of the build under Wine, for end-to-end tests and the demo."""

import os
import pathlib
import re
import subprocess
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = pathlib.Path(os.environ.get("VLM_BIN", ROOT / "build/mingw/bin"))
PREFIX = pathlib.Path(os.environ.get("WINEPREFIX", ROOT / "build/wine"))
RUNNER = ROOT / "cmake/run-under-wine"
# Wine's own, of a thread whose way to Wine's server is closed while the process ends. The program's status and output are
# complete by then.
OVERTAKEN = re.compile("^wine client error:.*\n?", re.MULTILINE)


def run(program, *arguments, stdin="", timeout=60, folder=None, **environment):
    """Runs one program to its end; the CompletedProcess with text output. `folder` is the one that it runs in; what
    else is given goes into its environment."""
    done = subprocess.run([RUNNER, BIN / program, *map(str, arguments)], input=stdin, capture_output=True,
                          encoding="utf-8", timeout=timeout, cwd=folder, env=os.environ | environment)
    done.stderr = OVERTAKEN.sub("", done.stderr)
    return done


def start(program, *arguments, **more):
    """One program, at work. The runner is replaced by Wine, so a signal reaches the program itself."""
    return subprocess.Popen([RUNNER, BIN / program, *map(str, arguments)], encoding="utf-8", **more)


def vlmctl(*arguments, **more):
    return run("vlmctl.exe", *arguments, **more)


class Dialogue:
    """A program that does what the lines on its standard input say, with a line of output for each. What is not given a
    line in time is ended, and the line is then empty. What else is given goes into the program's environment."""

    def __init__(self, program, *arguments, **environment):
        self.process = start(program, *arguments, bufsize=1, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, env=os.environ | environment)

    def send(self, line):
        self.process.stdin.write(line + "\n")

    def line(self):
        watchdog = threading.Timer(30, self.process.kill)
        watchdog.start()
        try:
            return self.process.stdout.readline().strip()
        finally:
            watchdog.cancel()

    def do(self, line):
        self.send(line)
        return self.line()

    def stop(self):
        """Ends the input, which ends the program; how long that took."""
        begin = time.monotonic()
        self.process.communicate(timeout=20)
        assert self.process.returncode == 0, self.process.returncode
        return time.monotonic() - begin
