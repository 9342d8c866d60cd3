"""The soak finds what is planted: a checker that cannot fail is worth nothing. And it finds nothing else."""

import os
import pathlib
import re
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def soak(seconds, *options, seed=7):
    result = subprocess.run(["/usr/bin/python3", "-B", ROOT / "tools/soak.py", str(seconds / 60), "--seed", str(seed),
                             *options], capture_output=True, text=True, timeout=90, env=os.environ)
    return result.returncode, result.stdout


def planted(*faults):
    return [word for fault in faults for word in ("--plant", fault)]


class Soak(unittest.TestCase):
    def test_a_healthy_monitor_passes(self):
        status, said = soak(12)
        self.assertEqual(status, 0, said)
        self.assertIn("no violation", said)
        for operation in ("Bidi query", "ClosePort", "EndDocPort", "OpenPortEx", "ReadPort", "Shutdown", "StartDocPort",
                          "WritePort", "change of a file", "remote call", "suspend notice"):
            self.assertRegex(said, rf"(?m)^{operation} +[1-9]")

    def test_wrong_outcomes_are_found(self):
        for fault, worker, found in (
                ("drop-byte", "print-one", "bytes were taken"),
                ("wrong-code", "print-one", "a write failed with"),
                ("stale-answer", "bidi-one", "a query of"),
                ("wrong-reply", "remote-1", "other bytes came than were sent"),
                ("lost-suspend", "suspend", "a write was not refused after a suspend notice"),
                ("lost-event", "print-one", "the spooler was told of job")):
            with self.subTest(fault):
                status, said = soak(10, "--only", worker, *planted(fault))
                self.assertEqual(status, 1, said)
                self.assertRegex(said, rf"(?m)^first violation: seed 7, .*{found}")

    def test_a_seed_decides_the_same_again(self):
        violations = []
        for _ in range(2):
            _, said = soak(10, "--only", "print-one", *planted("drop-byte"))
            violations.append(re.search(r"^first violation: .*", said, re.MULTILINE)[0])
        self.assertEqual(violations[0], violations[1])
        _, said = soak(10, "--only", "print-one", *planted("drop-byte"), seed=8)
        self.assertNotIn(violations[0].replace("seed 7", "seed 8"), said)

    def test_growth_is_found(self):
        # Long enough for some quiet points, even though one query in some hundred waits 5 s for a mute printer.
        status, said = soak(24, "--only", "bidi-one", *planted("leak-block", "leak-handle", "leak-router"))
        self.assertEqual(status, 1, said)
        self.assertRegex(said, "first violation: seed 7, growth.* grew by")
        for resource in ("heap blocks", "handles", "router blocks"):
            growth, allowed = re.search(rf"(?m)^{resource} +\d+ +\d+ +(\d+) +(\d+)$", said).groups()
            self.assertGreater(int(growth), int(allowed), said)

    def test_a_hang_is_ended_and_told(self):
        status, said = soak(1, "--only", "print-one", *planted("hang"))
        self.assertEqual(status, 1, said)
        self.assertRegex(said, r"hangs after \d+ s.*\n~ \| .*print-one step \d+ WritePort")
        self.assertIn("again: ./dev soak", said)


if __name__ == "__main__":
    unittest.main()
