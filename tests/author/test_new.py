"""A first extension file, from the command line: the files that it writes, and the page that shows how."""

import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from vprinter import VirtualPrinter  # noqa: E402
from windows import ROOT, vlmctl  # noqa: E402

ANSWER = ROOT / "examples" / "bidi" / "printer-answer.xml"
PAGE = ROOT / "docs" / "first-extension-file.md"


class New(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def vlmctl(self, *arguments, status=0):
        done = vlmctl(*arguments, folder=self.folder)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done.stdout + done.stderr

    def test_a_live_printer_is_asked_for_what_is_published(self):
        with VirtualPrinter() as printer:
            self.vlmctl("bidi", "new", "p.xml", "--printer", printer.wsd_url)
            self.assertEqual(self.vlmctl("bidi", "check", "p.xml", "--printer", printer.wsd_url), "")
            driver = (self.folder / "p.ini").read_text()
            self.assertIn("[BidiFiles]\nBidiWSDFile=p.xml\n", driver)
            answers = self.vlmctl("bidi", "getall", "--ext", "p.xml", "--printer", printer.wsd_url, "--port", "wsd", "\\")
            self.assertRegex(answers, r"(?m)^\\Printer\.PrinterStatus:PrinterState +BIDI_STRING +Idle +0 found +engine$")
            self.assertNotIn("232", answers)

    def test_nothing_is_overwritten_unless_it_is_told_to(self):
        for there in ("a.xml", "a.ini"):
            with self.subTest(there):
                (self.folder / there).write_text("mine")
                self.assertIn("--force", self.vlmctl("bidi", "new", "a.xml", "--wsd", ANSWER, status=1))
                self.assertEqual((self.folder / there).read_text(), "mine")
                self.assertEqual(len(list(self.folder.iterdir())), 1)
                self.vlmctl("bidi", "new", "a.xml", "--wsd", ANSWER, "--force")
                self.assertNotEqual((self.folder / there).read_text(), "mine")
                for file in self.folder.iterdir():
                    file.unlink()

    def test_what_cannot_be_done_is_said_and_leaves_nothing(self):
        (self.folder / "html.xml").write_text("<html/>")
        (self.folder / "none.xml").write_text(re.sub(r"(?s)<wprt:ElementData.*</wprt:ElementData>|<!--.*?-->", "",
                                                     ANSWER.read_text("utf-8")))
        for file, answer, status, says in (("x.xml", "html.xml", 1, "html.xml"), ("x.xml", "none.xml", 3, "no elements"),
                                           ("x.xml", "missing.xml", 1, "cannot be opened"),
                                           ("a,b.xml", ANSWER, 2, "INI"), ("x.ini", ANSWER, 2, "INI"),
                                           ("nowhere/x.xml", ANSWER, 1, "cannot write ")):
            with self.subTest(file=file, answer=answer):
                said = self.vlmctl("bidi", "new", file, "--wsd", answer, status=status)
                self.assertRegex(said, says)
                self.assertEqual(len(said.splitlines()), 1, said)
        self.assertEqual({file.name for file in self.folder.iterdir()}, {"html.xml", "none.xml"})

    def test_the_page_shows_what_happens(self):
        blocks = re.findall(r"^```console\n(.*?)^```$", PAGE.read_text("utf-8"), re.S | re.M)
        commands = [one for block in blocks for one in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", block, re.M)]
        self.assertGreater(len(commands), 9)
        with VirtualPrinter() as printer:
            for command, output in commands:
                with self.subTest(command):
                    program, *arguments = shlex.split(command.replace("http://printer/wsd/print/", printer.wsd_url))
                    if program == "vlmctl":
                        done = vlmctl(*arguments, folder=self.folder)
                    else:
                        self.assertEqual(program, "sed")
                        done = subprocess.run([program, *arguments], cwd=self.folder, check=True, capture_output=True,
                                              text=True, timeout=20)
                    self.assertEqual(done.stdout, output)


if __name__ == "__main__":
    unittest.main()
