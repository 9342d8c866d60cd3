"""What the documents show of vlmctl is what happens. A page's fences with file=NAME are files, those marked console are
run in their folder, in their order. A command that ends in "&" runs until "wait", which shows what it printed."""

import contextlib
import os
import re
import shlex
import signal
import subprocess
import sys
import unittest

from companion import Companion, windows
from vprinter import VirtualPrinter

DOCS = windows.ROOT / "docs"
# Somewhere with an offset that changes in the year, whatever this machine has; as rules, since not every machine has the
# names of zones.
ZONE = "CET-1CEST,M3.5.0,M10.5.0/3"


def fences(page):
    """(language, file name or None, content) of each."""
    return re.findall(r"^```(\w+)(?: file=(\S+))?\n(.*?)^```$", page.read_text("utf-8"), re.S | re.M)


def plain(text):
    """Without what differs from run to run: times, processes, and with the names' lengths the widths of columns."""
    text = re.sub(r"^\d{4}-\d\d-\d\dT\S+ +\d+ ", "WHEN PROCESS ", text, flags=re.M)
    text = re.sub(r"\d+\.\d\d s\b", "N s", re.sub(r"\d+ ms\b", "N ms", text))
    return re.sub(r" +", " ", text).replace(" \n", "\n")


def replaced(text, names):
    for old, new in sorted(names.items(), key=lambda pair: -len(pair[0])):
        text = text.replace(old, new)
    return text


@contextlib.contextmanager
def served(**environment):
    """./dev serve, with the environment given."""
    process = subprocess.Popen([sys.executable, "-B", windows.ROOT / "tools/serve.py"], text=True, stdout=subprocess.PIPE,
                               env=os.environ | environment)
    try:
        while process.stdout.readline() not in ("Ctrl+C ends.\n", ""):
            pass
        yield
    finally:
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=30)


class Transcripts(Companion):
    def run_page(self, name, least, names=None, what_counts=None):
        """`names` are those on the page that stand for something of this run."""
        what_counts = what_counts or (plain if names else str)
        names = names or {}
        shown = {real: name for name, real in names.items()}
        sessions = []
        for language, file, content in fences(DOCS / name):
            if file:
                self.write(file, replaced(content, names))
            elif language == "console":
                sessions += re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", content, re.M)
        self.assertGreaterEqual(len(sessions), least)
        for line, output in sessions:
            with self.subTest(line):
                printed = replaced(self.run_line(replaced(line, names), len(output.splitlines())), shown)
                self.assertEqual(what_counts(printed), what_counts(output))

    def run_line(self, line, expected):
        """What it prints. "wait" takes no more lines than are `expected`, so that it need not last until a time-out."""
        if line == "wait":
            printed = "".join(self.background.stdout.readline() for _ in range(expected))
            self.background.send_signal(signal.SIGINT)
            self.background.communicate(timeout=30)
            return printed
        assignments, program, rest = re.fullmatch(r"((?:\w+=\w+ )*)(\w+) (.*)", line).groups()
        if program == "sed":
            return subprocess.run(shlex.split(line), cwd=self.folder, check=True, stdout=subprocess.PIPE, encoding="utf-8",
                                  timeout=20).stdout
        self.assertEqual(program, "vlmctl")
        environment = {"TZ": ZONE} | dict(word.split("=") for word in assignments.split())
        if not rest.endswith(" &"):
            done = self.vlmctl(*shlex.split(rest), folder=self.folder, **environment)
            return done.stdout + done.stderr
        self.background = self.start(*shlex.split(rest[:-2]), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                     cwd=self.folder, env=os.environ | environment)
        return self.background.stderr.readline()

    def test_an_incident_in_a_saved_trace(self):
        self.run_page("trace.md", least=2)

    def test_an_extension_file_and_what_it_answers(self):
        self.run_page("bidi-extension-files.md", least=8)

    def test_a_first_extension_file(self):
        with VirtualPrinter() as printer:
            self.run_page("first-extension-file.md", least=12, names={"http://printer/wsd/print/": printer.wsd_url},
                          what_counts=str)

    def test_the_state_of_a_fleet(self):
        with VirtualPrinter("--printers", "4") as printer:
            self.run_page("monitoring.md", least=1, names={
                "http://10.0.4.16/wsd/print/": printer.wsd_url, "http://10.0.4.17/wsd/print/": printer.wsd_url + "2/",
                "http://10.0.4.18/wsd/print/": "http://127.0.0.1:1/", "10.0.4.18:80": "127.0.0.1:1",
                "http://10.0.4.19/wsd/print/": printer.wsd_url + "4/"})

    def test_a_device_asked_by_a_program(self):
        self.start_rpc_host()
        self.run_page("json.md", least=4)

    def test_a_request_followed_to_where_it_is_logged(self):
        with VirtualPrinter() as printer, served(VLLM3MON_TRACE="verbose"):
            host = f"127.0.0.1:{printer.raw_port}"
            web = printer.wsd_url.removesuffix("/wsd/print/")
            self.run_page("changing.md", least=7, names={
                "printer:9100": host, "http://printer": web, "printer:80": web.removeprefix("http://")})

    def test_the_readme_lists_every_command(self):
        commands = re.findall(r"^  (\w+)", windows.vlmctl("--help").stdout.split("Subcommands:")[1], re.M)
        self.assertIn("print", commands)
        table = "".join(re.findall(r"^\| `.*\n", (windows.ROOT / "README.md").read_text("utf-8"), re.M))
        self.assertEqual([name for name in commands if not re.search(f"`{name}[ `]", table)], [])


if __name__ == "__main__":
    unittest.main()
