"""Runs a virtual printer for a test or a demo.

    with VirtualPrinter() as printer:
        printer.send(b"a document")
        record = printer.documents()[0]

The program is the one that the environment variable VPRINTER names, else the native build's. It listens on free
ports of the loopback, stores into a folder of its own that goes away with it (or the one that is given), and ends
with this process even when this process is killed. Start it from the main thread: the system takes the end of the
starting thread for the end of its parent.
"""

import json
import os
import pathlib
import shutil
import socket
import ssl
import subprocess
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

_ROOT = pathlib.Path(__file__).resolve().parents[2]
_OPENER = urllib.request.build_opener(urllib.request.ProxyHandler({}))  # never through a proxy of the environment
PROGRAM = os.environ.get("VPRINTER", str(_ROOT / "build/native/bin/vprinter"))


LIMIT = 5  # seconds that any single wait on a socket may take


def wait_until(condition, what, patience=10):
    give_up = time.monotonic() + patience
    while not condition():
        if time.monotonic() > give_up:
            raise TimeoutError(f"not within {patience} s: {what}")
        time.sleep(0.01)


def receive(connection, patience=LIMIT):
    """All that comes, and how it ends: "end", "cut" (TLS without a goodbye), "reset" or "silence"."""
    connection.settimeout(patience)
    received = bytearray()
    try:
        while piece := connection.recv(1 << 20):
            received += piece
        return bytes(received), "end"
    except ssl.SSLError as error:
        if "EOF" not in str(error):
            raise
        return bytes(received), "cut"
    except ConnectionError:
        return bytes(received), "reset"
    except TimeoutError:
        return bytes(received), "silence"


def connect(url):
    """A connection to the port of a URL; one of https takes any certificate."""
    parts = urllib.parse.urlsplit(url)
    connection = socket.create_connection((parts.hostname, parts.port), timeout=LIMIT)
    if parts.scheme == "https":
        context = ssl.create_default_context()
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        context.options &= ~ssl.OP_IGNORE_UNEXPECTED_EOF  # an end without TLS's goodbye is to be seen
        connection = context.wrap_socket(connection, suppress_ragged_eofs=False)
    return connection


def post(connection, body, url, version="1.0", content_type="application/soap+xml"):
    path = urllib.parse.urlsplit(url).path
    connection.sendall(f"POST {path} HTTP/{version}\r\nAccept: text/*\r\nSOAPAction: \"\"\r\n"
                       f"Content-Type: {content_type}\r\nUser-Agent: VCSoapClient\r\nHost: printer\r\n"
                       f"Content-Length: {len(body.encode())}\r\n\r\n{body}".encode())


def exchange(url, body, patience=LIMIT, **details):
    """One request to a SOAP service; the whole answer, and how it ends."""
    try:
        with connect(url) as connection:
            post(connection, body, url, **details)
            return receive(connection, patience)
    except ConnectionResetError:  # before there was anything to receive
        return b"", "reset"


def split(answer):
    """Status, headers by lower-case name, body."""
    head, _, body = answer.partition(b"\r\n\r\n")
    status, *lines = head.decode().split("\r\n")
    return int(status.split()[1]), {k.lower(): v for k, v in (line.split(": ", 1) for line in lines)}, body


class ControlError(Exception):
    """The control API refused a request; `status` is the HTTP status."""

    def __init__(self, status, message):
        super().__init__(f"{status}: {message}")
        self.status = status


