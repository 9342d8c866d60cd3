"""Runs the Windows programs of the build under Wine, for end-to-end tests and the demo."""

import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = pathlib.Path(os.environ.get("VLM_BIN", ROOT / "build/mingw/bin"))
RUNNER = ROOT / "cmake/run-under-wine"


def run(program, *arguments, stdin="", timeout=60, folder=None, **environment):
    """Runs one program to its end; the CompletedProcess with text output. Once more after an end without a word: under
    load Wine now and then loses a process at its start. `folder` is the one that it runs in; what else is given goes
    into its environment."""
    for _ in range(2):
        done = subprocess.run([RUNNER, BIN / program, *map(str, arguments)], input=stdin, capture_output=True,
                              encoding="utf-8", timeout=timeout, cwd=folder, env=os.environ | environment)
        if done.stdout or done.stderr:
            break
    return done


def vlmctl(*arguments, **more):
    return run("vlmctl.exe", *arguments, **more)
