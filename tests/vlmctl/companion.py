"""What the tests of the companion share: it is run as a user runs it, and judged by what a user sees."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import windows  # noqa: E402

EXAMPLES = windows.ROOT / "examples" / "bidi"
NOBODY = "127.0.0.1:1"


class Companion(unittest.TestCase):
    environment = {}

    def vlmctl(self, *arguments):
        return windows.vlmctl(*arguments, **self.environment)

    def works(self, *arguments):
        """What it printed."""
        result = self.vlmctl(*arguments)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result.stdout

    def fails(self, *arguments, status=1, says):
        """One line says why."""
        result = self.vlmctl(*arguments)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        self.assertRegex(result.stderr, says)
        self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)
        return result
