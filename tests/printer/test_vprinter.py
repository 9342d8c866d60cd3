"""Drives the virtual printer as its users do: the program, a socket to its raw port, HTTP to its control port."""

import gzip
import hashlib
import json
import os
import pathlib
import random
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.parse

from vprinter import LIMIT, PROGRAM, ControlError, VirtualPrinter, receive, wait_until


def wait_until_open(printer, count):
    wait_until(lambda: printer.state()["openConnections"] == count, f"{count} open connections")


def wait_until_stored(printer, size):
    """Until the first document's file has that size."""
    file = printer.store / "document-0001.prn"
    wait_until(lambda: file.exists() and file.stat().st_size == size, f"{size} bytes in {file.name}")


def some_bytes(size):
    return random.Random(size).randbytes(size)


def stored(record):
    return pathlib.Path(record["file"]).read_bytes()


def ends(printer):
    return [(record["bytes"], record["end"]) for record in printer.documents()]


class Documents(unittest.TestCase):
    def test_ContentArrivesUnchangedWithItsSizeAndDigest(self):
        contents = [some_bytes(size) for size in (0, 1, 65536, 65537, 3_000_001)]
        with VirtualPrinter() as printer:
            for content in contents:
                self.assertEqual(printer.send(content), (b"", "end"))
            # No wait: the record is there before the host sees the end of its connection.
            for number, (content, record) in enumerate(zip(contents, printer.documents(), strict=True), 1):
                self.assertEqual(stored(record), content)
                expected = {"number": number, "bytes": len(content), "complete": True,
                            "sha256": hashlib.sha256(content).hexdigest()}
                self.assertEqual(record | expected, record)
        for content in contents:
            self.assertIn(f"{len(content)} bytes, sha256 {hashlib.sha256(content).hexdigest()}, complete",
                          printer.output)

    def test_DocumentsOfParallelConnectionsStayApartAndThoseOverTheBoundWait(self):
        contents = [some_bytes(30_000 + i) for i in range(65)]
        with VirtualPrinter() as printer:
            connections = [printer.connect() for _ in contents]
            for part in range(3):  # in turns, so that all documents are under way at once
                for connection, content in zip(connections, contents):
                    connection.sendall(content[part * 10_000:(part + 1) * 10_000 if part < 2 else None])
            wait_until_open(printer, 64)
            waiting = connections.pop()
            waiting.shutdown(socket.SHUT_WR)
            self.assertEqual(receive(waiting, 0.2), (b"", "silence"))
            for connection in connections:
                connection.shutdown(socket.SHUT_WR)
            for connection in (*connections, waiting):
                with connection:
                    self.assertEqual(receive(connection), (b"", "end"))
            self.assertEqual(sorted(map(stored, printer.documents())), sorted(contents))

    def test_BrokenConnectionIsRecordedAsIncompleteWithItsBytes(self):
        for arguments, size in (((), 100_000), (("--fault", "stall", "--fault-after", "10"), 10)):
            with self.subTest(arguments=arguments), VirtualPrinter(*arguments) as printer:
                connection = printer.connect()
                connection.sendall(some_bytes(100_000))
                wait_until_stored(printer, size)
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                connection.close()
                record, = printer.wait_for_documents(1)
                self.assertEqual((record["complete"], record["end"]), (False, "connection lost"))
                self.assertEqual(stored(record), some_bytes(100_000)[:size])
                self.assertEqual(record["sha256"], hashlib.sha256(stored(record)).hexdigest())

    def test_DocumentOverTheLimitIsCutAndItsConnectionReset(self):
        with VirtualPrinter("--max-document", "1000") as printer:
            self.assertEqual([printer.send(bytes(size))[1] for size in (1000, 1001)], ["end", "reset"])
            self.assertEqual(ends(printer), [(1000, "complete"), (1000, "over the size limit")])

    def test_EarlierDocumentsOfTheFolderAreNotOverwritten(self):
        with tempfile.TemporaryDirectory() as folder:
            for content in (b"first run", b"second run"):
                with VirtualPrinter(store=folder) as printer:
                    printer.send(content)
            self.assertEqual({p.name: p.read_bytes() for p in pathlib.Path(folder).iterdir()},
                             {"document-0001.prn": b"first run", "document-0002.prn": b"second run"})

    def test_AnswersComeWhenToldAndChangeAtRunTime(self):
        with VirtualPrinter("--answer", "hello", "--answer-when", "open") as printer:
            with printer.connect() as connection:
                self.assertEqual(connection.recv(100), b"hello")
            text = "\x1b%-12345X\u20ac"
            printer.set_answer(text, when="document")
            with printer.connect() as connection:
                connection.sendall(b"page")
                self.assertEqual(receive(connection, 0.2), (b"", "silence"))
                connection.shutdown(socket.SHUT_WR)
                self.assertEqual(receive(connection), (text.encode(), "end"))
            printer.clear_answer()
            self.assertEqual(printer.send(b"page"), (b"", "end"))


