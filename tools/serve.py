"""./dev serve: the remote procedures on this machine, for whoever wants to call them without Windows or a printer.

The host loads the monitor over the stand-in spooler, with one printer on the port USB001 whose lower monitor leads to
the virtual printer. Serves until Ctrl+C, and ends what it started.
"""

import argparse
import os
import pathlib
import shlex
import signal
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/support"))
import windows  # noqa: E402
from vprinter import VirtualPrinter  # noqa: E402

CALLS = (("rpc", "query", "USB001", "0x11223344"),
         ("rpc", "query", r"\\server\Office", "0x11223344", "--endpoint", "pipe", "--raw"),
         ("rpc", "command", "USB001", "--short", "180", "--endpoint", "tcp", "--host", "127.0.0.1"),
         ("rpc", "query", "USB001", "29"))


def options():
    parser = argparse.ArgumentParser(prog="./dev serve", description=__doc__.split("\n")[0].split(": ", 1)[1])
    parser.add_argument("--delay", type=int, metavar="MS", help="the device answers each request so much later")
    parser.add_argument("--stall", type=int, metavar="N", help="the device does not answer the first N requests at all")
    parser.add_argument("--timeout", type=float, default=10, metavar="S",
                        help="seconds after which the port gives up a step (%(default)s)")
    chosen = parser.parse_args()
    if chosen.delay is not None and chosen.stall is not None:
        parser.error("--delay and --stall exclude each other")
    if not (chosen.delay or 0) >= 0 or not (chosen.stall or 0) >= 0 or not 0.1 <= chosen.timeout <= 600:
        parser.error("a number is out of range")
    return chosen


def interrupt(*_):
    raise KeyboardInterrupt


def serve(chosen):
    with VirtualPrinter() as printer:
        if chosen.delay:
            printer.set_vpca_fault(delay=chosen.delay)
        if chosen.stall:
            printer.set_vpca_fault(truncate=0, requests=chosen.stall)
        # In a session of its own, where the terminal's Ctrl+C does not reach it: it ends with its input, in order.
        host = subprocess.Popen([windows.RUNNER, windows.BIN / "spoolhost.exe"], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, start_new_session=True)
        try:
            host.stdin.write("usb USB001 Office\n"
                             f"open USB001 127.0.0.1 {printer.raw_port} {round(chosen.timeout * 1000)}\n")
            host.stdin.flush()
            opened = host.stdout.readline().strip()
            if opened != "open USB001: ok":
                sys.exit(f"serve: the host does not serve: {opened or 'it ended'}")
            invitation(printer)
            sys.stdout.flush()
            host.wait()
            sys.exit("serve: the host has ended")
        except KeyboardInterrupt:
            print("\nended", flush=True)
        finally:
            host.stdin.close()
            try:
                host.wait(10)
            except subprocess.TimeoutExpired:
                host.kill()
                host.wait()
            host.stdout.close()


def invitation(printer):
    dev = "./dev" if pathlib.Path(os.environ.get("VLM_CALLER", ROOT)).samefile(ROOT) else str(ROOT / "dev")
    print("The remote procedures are served for the printer Office on USB001. Try, in another terminal:\n")
    for call in CALLS:
        print(f"    {shlex.join((dev, 'vlmctl', *call))}")
    fault = f"http://127.0.0.1:{printer.control_port}/vpca/fault"
    print("\nWhat the device does wrong can be changed meanwhile:\n\n"
          f"    curl -X PUT -d '{{\"delay\": 3000}}' {fault}\n"
          f"    curl -X PUT -d '{{\"truncate\": 0, \"requests\": 1}}' {fault}\n"
          f"    curl -X DELETE {fault}\n\nCtrl+C ends.")


if __name__ == "__main__":
    for ending in (signal.SIGINT, signal.SIGTERM):
        signal.signal(ending, interrupt)  # the first is ignored where a shell has started this in the background
    try:
        serve(options())
    except KeyboardInterrupt:
        pass
