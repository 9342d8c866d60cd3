"""Runs the Windows programs of the build under Wine, for end-to-end tests and the demo."""

import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = pathlib.Path(os.environ.get("VLM_BIN", ROOT / "build/mingw/bin"))
RUNNER = ROOT / "cmake/run-under-wine"


def run(program, *arguments, stdin="", timeout=60):
    """Runs one program to its end; the CompletedProcess with text output."""
    return subprocess.run([RUNNER, BIN / program, *map(str, arguments)], input=stdin, capture_output=True, text=True,
                          timeout=timeout)


def vlmctl(*arguments, **more):
    return run("vlmctl.exe", *arguments, **more)