class Faults(unittest.TestCase):
    def test_RefusedUntilClearedThenTheSamePort(self):
        with VirtualPrinter("--fault", "refuse") as printer:
            for _ in range(2):
                with self.assertRaises(ConnectionRefusedError):
                    printer.connect()
                printer.clear_fault()
                with printer.connect() as connection:
                    connection.sendall(b"before, ")
                    wait_until_open(printer, 1)
                    printer.set_fault("refuse")  # not the connection that is under way
                    connection.sendall(b"after")
                    connection.shutdown(socket.SHUT_WR)
                    receive(connection)
            with self.assertRaises(ConnectionRefusedError):
                printer.connect()
            printer.set_fault("reset", after=100)  # another fault instead opens the port, too
            printer.send(b"short enough")
            self.assertEqual([*map(stored, printer.documents())], [b"before, after"] * 2 + [b"short enough"])

    def test_StalledSenderBlocksAndNothingIsLostOnceCleared(self):
        with VirtualPrinter() as printer:
            after = 8 << 20  # enough for the system to widen a buffer that is left to it
            printer.set_fault("stall", after=after)
            with printer.connect() as connection:
                # A fixed buffer on this side: what still goes is then what the printer's system takes in.
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 65536)
                connection.settimeout(0.4)
                sent = 0
                with self.assertRaises(TimeoutError):
                    while sent < 64 << 20:
                        sent += connection.send(bytes(65536))
                self.assertLess(sent - after, 256 << 10)
                wait_until_stored(printer, after)
                printer.clear_fault()
                connection.settimeout(LIMIT)
                connection.sendall(bytes(500_000))
                connection.shutdown(socket.SHUT_WR)
                receive(connection)
            self.assertEqual(ends(printer), [(sent + 500_000, "complete")])

    def test_SlowReadsAtItsRate(self):
        with VirtualPrinter() as printer:
            printer.set_fault("slow", after=100_000, rate=50_000, connections=1)
            started = time.monotonic()
            printer.send(bytes(130_000))
            self.assertTrue(0.5 < time.monotonic() - started < 3)  # 30,000 bytes at 50,000 per second
            printer.send(bytes(130_000))
            self.assertEqual(ends(printer), [(130_000, "complete")] * 2)
            slow, normal = (record["milliseconds"] for record in printer.documents())
            self.assertGreater(slow, 500)
            self.assertLess(normal, slow)

    def test_ResetComesAfterItsBytesForAsManyConnectionsAsAsked(self):
        with VirtualPrinter() as printer:
            for after in (0, 1, 4096, 200_000):
                with self.subTest(after=after):
                    printer.set_fault("reset", after=after, connections=2)
                    self.assertEqual([printer.send(bytes(after + 1))[1] for _ in range(3)], ["reset", "reset", "end"])
                    self.assertIsNone(printer.state()["fault"])
                    self.assertEqual(ends(printer)[-3:], [(after, "reset by fault")] * 2 + [(after + 1, "complete")])

    def test_UnsoundRequestsAreRefusedAndChangeNothing(self):
        with VirtualPrinter() as printer:
            printer.set_fault("reset", after=7, connections=3)
            printer.set_wsd_fault("mute", at="head")
            before = printer.state(), printer.call("GET", "/wsd"), printer.machine()
            for path, *bodies in (
                    ("/fault", {}, [], {"mode": "explode"}, {"mode": 1}, {"mode": "slow"}, {"mode": "reset", "rate": 5},
                     {"mode": "refuse", "connections": 1}, {"mode": "reset", "connections": 0},
                     {"mode": "reset", "after": -1}, {"mode": "reset", "after": "7"}, {"mode": "reset", "befor": 7}),
                    ("/answer", {"text": 5}),
                    ("/vpca/fault", {}, {"requests": 1}, {"status": 65536}, {"status": -1}, {"status": "1"},
                     {"reply": "C"}, {"reply": "C D"}, {"reply": "xy"}, {"delay": 600_001}, {"close": 1}, {"id": 2**32},
                     {"close": True, "requests": 0}, {"silence": True}),
                    ("/wsd/style", {"prefix": "1a"}, {"prefix": "vln"}, {"prefix": "xmlns"}, {"soapPrefix": ""},
                     {"soapPrefix": "wprt"}, {"nested": 1}, {"extra": {"wprt": "urn:x"}}, {"extra": {"a": ""}},
                     {"prefx": "a"}),
                    ("/wsd/fault", {}, {"mode": "explode"}, {"mode": "close", "at": "lunch"},
                     {"mode": "drip", "piece": 0}, {"mode": "gzip", "at": "body"}, {"mode": "mute", "pause": 1},
                     {"mode": "redirect", "status": 200}, {"mode": "close", "connections": 0},
                     {"mode": "huge", "bytes": -1}),
                    ("/machine", {"location": "x", "toner": {"Black": 101}}, {"location": "x", "toner": {"Green": 1}},
                     {"trays": {"Tray1": "1"}}, {"nam": "x"}, {"location": "x", "name": "control \x01"})):
                for body in bodies:
                    with self.subTest(path=path, body=body), self.assertRaisesRegex(ControlError, "^400: "):
                        printer.call("PUT", path, body)
            with self.assertRaisesRegex(ControlError, "^404: "):
                printer.call("GET", "/nothing")
            with self.assertRaisesRegex(ControlError, "^413: "):
                printer.set_answer("x" * 100_000)
            self.assertEqual((printer.state(), printer.call("GET", "/wsd"), printer.machine()), before)


