"""./dev package: all that is shipped in one archive, dist/vllm3mon-VERSION.zip, and its symbols in another one.

    package.py --bin build/mingw/bin --out dist

The programs go in stripped, each with a link to its debug file. The rest lies as it does in the tree, so that the
documents' links hold. The same programs and tree give the same bytes.
"""

import argparse
import hashlib
import pathlib
import re
import subprocess
import tempfile
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
TOOLS = "x86_64-w64-mingw32-"
PROGRAMS = ("vllm3mon.dll", "vlmctl.exe")
# As in the tree, without templates (".in").
FILES = ("*.md", "LICENSE", "docs/*.md", "docs/*.svg", "examples/bidi/*", "packaging/**/*")
LONG_AGO = (1980, 1, 1, 0, 0, 0)  # the format's first day


def version():
    return re.search(r"project\(vllm3mon VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]


def split_symbols(program, folder):
    """The program without its debug information, and the file that has it."""
    stripped, debug = folder / program.name, folder / (program.name + ".debug")
    for tool, *arguments in (("objcopy", "--only-keep-debug", program, debug), ("strip", "-o", stripped, program),
                             ("objcopy", f"--add-gnu-debuglink={debug}", stripped)):
        # Without the option each writes the time into the image's header.
        subprocess.run([TOOLS + tool, "--preserve-dates", *arguments], check=True)
    return stripped.read_bytes(), debug.read_bytes()


def contents(programs):
    """What the two archives hold, each as path to bytes."""
    shipped, symbols = {}, {}
    with tempfile.TemporaryDirectory() as folder:
        for name in PROGRAMS:
            shipped[name], symbols[name + ".debug"] = split_symbols(programs / name, pathlib.Path(folder))
    for pattern in FILES:
        for path in ROOT.glob(pattern):
            if path.is_file() and path.suffix != ".in":
                shipped[path.relative_to(ROOT).as_posix()] = path.read_bytes()
    inf = (ROOT / "packaging/vllm3mon.inf.in").read_text().replace("@PROJECT_VERSION@", version())
    shipped["vllm3mon.inf"] = inf.replace("\n", "\r\n").encode("ascii")
    return shipped, symbols


def write_archive(path, files):
    sums = "".join(f"{hashlib.sha256(files[name]).hexdigest()}  {name}\n" for name in sorted(files))
    files["SHA256SUMS"] = sums.encode()
    with zipfile.ZipFile(path, "w") as archive:
        for name in sorted(files):
            entry = zipfile.ZipInfo(f"{path.stem}/{name}", LONG_AGO)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o755 if name in PROGRAMS else 0o644) << 16
            archive.writestr(entry, files[name])
    print(f"{path}  {path.stat().st_size} bytes, sha256 {hashlib.sha256(path.read_bytes()).hexdigest()}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--bin", type=pathlib.Path, required=True, help="where the build left the programs")
    parser.add_argument("--out", type=pathlib.Path, required=True)
    options = parser.parse_args()
    options.out.mkdir(parents=True, exist_ok=True)
    shipped, symbols = contents(options.bin)
    write_archive(options.out / f"vllm3mon-{version()}.zip", shipped)
    write_archive(options.out / f"vllm3mon-{version()}-symbols.zip", symbols)


if __name__ == "__main__":
    main()
