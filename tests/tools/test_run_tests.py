"""What the runner of the tests makes of tests that fail always, once, or in great number."""

import contextlib
import io
import os
import pathlib
import sys
import tempfile
import unittest
from unittest import mock

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools"))
import run_tests  # noqa: E402

FLAW = "a flaw of the platform"


class RunTests(unittest.TestCase):
    def setUp(self):
        self.build = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.findings = self.build / "findings.txt"
        self.quarantine = self.build / "quarantine.toml"

    def run_tests(self, scripts, *arguments, quarantine=(), findings=False):
        """The exit status for tests that are these shell scripts by name; in each, `once` fails the first time."""
        once = "once() {{ test -e '{0}' || ! touch '{0}'; }}"
        lines = []
        for number, (name, script) in enumerate(scripts.items()):
            script = f"{once.format(self.build / f'tried{number}')}; echo 'said by {name}'; {script}"
            lines.append(f"add_test([=[{name}]=] /bin/sh -c [=[{script}]=])\n")
        (self.build / "CTestTestfile.cmake").write_text("".join(lines))
        self.quarantine.write_text("".join(f'[[test]]\nname = "{name}"\nflaw = "{FLAW}"\n' for name in quarantine))
        environment = {"VLM_FINDINGS": str(self.findings)} if findings else {}
        runs = run_tests.subprocess.run
        with (mock.patch.object(run_tests, "QUARANTINE", self.quarantine), mock.patch.dict(os.environ, environment),
              mock.patch.object(sys, "argv", ["run_tests.py", str(self.build), *arguments]),
              mock.patch.object(run_tests.subprocess, "run", lambda *a: runs(*a, capture_output=True)),
              contextlib.redirect_stdout(io.StringIO()) as said):
            if not findings:
                os.environ.pop("VLM_FINDINGS", None)
            status = run_tests.main()
        self.said = said.getvalue()
        return status

    def test_a_test_has_one_try(self):
        self.assertEqual(self.run_tests({"a": "true", "b": "true"}), 0)
        self.assertEqual(self.run_tests({"a": "true", "flaky": "once"}), 1)
        self.assertNotIn("once more", self.said)
        self.assertEqual(self.run_tests({"a": "true"}, "--no-tests=error", "-R", "nothing"), 1)

    def test_what_is_in_quarantine_has_a_second_one_and_is_named_with_its_flaw(self):
        name = "Kind/Suite.Case+[1]/0"
        for script, status, needed in (("true", 0, 0), ("once", 0, 1), ("false", 1, 1)):
            with self.subTest(script):
                self.setUp()
                self.assertEqual(self.run_tests({name: script, name + "1": "true"}, quarantine=[name, "b"]), status)
                self.assertIn(f"{name} needed {needed} second tries in 1 run: {FLAW}", self.said)
                self.assertNotIn(" b ", self.said)
        self.assertEqual(self.run_tests({name: "once", "b": "once"}, quarantine=[name]), 1)

    def test_a_second_try_that_was_asked_for_leaves_a_finding(self):
        self.assertEqual(self.run_tests({"a": "true", "flaky": "once", "known": "once"}, quarantine=["known"],
                                        findings=True), 0)
        found = self.findings.read_text()
        self.assertIn("-- flaky ", found)
        self.assertIn("said by flaky", found)
        self.assertNotIn("known", found)
        self.findings.unlink()
        self.assertEqual(self.run_tests({"bad": "false"}, findings=True), 1)
        self.assertFalse(self.findings.exists())
        self.setUp()
        self.assertEqual(self.run_tests({f"flaky{i}": "once" for i in range(6)}, findings=True), 1)
        self.assertFalse(self.findings.exists(), "so many are no accident")


if __name__ == "__main__":
    unittest.main()
