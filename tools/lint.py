"""./dev lint, second half: clang-tidy over what we ship or stand on, with the build's own compiler options.

The Windows files are built by mingw's g++; clang-tidy gets the same options plus the target and the folders of that
compiler's headers, which it cannot find by itself.
"""

import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
CROSS_COMPILER = "x86_64-w64-mingw32-g++-posix"


def header_folders(compiler):
    """Where the compiler looks for headers, in its order."""
    output = subprocess.run([compiler, "-xc++", "-E", "-v", "/dev/null"], capture_output=True, text=True,
                            check=True).stderr
    lines = output.splitlines()
    begin = lines.index("#include <...> search starts here:")
    return [line.strip() for line in lines[begin + 1:lines.index("End of search list.")]]


def sources(preset):
    """Our own source files of one build; what the build generates or takes from packages is not ours to mend."""
    for entry in json.loads((ROOT / f"build/lint-{preset}/compile_commands.json").read_text()):
        path = pathlib.Path(entry["file"])
        if ROOT in path.parents and path.suffix == ".cpp" and ROOT / "build" not in path.parents:
            yield path


def commands(everything):
    cross = ["--extra-arg-before=--target=x86_64-w64-mingw32"]
    # clang's own headers first: the compiler's intrinsics are not for another one.
    cross += [f"--extra-arg=-isystem{folder}" for folder in header_folders(CROSS_COMPILER)
              if not folder.endswith(("/include-fixed", "-posix/include"))]
    done = set()
    for preset, arguments in (("native", []), ("mingw", cross)):
        for path in sources(preset):
            if path in done:  # a portable file is looked at once
                continue
            done.add(path)
            part = path.relative_to(ROOT).parts[0]
            # Tests, benches and the soak are held to the compilers' warnings: GoogleTest's macros cost the analysis half
            # an hour of a small machine. The companion and the virtual printer cost six minutes of it in the templates
            # of their libraries, and no part of them runs in the spooler: --all looks at them, too, without the dear
            # checks.
            if part in ("tests", "bench", "soak") or (part in ("tools", "printer") and not everything):
                continue
            light = ["--checks=-clang-analyzer-*,-performance-*,-modernize-*"] if part in ("tools", "printer") else []
            yield path, ["clang-tidy", "--quiet", *light, "-p", str(ROOT / f"build/lint-{preset}"), *arguments, str(path)]


def check(job):
    path, command = job
    result = subprocess.run(command, capture_output=True, text=True)
    return path, result.returncode, result.stdout + ("" if result.stdout else result.stderr)


def main():
    jobs = sorted(commands("--all" in sys.argv[1:]))
    bad = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for path, status, text in pool.map(check, jobs):
            if status != 0:
                bad += 1
                print(f"{path.relative_to(ROOT)}:\n{text}", flush=True)
    print(f"{len(jobs)} files, {bad} with findings")
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    main()
