"""A first extension file, from the command line: the files that it writes, and the page that shows how."""

import pathlib
import re
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "vlmctl"))
from companion import EXAMPLES, Companion  # noqa: E402
from vprinter import VirtualPrinter  # noqa: E402

ANSWER = EXAMPLES / "printer-answer.xml"


class New(Companion):
    def vlmctl(self, *arguments, **more):
        return super().vlmctl("bidi", *arguments, folder=self.folder, **more)

    def test_a_live_printer_is_asked_for_what_is_published(self):
        with VirtualPrinter() as printer:
            self.works("new", "p.xml", "--printer", printer.wsd_url)
            done = self.vlmctl("check", "p.xml", "--printer", printer.wsd_url)
            self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
            driver = (self.folder / "p.ini").read_text()
            self.assertIn("[BidiFiles]\nBidiWSDFile=p.xml\n", driver)
            answers = self.works("getall", "--ext", "p.xml", "--printer", printer.wsd_url, "--port", "wsd", "\\")
            self.assertRegex(answers, r"(?m)^\\Printer\.PrinterStatus:PrinterState +BIDI_STRING +Idle +0 found +engine$")
            self.assertNotIn("232", answers)

    def test_nothing_is_overwritten_unless_it_is_told_to(self):
        for there in ("a.xml", "a.ini"):
            with self.subTest(there):
                self.write(there, "mine")
                self.fails("new", "a.xml", "--wsd", ANSWER, says="--force")
                self.assertEqual((self.folder / there).read_text(), "mine")
                self.assertEqual(len(list(self.folder.iterdir())), 1)
                self.works("new", "a.xml", "--wsd", ANSWER, "--force")
                self.assertNotEqual((self.folder / there).read_text(), "mine")
                for file in self.folder.iterdir():
                    file.unlink()

    def test_what_cannot_be_done_is_said_and_leaves_nothing(self):
        self.write("html.xml", "<html/>")
        (self.folder / "none.xml").write_text(re.sub(r"(?s)<wprt:ElementData.*</wprt:ElementData>|<!--.*?-->", "",
                                                     ANSWER.read_text("utf-8")))
        for file, answer, status, says in (("x.xml", "html.xml", 1, "html.xml"), ("x.xml", "none.xml", 3, "no elements"),
                                           ("x.xml", "missing.xml", 1, "cannot be opened"),
                                           ("a,b.xml", ANSWER, 2, "INI"), ("x.ini", ANSWER, 2, "INI"),
                                           ("nowhere/x.xml", ANSWER, 1, "cannot write ")):
            with self.subTest(file=file, answer=answer):
                done = self.fails("new", file, "--wsd", answer, status=status, says=says)
                self.assertEqual(done.stdout, "")
        self.assertEqual({file.name for file in self.folder.iterdir()}, {"html.xml", "none.xml"})


if __name__ == "__main__":
    unittest.main()
