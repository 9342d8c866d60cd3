"""What the documents show of vlmctl is what happens. A page's fences with file=NAME are files, those marked console are
run in their folder, in their order."""

import pathlib
import re
import shlex
import tempfile
import unittest

from companion import windows
from vprinter import VirtualPrinter

DOCS = windows.ROOT / "docs"
# Somewhere with an offset that changes in the year, whatever this machine has; as rules, since not every machine has the
# names of zones.
ZONE = "CET-1CEST,M3.5.0,M10.5.0/3"


def fences(page):
    """(language, file name or None, content) of each."""
    return re.findall(r"^```(\w+)(?: file=(\S+))?\n(.*?)^```$", page.read_text("utf-8"), re.S | re.M)


def plain(text):
    """Without what differs from run to run: times, and with the names' lengths the widths of columns."""
    return re.sub(r" +", " ", re.sub(r"\d+ ms\b", "N ms", text)).replace(" \n", "\n")


class Transcripts(unittest.TestCase):
    def run_page(self, name, least, names=None):
        """`names` are those in the page's files that stand for something of this run."""
        names = names or {}
        with tempfile.TemporaryDirectory() as folder:
            sessions = []
            for language, file, content in fences(DOCS / name):
                if file:
                    for shown, real in names.items():
                        content = content.replace(shown, real)
                    (pathlib.Path(folder) / file).write_text(content, "utf-8")
                elif language == "console":
                    sessions += re.findall(r"^\$ vlmctl (.*)\n((?:(?!\$ ).*\n)*)", content, re.M)
            self.assertGreaterEqual(len(sessions), least)
            for arguments, output in sessions:
                with self.subTest(arguments):
                    done = windows.vlmctl(*shlex.split(arguments), folder=folder, TZ=ZONE)
                    printed = done.stdout + done.stderr
                    for shown, real in sorted(names.items(), key=lambda pair: -len(pair[1])):
                        printed = printed.replace(real, shown)
                    self.assertEqual(plain(printed) if names else printed, plain(output) if names else output)

    def test_an_incident_in_a_saved_trace(self):
        self.run_page("trace.md", least=2)

    def test_the_state_of_a_fleet(self):
        with VirtualPrinter("--printers", "4") as printer:
            self.run_page("monitoring.md", least=1, names={
                "http://10.0.4.16/wsd/print/": printer.wsd_url, "http://10.0.4.17/wsd/print/": printer.wsd_url + "2/",
                "http://10.0.4.18/wsd/print/": "http://127.0.0.1:1/", "10.0.4.18:80": "127.0.0.1:1",
                "http://10.0.4.19/wsd/print/": printer.wsd_url + "4/"})

    def test_a_device_asked_by_a_program(self):
        host = windows.Dialogue("rpc_host.exe")
        try:
            self.assertEqual(host.line(), "ready")
            self.run_page("json.md", least=4)
        finally:
            host.stop()


if __name__ == "__main__":
    unittest.main()
