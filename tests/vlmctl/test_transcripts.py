"""What the documents show of vlmctl is what happens. A page's fences with file=NAME are files, those marked console are
run in their folder, in their order."""

import pathlib
import re
import shlex
import tempfile
import unittest

from companion import windows

DOCS = windows.ROOT / "docs"
# Somewhere with an offset that changes in the year, whatever this machine has; as rules, since not every machine has the
# names of zones.
ZONE = "CET-1CEST,M3.5.0,M10.5.0/3"


def fences(page):
    """(language, file name or None, content) of each."""
    return re.findall(r"^```(\w+)(?: file=(\S+))?\n(.*?)^```$", page.read_text("utf-8"), re.S | re.M)


class Transcripts(unittest.TestCase):
    def run_page(self, name, least):
        with tempfile.TemporaryDirectory() as folder:
            sessions = []
            for language, file, content in fences(DOCS / name):
                if file:
                    (pathlib.Path(folder) / file).write_text(content, "utf-8")
                elif language == "console":
                    sessions += re.findall(r"^\$ vlmctl (.*)\n((?:(?!\$ ).*\n)*)", content, re.M)
            self.assertGreaterEqual(len(sessions), least)
            for arguments, output in sessions:
                with self.subTest(arguments):
                    done = windows.vlmctl(*shlex.split(arguments), folder=folder, TZ=ZONE)
                    self.assertEqual(done.stdout + done.stderr, output)

    def test_an_incident_in_a_saved_trace(self):
        self.run_page("trace.md", least=2)


if __name__ == "__main__":
    unittest.main()
