"""./dev soak [MINUTES] [--seed N]: all that the monitor does, at once, with every outcome checked.

Runs soak.exe, shows its report, and ends it when it hangs: after one and a half times the time, and what a start
takes. The last lines of its progress then say what each worker was at. Exit status 0 when nothing was wrong.
"""

import argparse
import collections
import os
import pathlib
import random
import subprocess
import sys
import threading

ROOT = pathlib.Path(__file__).resolve().parents[1]
BIN = pathlib.Path(os.environ.get("VLM_BIN", ROOT / "build/mingw/bin"))
START_LIMIT = 15  # seconds, for a slow machine


def arguments():
    parser = argparse.ArgumentParser(prog="./dev soak", description=__doc__.split("\n\n")[1])
    parser.add_argument("minutes", nargs="?", type=float, default=2)
    parser.add_argument("--seed", type=int, help="of a run to be repeated; any one unless given")
    parser.add_argument("--only", action="append", default=[], metavar="WORKER", help="run this worker; may be repeated")
    parser.add_argument("--plant", action="append", default=[], metavar="FAULT",
                        help="see to it that there is something to find; may be repeated")
    return parser.parse_args()


def main():
    options = arguments()
    seconds = max(1, round(options.minutes * 60))
    seed = options.seed if options.seed is not None else random.randrange(1_000_000)
    choice = ["--seed", str(seed)]
    choice += [word for name in options.only for word in ("--only", name)]
    choice += [word for fault in options.plant for word in ("--plant", fault)]
    command = [ROOT / "cmake/run-under-wine", BIN / "soak.exe", "--seconds", str(seconds), *choice]
    limit = seconds * 1.5 + START_LIMIT
    progress = collections.deque(maxlen=2)
    hung = threading.Event()
    judged = False

    process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)

    def end():
        hung.set()
        process.kill()

    watchdog = threading.Timer(limit, end)
    watchdog.start()
    for line in process.stdout:
        if line.startswith("~"):
            progress.append(line)
        else:
            judged = judged or "violation" in line
            print(line, end="", flush=True)
    status = process.wait()
    watchdog.cancel()
    if hung.is_set() or (not judged and status != 2):
        fate = f"hangs after {limit:.0f} s" if hung.is_set() else f"ended with {status}"
        print(f"soak: seed {seed} {fate}; the workers' last steps:\n" + "".join(progress))
    if status != 0:
        print(f"again: ./dev soak {options.minutes:g} {' '.join(choice)}")
    return 1 if status != 0 else 0


if __name__ == "__main__":
    sys.exit(main())
