"""An extension file that was written for the platform's own port monitor, with all that this one knows: what the
companion says of it, and what it answers."""

import pathlib
import re
import subprocess
import unittest

from companion import windows
from test_answers import AS_PUBLISHED, Answers

FILE = pathlib.Path(__file__).with_name("port_monitor_file.xml")


class ForThePortMonitor(Answers):
    EXPECTED = {
        r"\Device:Title": ("BIDI_STRING", "Velun VP-4200C", 0),
        r"\Device:Place": ("BIDI_STRING", "Zürich, 2. Stock", 0),
        r"\Device:Speed": ("BIDI_INT", "42", 0),
        r"\Device:Fax": ("BIDI_NULL", None, 232),
        r"\Device:Owner": ("BIDI_NULL", None, 232),
        r"\Device:Disk": ("BIDI_BOOL", "true", 0),
        r"\Supplies:All": ("BIDI_STRING", "TonerK,TonerC,TonerM,TonerY", 0),
        **{rf"\Supplies.Toner{colour}:Level": ("BIDI_INT", level, 0)
           for colour, level in (("K", "85"), ("C", "61"), ("M", "47"), ("Y", "8"))},
        **{path: value for number, name, group in (("1041", "MarkerSupplyLow", "Marker"),
                                                   ("1046", "InputTrayEmpty", "InputTray"),
                                                   ("1047", "MediaSizeMismatch", "InputTray"))
           for path, value in ((rf"\Events.Number{number}:Name", ("BIDI_STRING", name, 0)),
                               (rf"\Events.Number{number}.Where:Group", ("BIDI_STRING", group, 0)))},
    }

    def test_its_files_are_answered_on_every_road(self):
        self.assertEqual(self.saved(AS_PUBLISHED, "--ext", FILE), self.EXPECTED)
        ask = ("getall", "--ext", FILE, "--printer", self.serve(AS_PUBLISHED))
        self.assertEqual(self.bidi(*ask), self.EXPECTED)
        for port in ("tcp", "wsd"):
            answers = self.bidi(*ask, "--port", port)
            self.assertEqual({path: answers[path] for path in self.EXPECTED}, self.EXPECTED)

    def test_its_files_are_checked_with_warnings_alone(self):
        done = self.vlmctl("bidi", "check", FILE)
        self.assertEqual(done.returncode, 1, done.stdout)
        found = {int(re.search(r":(\d+):\d+: warning: ", line)[1]): line for line in done.stdout.splitlines()}
        for line, what in ((4, "PortStatus is not read.*and in 1 more place"), (10, "xmllang .*the first that"),
                           (12, "default text '1' is not used.*232"), (15, "drvPrinterEvent .*not reported")):
            self.assertRegex(found.pop(line), what)
        self.assertEqual(found, {})
        for schema in ("extension", "definition"):
            subprocess.run(["xmllint", "--noout", "--nonet", "--schema", windows.ROOT / f"packaging/bidi-{schema}.xsd",
                            FILE], check=True, timeout=60, capture_output=True)


if __name__ == "__main__":
    unittest.main()
