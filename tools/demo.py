"""./dev demo: a real document through the monitor to a printer on the network, and what the monitor guards against.

Starts the virtual printer on free ports, acts out the spooler, ends everything it started.
"""

import hashlib
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/support"))
import windows  # noqa: E402
from vprinter import VirtualPrinter  # noqa: E402

# What the last lines say was shown.
SHOWN = []


def title(text):
    print(f"\n--- {text}", flush=True)


def show(text):
    for line in text.strip().splitlines():
        print("    " + line, flush=True)


def check(fact, condition):
    """Checks each claim of the demo; a false one ends it."""
    if not condition:
        sys.exit(f"demo: NOT SO: {fact}")
    if fact not in SHOWN:
        SHOWN.append(fact)


def make_document(folder):
    """A report of five pages as PCL for a 300 dpi laser printer."""
    document = folder / "report.pcl"
    subprocess.run(
        ["gs", "-q", "-dNOPAUSE", "-dBATCH", "-dSAFER", "-sDEVICE=ljet4", "-r300", "-sPAPERSIZE=a4",
         f"-sOutputFile={document}", ROOT / "examples/report.ps"],
        check=True)
    return document


def print_document(printer, document):
    content = document.read_bytes()
    digest = hashlib.sha256(content).hexdigest()
    title(f"printing {document.name}, {len(content)} bytes, through vllm3mon.dll")
    result = windows.vlmctl("print", document, "--to", f"127.0.0.1:{printer.raw_port}")
    show(result.stdout + result.stderr)
    arrived = printer.wait_for_documents(1)[0]
    show(f"sent     sha256 {digest}\narrived  sha256 {arrived['sha256']}, {arrived['bytes']} bytes")
    check(f"{len(content)} bytes of a five-page document arrived byte for byte as they were sent",
          result.returncode == 0 and len(content) > 1_000_000 and
          (arrived["sha256"], arrived["bytes"], arrived["complete"]) == (digest, len(content), True))
    check("the job was tracked: sent to printer, last page ejected",
          "sent to printer, last page ejected" in result.stdout)


def guard_the_port(printer):
    title("two jobs on one port, and a suspend notice from another process")
    scene = f"""
        printer Office
        job 1 first
        job 2 second
        open IP_office 127.0.0.1 {printer.raw_port}
        start 1
        text first
        start 2
        run spoolhost.exe suspend
        text lost in sleep
        end
        start 2
        text second
        end
        log
        close
    """
    result = windows.run("spoolhost.exe", stdin=scene)
    show(result.stdout + result.stderr)
    said = [line for line in result.stdout.splitlines() if not line.startswith(" ")]

    def answer(beginning, nth=0):
        return [line for line in said if line.startswith(beginning)][nth]

    check("a second job was refused while the first held the port", "busy (170)" in answer("start 2"))
    check("a write was refused after another process announced a suspend",
          "told the monitor" in answer("suspend") and "has suspended" in answer("write text, 0"))
    check("the next job printed again", answer("start 2", 1).endswith("ok") and answer("end", 1).endswith("ok"))
    check("the printer got of the two jobs what was written and nothing else",
          [pathlib.Path(printer.store / record["file"]).read_bytes()
           for record in printer.wait_for_documents(3)[1:]] == [b"first", b"second"])


def call_remote_procedures(port):
    """Both procedures, called by another process, over a USB port whose lower monitor leads to TCP port `port`."""
    title("the remote procedures, over a USB port to the printer's device")
    result = windows.run("spoolhost.exe", stdin=rf"""
        usb USB001 Office
        job 1 report
        open USB001 127.0.0.1 {port}
        run vlmctl.exe rpc query USB001 0x11223344
        run vlmctl.exe rpc query \\server\Office 2 --raw --endpoint pipe
        run vlmctl.exe rpc command USB001 --short 180 --values 0x51525354 0x61626364
        run vlmctl.exe rpc command USB001 --short 2405
        run vlmctl.exe rpc query USB001 29
        start 1
        run vlmctl.exe rpc query USB001 0x11223344
        text report
        end
        close
    """)
    block = bytes(i % 251 for i in range(8192)).hex(" ").upper()
    show((result.stdout + result.stderr).replace(block, f"{block[:32]}... (8192 bytes)"))
    check("LmRpcQuery brought data blocks of the printer, one as long as a packet can be",
          "AA BB CC DD" in result.stdout and block in result.stdout)
    check("LmRpcCommand brought attributes of the printer",
          all(value in result.stdout for value in ("01 02 03 04 05 06 07 08", "24 05 02 03")))
    check("a refusal of the printer (31) and a port that a job holds (5) reached the caller",
          "returned 31" in result.stdout and "returned 5" in result.stdout)


def ask_for_values(printer):
    """A few Bidi values, asked of the printer itself over its WSD print service; the toner levels in percent."""
    examples = ROOT / "examples/bidi"
    colours = ("Black", "Cyan", "Magenta", "Yellow")
    paths = [r"\Printer.DeviceInfo:ModelName", r"\Printer.Status:State",
             *(rf"\Printer.Consumables.{colour}:Level" for colour in colours)]
    result = windows.vlmctl("bidi", "get", "--ext", examples / "velun-base.xml", "--ext",
                            examples / "velun-finisher.xml", "--printer", printer.wsd_url, *paths)
    show(result.stdout + result.stderr)
    check("Bidi paths are answered live from the extension files and the printer's WSD data",
          result.returncode == 0 and result.stdout.count("0 found") == len(paths))
    return [int(line.split()[2]) for line in result.stdout.splitlines() if ":Level" in line]


def main():
    with tempfile.TemporaryDirectory(prefix="vlm-demo-") as folder:
        document = make_document(pathlib.Path(folder))
        with VirtualPrinter() as printer:
            print(f"virtual printer: process {printer.pid}, raw port {printer.raw_port}", flush=True)
            title("what the printer says before it prints")
            before = ask_for_values(printer)
            print_document(printer, document)
            title("what it says afterwards")
            after = ask_for_values(printer)
            check(f"printing took toner: {before} percent before, {after} after",
                  all(now < then for now, then in zip(after, before)))
            guard_the_port(printer)
            call_remote_procedures(printer.raw_port)
        check("the virtual printer has ended", printer.process.poll() is not None)
    title("shown")
    show("\n".join("* " + fact for fact in SHOWN))


if __name__ == "__main__":
    main()
