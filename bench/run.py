"""./dev bench: runs every bench program, prints one table, writes build/bench.json and draws docs/growth.svg."""

import datetime
import json
import os
import pathlib
import platform
import re
import signal
import socket
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
LIMIT = 600  # seconds that a program has
RPC_PORT = 51656  # of the remote procedures; it cannot be another one
RUNNER = ROOT / "cmake/run-under-wine"


def programs():
    """Each bench program as a command line, without the file for its rows."""
    for path in sorted((ROOT / "build/mingw/bin").glob("*_bench.exe")):
        yield [RUNNER, path]
    for path in sorted((ROOT / "build/native/bin").glob("*_bench")):
        yield [path]


class NotMeasured(Exception):
    """Why a program's rows are missing, in one line."""


def demand_rpc_port():
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)  # connections that have ended do not matter
        try:
            probe.bind(("0.0.0.0", RPC_PORT))
        except OSError as error:
            raise NotMeasured(f"another program has TCP port {RPC_PORT}, which it needs ({error.strerror})") from None


def rows_of(command):
    """What the program measured. It says on the error stream what it is at."""
    if command[-1].name == "rpc_bench.exe":
        demand_rpc_port()
    with tempfile.TemporaryDirectory() as folder:
        output = pathlib.Path(folder) / "rows.json"
        # In a session of its own: a program that is given up goes with its runner.
        process = subprocess.Popen([*command, output], start_new_session=True)
        try:
            status = process.wait(LIMIT)
        except subprocess.TimeoutExpired:
            raise NotMeasured(f"not done after {LIMIT} s, ended") from None
        finally:
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
        if status != 0:
            raise NotMeasured(f"ended with status {status}")
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
    rows, not_measured = [], []
    for command in programs():
        print(f"measuring: {command[-1].name}", file=sys.stderr, flush=True)
        try:
            rows += rows_of(command)
        except NotMeasured as reason:
            not_measured.append(f"{command[-1].name}: {reason}")
            print(f"not measured: {not_measured[-1]}", file=sys.stderr, flush=True)
    setup = set_up()
    print_table(rows)
    print("\nset-up: " + setup)
    (ROOT / "build/bench.json").write_text(json.dumps(rows, indent=1) + "\n")
    if curves := growth_of(rows):
        draw(curves, ROOT / "docs/growth.svg")
    missed = [row["name"] for row in rows if keeps(row) is False]
    problems = [f"{what}: {'; '.join(names)}"
                for what, names in (("missed", missed), ("not measured", not_measured)) if names]
    if problems:
        sys.exit("\n".join(problems))


if __name__ == "__main__":
    main()
