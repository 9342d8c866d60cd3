"""./dev bench: runs every bench program, prints one table, writes build/bench.json and draws docs/growth.svg."""

import datetime
import json
import os
import pathlib
import platform
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
RUNNER = ROOT / "cmake/run-under-wine"


def programs():
    """Each bench program as a command line, without the file for its rows."""
    for path in sorted((ROOT / "build/mingw/bin").glob("*_bench.exe")):
        yield [RUNNER, path]
    for path in sorted((ROOT / "build/native/bin").glob("*_bench")):
        yield [path]


def rows_of(command):
    with tempfile.TemporaryDirectory() as folder:
        output = pathlib.Path(folder) / "rows.json"
        subprocess.run([*command, output], check=True, timeout=600)
        return json.loads(output.read_text())


def set_up():
    model = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")), "?")
    wine = subprocess.run(["wine", "--version"], capture_output=True, text=True, env={**os.environ, "WINEDEBUG": "-all"})
    return (f"{datetime.date.today()}, {os.cpu_count()} cores of {model}, {platform.system()} {platform.release()}, "
            f"{wine.stdout.strip()}; a shared machine, so only the ratios mean anything")


def keeps(row):
    """Whether the row's ratio keeps its target; None for a row without one."""
    if row["ratio"] is None:
        return None
    comparison, bound = row["target"].split()
    return row["ratio"] <= float(bound) if comparison == "<=" else row["ratio"] >= float(bound)


def text_of(number):
    return "" if number is None else f"{number:,.0f}" if number >= 1000 else f"{number:.3g}"


def print_table(rows):
    header = ("what", "ours", "reference", "unit", "ratio", "target", "reference is")
    table = [header]
    for row in rows:
        mark = {None: "", True: "  kept", False: "  MISSED"}[keeps(row)]
        table.append((row["name"], text_of(row["ours"]), text_of(row["reference"]), row["unit"],
                      text_of(row["ratio"]), row["target"] + mark, row["referenceIs"]))
    widths = [max(len(line[i]) for line in table) for i in range(len(header))]
    for line in table:
        print("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())


# One panel of lines over the number of leaves, both axes logarithmic: a straight line that climbs one decade for each
# decade to the right is cost in proportion.
GNUPLOT = """
set terminal svg size 720,400 dynamic background rgb 'white' font 'sans-serif,13'
set output '{svg}'
set title 'Bidi engine: processor time by the size of the extension file'
set xlabel 'leaves'
set ylabel 'milliseconds'
set logscale xy
set key left top
set grid
plot {plots}
"""


def growth_of(rows):
    """The engine's curves: for each, its points (leaves, milliseconds)."""
    curves = {}
    for row in rows:
        found = re.fullmatch(r"Bidi: (.+) over ([\d,]+) leaves", row["name"])
        if not found or row["reference"] is None or row["referenceIs"].startswith("the same over"):
            continue
        what, leaves = found[1], int(found[2].replace(",", ""))
        curves.setdefault(what, {})[leaves] = row["ours"]
        if what.startswith("GetAll"):
            curves.setdefault("bare MSXML work of that GetAll", {})[leaves] = row["reference"]
    return curves


def draw(curves, svg):
    plots = ", ".join(f"'-' using 1:2 with linespoints linewidth 2 title '{what}'" for what in curves)
    data = "".join("".join(f"{x} {y}\n" for x, y in sorted(points.items())) + "e\n" for points in curves.values())
    subprocess.run(["gnuplot"], input=GNUPLOT.format(svg=svg, plots=plots) + data, text=True, check=True, timeout=60)


def main():
    rows = [row for command in programs() for row in rows_of(command)]
    setup = set_up()
    print_table(rows)
    print("\nset-up: " + setup)
    (ROOT / "build/bench.json").write_text(json.dumps(rows, indent=1) + "\n")
    draw(growth_of(rows), ROOT / "docs/growth.svg")
    missed = [row["name"] for row in rows if keeps(row) is False]
    if missed:
        sys.exit("missed: " + "; ".join(missed))


if __name__ == "__main__":
    main()