class BrokenClients(unittest.TestCase):
    """Of the HTTP ports; none may hold up, fill or end the printer."""

    def setUp(self):
        self.printer = self.enterContext(VirtualPrinter())
        wsd, wsds = (urllib.parse.urlsplit(url).port for url in (self.printer.wsd_url, self.printer.wsds_url))
        self.plain = {self.printer.control_port: b"PUT /answer", wsd: b"POST /wsd/print/"}
        self.tls = wsds

    def connect(self, port, request=b""):
        connection = self.enterContext(socket.create_connection(("127.0.0.1", port), timeout=LIMIT))
        connection.sendall(request)
        return connection

    def test_EndlessRequestsAreCutOff(self):
        for port, start in self.plain.items():
            for head in (b"X-Long: ", b"\r\n", b"Content-Length: 99999999999\r\n\r\n",
                         b"Transfer-Encoding: chunked\r\n\r\nFFFFFFFF\r\n"):
                with self.subTest(start=start, head=head):
                    connection = self.connect(port, start + b" HTTP/1.1\r\n" + head)
                    try:
                        for _ in range(256):
                            connection.sendall(b"x" * 65536)
                    except ConnectionError:
                        continue
                    self.assertIn(receive(connection, 1)[1], ("end", "reset"))  # the printer does not wait for more

    def test_RequestsOfEverySoundShapeAreAnswered(self):
        body = b'{"text": "hello"}'
        length = b"Content-Length: %d\r\n\r\n" % len(body)
        chunks = b"Transfer-Encoding: chunked\r\n\r\n" + b"".join(b"1\r\n%c\r\n" % octet for octet in body) + b"0\r\n\r\n"
        for request in (b"PUT /answer HTTP/1.0\r\n" + length + body, b"PUT /answer?x=/y HTTP/1.1\r\n" + length + body,
                        b"PUT http://printer:80/answer HTTP/1.1\r\nHOST: printer\r\n" + length + body,
                        b"PUT /answer HTTP/1.1\r\n" + chunks):
            with self.subTest(request=request):
                self.printer.clear_answer()
                connection = self.connect(self.printer.control_port)
                connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                for octet in request:
                    connection.sendall(bytes([octet]))
                answer, ended = receive(connection)
                self.assertEqual((answer[:15], ended), (b"HTTP/1.1 200 OK", "end"))
                self.assertEqual(self.printer.state()["answer"]["text"], "hello")
        connection = self.connect(self.printer.control_port, b"PUT /answer HTTP/1.1\r\nExpect: 100-continue\r\n" + length)
        self.assertEqual(connection.recv(100), b"HTTP/1.1 100 Continue\r\n\r\n")
        connection.sendall(body)
        self.assertEqual(receive(connection)[0][:12], b"HTTP/1.1 200")

    def test_UnsoundRequestsAreRefusedByTheirStatus(self):
        bomb = gzip.compress(bytes(50_000_000))
        packed = b" HTTP/1.1\r\nContent-Encoding: gzip\r\nContent-Length: %d\r\n\r\n" % len(bomb) + bomb
        for port, start in self.plain.items():
            for rest, status in ((packed, b"415"),
                                 (b" HTTP/1.1\r\nX: " + b"x" * 70_000, b"431"), (b"\r\n\r\n", b"400"),
                                 (b" HTTP/1.1\r\nContent-Length: 300000\r\n\r\n", b"413"),
                                 (b"/else HTTP/1.1\r\n\r\n", b"404")):
                with self.subTest(start=start, rest=rest[:50]):
                    answer, ended = receive(self.connect(port, start + rest))
                    self.assertEqual((answer[9:12], ended), (status, "end"))

    def test_HalfRequestsEndWithTheirSender(self):
        for port, start in self.plain.items():
            head = start + b" HTTP/1.1\r\nContent-Length: 9\r\n"
            for sent in (b"", start, head, head + b"\r\nhalf"):
                with self.subTest(sent=sent):
                    connection = self.connect(port, sent)
                    connection.shutdown(socket.SHUT_WR)
                    started = time.monotonic()
                    self.assertEqual(receive(connection)[1], "end")
                    self.assertLess(time.monotonic() - started, 3)

    def test_TricklesAreCutOffInTimeAndDoNotHoldUpTheEnd(self):
        def trickle(connection):
            try:
                while True:
                    connection.sendall(b"x")
                    time.sleep(0.3)
            except OSError:
                pass

        def trickles():
            connections = [self.connect(self.tls, b"\x16\x03\x01\x10\x00\x01"),
                           *(self.connect(port, start) for port, start in self.plain.items())]
            threads = [threading.Thread(target=trickle, args=(each,), daemon=True) for each in connections]
            for thread in threads:
                thread.start()
            return threads

        for thread in trickles():
            thread.join(20)
            self.assertFalse(thread.is_alive())
        trickles()
        time.sleep(0.5)
        started = time.monotonic()
        self.assertEqual(self.printer.stop(), 0)
        self.assertLess(time.monotonic() - started, 3)