class VirtualPrinter:
    """Started when the constructor returns. `arguments` are further command-line options."""

    def __init__(self, *arguments, store=None):
        self._scratch = pathlib.Path(tempfile.mkdtemp(prefix="vprinter-"))
        self.store = pathlib.Path(store) if store else self._scratch / "documents"
        self.output = self.errors = ""  # stdout and stderr, once it has ended
        ready_file = self._scratch / "ready.json"
        try:
            with open(self._scratch / "stdout", "w") as stdout, open(self._scratch / "stderr", "w") as stderr:
                self.process = subprocess.Popen(
                    [PROGRAM, "--store", str(self.store), "--raw-port", "0",
                     "--ready-file", str(ready_file), "--exit-with-parent", *arguments],
                    stdout=stdout, stderr=stderr)
            ready = self._wait_until_ready(ready_file)
        except BaseException:
            self._clean_up()
            raise
        self.raw_port = ready["rawPort"]
        self.control_port = ready["controlPort"]
        self.wsd_url = f"http://127.0.0.1:{ready['wsdPort']}/wsd/print/"
        self.wsds_url = f"https://127.0.0.1:{ready['wsdsPort']}/wsd/print/"
        self.deptid_url = f"http://127.0.0.1:{ready['wsdPort']}/active/deptid"
        self.pid = ready["pid"]

    def __enter__(self):
        return self

    def __exit__(self, failure, *_):
        status = self.stop()
        if status != 0 and failure is None:
            raise RuntimeError(f"the virtual printer ended with {status}: {self.errors}")

    def connect(self):
        """A connection to the raw port."""
        return socket.create_connection(("127.0.0.1", self.raw_port), timeout=LIMIT)

    def send(self, *pieces):
        """Over one connection to the raw port, then the end of the sending side; what came back, and how it ended."""
        try:
            with self.connect() as connection:
                connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                for piece in pieces:
                    connection.sendall(piece)
                connection.shutdown(socket.SHUT_WR)
                return receive(connection)
        except (ConnectionRefusedError, TimeoutError):
            raise
        except OSError:  # which one, and of which call, depends on how far the reset has come
            return b"", "reset"

    def call(self, method, path, body=None):
        """One request; the answer's JSON. Raises ControlError."""
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(f"http://127.0.0.1:{self.control_port}{path}", data=data, method=method)
        request.add_header("Content-Type", "application/json")
        try:
            with _OPENER.open(request, timeout=10) as response:
                return json.load(response)
        except urllib.error.HTTPError as error:
            with error:
                raise ControlError(error.code, error.read().decode().strip()) from None

    def state(self):
        return self.call("GET", "/state")

    def documents(self):
        return self.call("GET", "/documents")

    def wait_for_documents(self, count):
        """The records, as soon as there are `count` of them."""
        wait_until(lambda: len(self.documents()) >= count, f"{count} documents")
        return self.documents()

    def set_fault(self, mode, **details):
        """mode: refuse, stall, slow, reset; details: after, rate, connections."""
        return self.call("PUT", "/fault", {"mode": mode, **details})

    def clear_fault(self):
        return self.call("DELETE", "/fault")

    def set_answer(self, text, when="document"):
        return self.call("PUT", "/answer", {"text": text, "when": when})

    def clear_answer(self):
        return self.call("DELETE", "/answer")

    def set_wsd_fault(self, mode, **details):
        """What the ports of the SOAP services do wrong; docs/virtual-printer.md lists modes and details."""
        return self.call("PUT", "/wsd/fault", {"mode": mode, **details})

    def clear_wsd_fault(self):
        return self.call("DELETE", "/wsd/fault")

    def set_wsd_style(self, **style):
        """prefix ("" for a default namespace), soapPrefix, nested, extra."""
        return self.call("PUT", "/wsd/style", style)

    def clear_wsd_style(self):
        return self.call("DELETE", "/wsd/style")

    def wsd_requests(self):
        """The last requests to the WSD print service, oldest first, each with its findings."""
        return self.call("GET", "/wsd/requests")

    def clear_wsd_requests(self):
        return self.call("DELETE", "/wsd/requests")

    def deptid_requests(self):
        """The last requests to the department-ID service, oldest first, each with its findings."""
        return self.call("GET", "/deptid/requests")

    def machine(self):
        """Pages, levels and conditions."""
        return self.call("GET", "/machine")

    def set_machine(self, **values):
        """name, info, location; toner={"Black": 85}, trays={"Tray1": 75} in percent."""
        return self.call("PUT", "/machine", values)

    def set_vpca_fault(self, **details):
        """What is wrong with the device's next replies; docs/virtual-printer.md lists the details."""
        if isinstance(details.get("reply"), bytes):
            details["reply"] = details["reply"].hex()
        return self.call("PUT", "/vpca/fault", details)

    def clear_vpca_fault(self):
        return self.call("DELETE", "/vpca/fault")

    def vpca_requests(self):
        """The last frames that the device understood as requests, oldest first."""
        return [bytes.fromhex(frame) for frame in self.call("GET", "/vpca/requests")]

    def shutdown(self):
        """Asks over the control API, waits for the end; the exit status."""
        self.call("POST", "/shutdown")
        return self.wait()

    def wait(self, limit=10):
        """Waits for the program's own end; the exit status."""
        status = self.process.wait(limit)
        self._clean_up()
        return status

    def stop(self):
        """Ends the program if it still runs; the exit status."""
        if self.process.poll() is None:
            self.process.terminate()
        try:
            return self.wait()
        finally:
            self._clean_up()

    def _wait_until_ready(self, ready_file, limit=10):
        give_up = time.monotonic() + limit
        while not ready_file.exists():
            if self.process.poll() is not None:
                raise RuntimeError((self._scratch / "stderr").read_text().strip())
            if time.monotonic() > give_up:
                raise TimeoutError(f"not ready after {limit} s")
            time.sleep(0.01)
        return json.loads(ready_file.read_text())

    def _clean_up(self):
        process = getattr(self, "process", None)
        if process and process.poll() is None:
            process.kill()
            process.wait()
        if self._scratch.exists():
            self.output, self.errors = ((self._scratch / name).read_text() for name in ("stdout", "stderr"))
            shutil.rmtree(self._scratch, ignore_errors=True)
