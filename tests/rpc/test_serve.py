"""./dev serve: what it prints to try works as printed, and the session in docs/rpc.md is what happens."""

import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import time
import unittest

import windows

PAGE = windows.ROOT / "docs/rpc.md"


def is_there(process):
    try:
        return pathlib.Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()[0] != "Z"
    except OSError:
        return False


class Served:
    def __init__(self, *options):
        self.process = subprocess.Popen([sys.executable, "-B", windows.ROOT / "tools/serve.py", *options], text=True,
                                        stdout=subprocess.PIPE, env=os.environ | {"VLM_CALLER": str(windows.ROOT)})
        self.invitation = "".join(iter(self.process.stdout.readline, "Ctrl+C ends.\n"))
        self.children = list(map(int, pathlib.Path(
            f"/proc/{self.process.pid}/task/{self.process.pid}/children").read_text().split()))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGINT)
        self.ended = self.process.communicate(timeout=30)[0]


def run(line):
    """A line as it is printed, with the companion of this build."""
    dev, companion, *arguments = shlex.split(line)
    assert (dev, companion) == ("./dev", "vlmctl"), line
    return windows.vlmctl(*arguments)


class ServeTest(unittest.TestCase):
    def test_the_page_and_the_invitation_show_what_happens(self):
        session = re.search(r"^```console\n(\$ \./dev vlmctl rpc .*?)^```$", PAGE.read_text("utf-8"), re.S | re.M)[1]
        shown = dict(re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", session, re.M))
        with Served() as served:
            invited = re.findall(r"^    (\./dev vlmctl .*)$", served.invitation, re.M)
            self.assertEqual(invited, list(shown))
            for line, output in shown.items():
                with self.subTest(line):
                    done = run(line)
                    self.assertEqual(done.stdout + done.stderr, output)
            self.assertEqual(len(served.children), 2)
        self.assertEqual((served.process.returncode, served.ended.strip()), (0, "ended"))
        self.assertEqual([child for child in served.children if is_there(child)], [])

    def test_device_that_is_slow_or_silent(self):
        for options, says, status in ((("--delay", "1500"), "AA BB CC DD", 0),
                                      (("--stall", "1", "--timeout", "1"), "the procedure returned 10060", 1)):
            with self.subTest(options), Served(*options):
                begin = time.monotonic()
                done = run("./dev vlmctl rpc query USB001 0x11223344")
                self.assertGreater(time.monotonic() - begin, 0.9)
                self.assertEqual(done.returncode, status)
                self.assertIn(says, done.stdout + done.stderr)
                self.assertEqual(run("./dev vlmctl rpc query USB001 0x11223344").returncode, 0)
