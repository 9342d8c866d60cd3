"""./dev record: runs the demo and draws what it printed, as a terminal shows it, into docs/demo.svg."""

import io
import pathlib
import subprocess
import sys

from rich.console import Console
from rich.text import Text

ROOT = pathlib.Path(__file__).resolve().parents[1]
COLUMNS = 110


def main():
    demo = subprocess.run([ROOT / "dev", "demo"], stdout=subprocess.PIPE, text=True, timeout=600)
    sys.stdout.write(demo.stdout)
    if demo.returncode != 0:
        sys.exit("the demo failed; nothing recorded")
    console = Console(record=True, width=COLUMNS, file=io.StringIO(), force_terminal=True)
    console.print(Text("$ ./dev demo", style="bold"))
    console.print(Text.from_ansi(demo.stdout.rstrip()))
    console.save_svg(ROOT / "docs/demo.svg", title="vllm3mon")


if __name__ == "__main__":
    main()