class StartAndStop(unittest.TestCase):
    def test_EveryWayToStopEndsConnectionsUnderWayAndTheProcess(self):
        def by_request_without_length(printer):  # as "curl -X POST" sends it
            with socket.create_connection(("127.0.0.1", printer.control_port), timeout=LIMIT) as connection:
                connection.sendall(b"POST /shutdown HTTP/1.1\r\nHost: printer\r\n\r\n")
                self.assertRegex(connection.recv(100), b"^HTTP/1.1 200 ")
            return printer.wait(LIMIT)

        for name, stop in (("control", VirtualPrinter.shutdown), ("curl", by_request_without_length),
                           ("SIGTERM", VirtualPrinter.stop),
                           ("SIGINT", lambda printer: os.kill(printer.pid, signal.SIGINT) or printer.wait())):
            with self.subTest(name), VirtualPrinter() as printer:
                idle = printer.connect()
                wait_until_open(printer, 1)
                printer.set_fault("stall", after=3)
                stalled = printer.connect()
                stalled.sendall(b"abcdef")
                wait_until_open(printer, 2)
                started = time.monotonic()
                self.assertEqual(stop(printer), 0)
                self.assertLess(time.monotonic() - started, 3)
                self.assertEqual(printer.output.count("printer stopped"), 2)
                for connection in (idle, stalled):
                    with connection:
                        self.assertEqual(receive(connection), (b"", "reset"))
                with self.assertRaises(ConnectionRefusedError):
                    printer.connect()
                with self.assertRaises(ProcessLookupError):
                    os.kill(printer.pid, 0)

    def test_EndsWithItsParentAndRemovesItsReadyFile(self):
        with tempfile.TemporaryDirectory() as folder:
            ready = pathlib.Path(folder) / "ready.json"
            parent = subprocess.Popen(
                [sys.executable, "-c",
                 "import subprocess, sys, time; subprocess.Popen(sys.argv[1:]); time.sleep(30)",
                 PROGRAM, "--store", folder, "--raw-port", "0", "--ready-file", str(ready), "--exit-with-parent"],
                stdout=subprocess.DEVNULL)
            wait_until(ready.exists, "ready file")
            printer = json.loads(ready.read_text())["pid"]
            parent.kill()
            parent.wait()
            try:
                wait_until(lambda: not ready.exists(), "ready file removed")
            except TimeoutError:
                os.kill(printer, signal.SIGKILL)
                raise

    def test_WhatCannotStartSaysWhyInOneLine(self):
        with VirtualPrinter() as running, tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder) / "file"
            file.touch()
            store = ["--store", folder, "--raw-port", "0"]
            for arguments, status, words in (
                    ([], 2, "--store"),
                    ([*store, "--bogus"], 2, "--bogus"),
                    (["--store", folder, "--raw-port", "70000"], 2, "--raw-port"),
                    ([*store, "--fault", "slow"], 2, "rate"),
                    (["--store", folder, "--raw-port", str(running.raw_port)], 1, "in use"),
                    ([*store, "--control-port", str(running.control_port)], 1, "in use"),
                    ([*store, "--address", "nowhere"], 1, "nowhere"),
                    ([*store, "--ready-file", str(file / "x")], 1, "Not a directory"),
                    (["--store", str(file), "--raw-port", "0"], 1, str(file))):
                with self.subTest(arguments=arguments):
                    ended = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=LIMIT)
                    self.assertEqual(ended.returncode, status)
                    self.assertRegex(ended.stderr, r"\Avprinter: [^\n]+\n\Z")
                    self.assertIn(words, ended.stderr)
