"""./dev coverage, second half: what the tests ran of src/, from the counters of both builds, one row for each folder.

A line that was reached in either build counts as run: most of the portable parts are tested in the native one.
"""

import collections
import json
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[1]
GCOV = {"coverage-native": "gcov", "coverage-mingw": "x86_64-w64-mingw32-gcov-posix"}


def gcovr(*arguments):
    return subprocess.run(["gcovr", "--root", ROOT, *arguments], check=True, capture_output=True, text=True).stdout


def main():
    traces = []
    for preset, tool in GCOV.items():
        trace = ROOT / "build" / f"{preset}.json"
        # The branches that every call has for an exception are not decisions of the code.
        gcovr("--filter", f"{ROOT}/src/", "--gcov-executable", tool, "--exclude-throw-branches",
              "--json", trace, ROOT / "build" / preset)
        # gcovr 5.2 does not add up functions of one name on different lines, such as templates of two builds. Lines do.
        counted = json.loads(trace.read_text())
        for file in counted["files"]:
            file["functions"] = []
        trace.write_text(json.dumps(counted))
        traces += ["--add-tracefile", trace]
    rows = collections.defaultdict(collections.Counter)
    for file in json.loads(gcovr(*traces, "--json-summary"))["files"]:
        counts = {key: file[key] for key in ("line_total", "line_covered", "branch_total", "branch_covered")}
        for folder in (str(pathlib.PurePath(file["filename"]).parent), "together"):
            rows[folder].update(counts)
    print(f"{'folder':<14}{'lines':>8}{'run':>8}{'branches':>12}{'taken':>8}")
    for folder, counts in sorted(rows.items(), key=lambda row: (row[0] == "together", row[0])):
        shares = [f"{counts[f'{kind}_covered'] / max(counts[f'{kind}_total'], 1):.1%}" for kind in ("line", "branch")]
        print(f"{folder:<14}{counts['line_total']:>8}{shares[0]:>8}{counts['branch_total']:>12}{shares[1]:>8}")


if __name__ == "__main__":
    main()
