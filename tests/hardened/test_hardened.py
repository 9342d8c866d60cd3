"""That the hardened run sees what it is for; without this it could pass because nothing is switched on."""

import os
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import windows  # noqa: E402

# These faults are meant: they stay out of the run's log.
os.environ.pop("VLM_ERROR_LOG", None)


class HardenedTest(unittest.TestCase):
    def test_the_heap_reports_damage(self):
        for kind, report in (("overrun", "invalid block tail"), ("use after free", "free block overwritten")):
            with self.subTest(kind):
                self.assertIn(report, windows.run("planted_fault.exe", kind).stderr)

    def test_what_the_language_does_not_define_ends_the_program(self):
        for kind in ("signed overflow", "index"):
            with self.subTest(kind):
                done = windows.run("planted_fault.exe", kind)
                self.assertNotIn(done.returncode, (0, 1))


if __name__ == "__main__":
    unittest.main()
