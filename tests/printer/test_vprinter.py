"""Drives the virtual printer as its users do: the program, a socket to its raw port, HTTP to its control port."""

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
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from vprinter import PROGRAM, ControlError, VirtualPrinter  # noqa: E402

LIMIT = 5  # seconds that any single wait on a socket may take


def wait_until(condition, what):
    give_up = time.monotonic() + LIMIT
    while not condition():
        if time.monotonic() > give_up:
            raise TimeoutError(f"not within {LIMIT} s: {what}")
        time.sleep(0.01)


def wait_until_open(printer, count):
    wait_until(lambda: printer.state()["openConnections"] == count, f"{count} open connections")


def wait_until_stored(printer, size):
    """Until the first document's file has that size."""
    file = printer.store / "document-0001.prn"
    wait_until(lambda: file.exists() and file.stat().st_size == size, f"{size} bytes in {file.name}")


def break_connection(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def some_bytes(size, seed=1):
    return random.Random(seed).randbytes(size)


def connect(printer):
    return socket.create_connection(("127.0.0.1", printer.raw_port), timeout=LIMIT)


def read_to_end(connection):
    received = b""
    while piece := connection.recv(65536):
        received += piece
    return received


def print_document(printer, content):
    """Sends a whole document; what came back on the back-channel until the printer closed."""
    with connect(printer) as connection:
        connection.sendall(content)
        connection.shutdown(socket.SHUT_WR)
        return read_to_end(connection)


def send_until_blocked(connection, most, patience=0.4):
    """Bytes that went before the connection took no more for `patience` seconds."""
    connection.settimeout(patience)
    sent = 0
    try:
        while sent < most:
            sent += connection.send(bytes(65536))
    except TimeoutError:
        pass
    connection.settimeout(LIMIT)
    return sent


class Documents(unittest.TestCase):
    def test_ContentArrivesUnchangedWithItsSizeAndDigest(self):
        contents = [some_bytes(size, seed=size) for size in (0, 1, 4096, 65536, 65537, 3_000_001)]
        with VirtualPrinter() as printer:
            for content in contents:
                self.assertEqual(print_document(printer, content), b"")
            # No wait: the record is there before the host sees the end of its connection.
            records = printer.documents()
            self.assertEqual([r["number"] for r in records], list(range(1, len(contents) + 1)))
            for content, record in zip(contents, records, strict=True):
                with self.subTest(size=len(content)):
                    self.assertEqual(pathlib.Path(record["file"]).read_bytes(), content)
                    self.assertEqual(record["bytes"], len(content))
                    self.assertEqual(record["sha256"], hashlib.sha256(content).hexdigest())
                    self.assertTrue(record["complete"])
        for content in contents:
            self.assertIn(f"{len(content)} bytes, sha256 {hashlib.sha256(content).hexdigest()}, complete",
                          printer.output)

    def test_ParallelConnectionsKeepTheirDocumentsApart(self):
        contents = [some_bytes(300_000 + i, seed=i) for i in range(8)]
        with VirtualPrinter() as printer:
            connections = [connect(printer) for _ in contents]
            for part in range(3):  # in turns, so that all documents are under way at once
                for connection, content in zip(connections, contents):
                    connection.sendall(content[part * 100_000:(part + 1) * 100_000 if part < 2 else None])
            wait_until_open(printer, len(contents))
            for connection in connections:
                connection.shutdown(socket.SHUT_WR)
                self.assertEqual(connection.recv(1), b"")
                connection.close()
            stored = sorted(pathlib.Path(r["file"]).read_bytes() for r in printer.documents())
            self.assertEqual(stored, sorted(contents))

    def test_ConnectionsOverTheBoundWaitAndArePrintedLater(self):
        with VirtualPrinter() as printer:
            held = [connect(printer) for _ in range(64)]
            waiting = connect(printer)
            waiting.sendall(b"later")
            waiting.shutdown(socket.SHUT_WR)
            waiting.settimeout(0.2)
            with self.assertRaises(TimeoutError):
                waiting.recv(1)
            held.pop().close()
            waiting.settimeout(LIMIT)
            self.assertEqual(read_to_end(waiting), b"")
            self.assertIn(5, [r["bytes"] for r in printer.documents()])
            for connection in [*held, waiting]:
                connection.close()

    def test_BrokenConnectionIsRecordedAsIncompleteWithItsBytes(self):
        content = some_bytes(100_000)
        with VirtualPrinter() as printer:
            connection = connect(printer)
            connection.sendall(content)
            wait_until_stored(printer, len(content))
            break_connection(connection)
            record = printer.wait_for_documents(1)[0]
            self.assertEqual((record["complete"], record["end"]), (False, "connection lost"))
            self.assertEqual(pathlib.Path(record["file"]).read_bytes(), content)
            self.assertEqual(record["sha256"], hashlib.sha256(content).hexdigest())

    def test_DocumentOverTheLimitIsCutAndItsConnectionReset(self):
        with VirtualPrinter("--max-document", "1000") as printer:
            print_document(printer, bytes(1000))
            with self.assertRaises(ConnectionError):
                print_document(printer, bytes(1001))
            self.assertEqual([(r["bytes"], r["end"]) for r in printer.documents()],
                             [(1000, "complete"), (1000, "over the size limit")])

    def test_EarlierDocumentsOfTheFolderAreNotOverwritten(self):
        with tempfile.TemporaryDirectory() as folder:
            for content in (b"first run", b"second run"):
                with VirtualPrinter(store=folder) as printer:
                    print_document(printer, content)
            self.assertEqual({p.name: p.read_bytes() for p in pathlib.Path(folder).iterdir()},
                             {"document-0001.prn": b"first run", "document-0002.prn": b"second run"})


class BackChannel(unittest.TestCase):
    def test_AnswerAfterTheDocument(self):
        with VirtualPrinter("--answer", "@PJL done\r\n") as printer:
            with connect(printer) as connection:
                connection.sendall(b"page")
                connection.settimeout(0.2)
                with self.assertRaises(TimeoutError):
                    connection.recv(1)
                connection.settimeout(LIMIT)
                connection.shutdown(socket.SHUT_WR)
                self.assertEqual(read_to_end(connection), b"@PJL done\r\n")

    def test_AnswerAtOnceChangedAndClearedAtRunTime(self):
        with VirtualPrinter("--answer", "hello", "--answer-when", "open") as printer:
            with connect(printer) as connection:
                self.assertEqual(connection.recv(100), b"hello")
            printer.set_answer("\x1b%-12345X\u20ac", when="document")
            self.assertEqual(print_document(printer, b"page"), "\x1b%-12345X\u20ac".encode())
            printer.clear_answer()
            self.assertEqual(print_document(printer, b"page"), b"")


class Faults(unittest.TestCase):
    def test_RefusedUntilClearedThenTheSamePort(self):
        with VirtualPrinter("--fault", "refuse") as printer:
            for _ in range(2):
                with self.assertRaises(ConnectionRefusedError):
                    connect(printer)
                printer.clear_fault()
                print_document(printer, b"now it prints")
                printer.set_fault("refuse")
            with self.assertRaises(ConnectionRefusedError):
                connect(printer)
            printer.set_fault("reset", after=100)  # another fault instead opens the port, too
            print_document(printer, b"short enough")
            self.assertEqual(len(printer.documents()), 3)

    def test_RefusingLeavesConnectionsUnderWayAlone(self):
        with VirtualPrinter() as printer:
            with connect(printer) as connection:
                connection.sendall(b"before, ")
                wait_until_open(printer, 1)
                printer.set_fault("refuse")
                connection.sendall(b"after")
                connection.shutdown(socket.SHUT_WR)
                read_to_end(connection)
            self.assertEqual(pathlib.Path(printer.documents()[0]["file"]).read_bytes(), b"before, after")

    def test_StalledSenderBlocksAndNothingIsLostOnceCleared(self):
        with VirtualPrinter() as printer:
            after = 8 << 20  # enough for the system to widen a buffer that is left to it
            printer.set_fault("stall", after=after)
            with connect(printer) as connection:
                # A fixed buffer on this side: what still goes is then what the printer's system takes in.
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 65536)
                sent = send_until_blocked(connection, most=64 << 20)
                self.assertLess(sent - after, 256 << 10)
                wait_until_stored(printer, after)
                printer.clear_fault()
                connection.sendall(bytes(500_000))
                connection.shutdown(socket.SHUT_WR)
                read_to_end(connection)
            record = printer.documents()[0]
            self.assertEqual((record["bytes"], record["complete"]), (sent + 500_000, True))

    def test_ConnectionBrokenWhileStalledIsRecorded(self):
        with VirtualPrinter("--fault", "stall", "--fault-after", "10") as printer:
            connection = connect(printer)
            connection.sendall(bytes(5000))
            wait_until_stored(printer, 10)
            break_connection(connection)
            record = printer.wait_for_documents(1)[0]
            self.assertEqual((record["bytes"], record["end"]), (10, "connection lost"))

    def test_SlowReadsAtItsRate(self):
        with VirtualPrinter() as printer:
            printer.set_fault("slow", after=100_000, rate=50_000, connections=1)
            started = time.monotonic()
            print_document(printer, bytes(130_000))
            seconds = time.monotonic() - started
            self.assertGreater(seconds, 0.5)  # 30,000 bytes at 50,000 per second
            self.assertLess(seconds, 3.0)
            print_document(printer, bytes(130_000))
            slow, normal = printer.documents()
            self.assertEqual((slow["bytes"], slow["complete"]), (130_000, True))
            self.assertGreater(slow["milliseconds"], 500)
            self.assertLess(normal["milliseconds"], slow["milliseconds"])

    def test_ResetComesAfterItsBytesForAsManyConnectionsAsAsked(self):
        with VirtualPrinter() as printer:
            for after in (0, 1, 4096, 200_000):
                with self.subTest(after=after):
                    before = len(printer.documents())
                    printer.set_fault("reset", after=after, connections=2)
                    for _ in range(2):
                        with self.assertRaises(ConnectionResetError), connect(printer) as connection:
                            connection.sendall(bytes(after + 1))
                            connection.recv(1)
                    self.assertIsNone(printer.state()["fault"])
                    print_document(printer, bytes(after + 1))
                    self.assertEqual([(r["bytes"], r["end"]) for r in printer.documents()[before:]],
                                     [(after, "reset by fault")] * 2 + [(after + 1, "complete")])

    def test_UnsoundRequestsAreRefusedAndChangeNothing(self):
        with VirtualPrinter() as printer:
            kept = printer.set_fault("reset", after=7, connections=3)["fault"]
            for body in ({}, [], {"mode": "explode"}, {"mode": 1}, {"mode": "slow"}, {"mode": "reset", "rate": 5},
                         {"mode": "refuse", "connections": 1}, {"mode": "reset", "connections": 0},
                         {"mode": "reset", "after": -1}, {"mode": "reset", "after": "7"},
                         {"mode": "reset", "befor": 7}):
                with self.subTest(body=body), self.assertRaises(ControlError) as caught:
                    printer.call("PUT", "/fault", body)
                self.assertEqual(caught.exception.status, 400)
            for method, path, body, status in (("PUT", "/answer", {"text": 5}, 400), ("GET", "/nothing", None, 404),
                                               ("PUT", "/answer", {"text": "x" * 100_000}, 413)):
                with self.subTest(path=path), self.assertRaises(ControlError) as caught:
                    printer.call(method, path, body)
                self.assertEqual(caught.exception.status, status)
            self.assertEqual(printer.state()["fault"], kept)
            self.assertIsNone(printer.state()["answer"])


class StartAndStop(unittest.TestCase):
    def test_EveryWayToStopEndsConnectionsUnderWayAndTheProcess(self):
        def by_signal(number):
            def stop(printer):
                os.kill(printer.pid, number)
                return printer.wait(LIMIT)
            return stop

        def by_request_without_length(printer):  # as "curl -X POST" sends it
            with socket.create_connection(("127.0.0.1", printer.control_port), timeout=LIMIT) as connection:
                connection.sendall(b"POST /shutdown HTTP/1.1\r\nHost: printer\r\n\r\n")
                self.assertRegex(connection.recv(100), b"^HTTP/1.1 200 ")
            return printer.wait(LIMIT)

        for name, stop in (("control", VirtualPrinter.shutdown), ("curl", by_request_without_length),
                           ("SIGTERM", by_signal(signal.SIGTERM)),
                           ("SIGINT", by_signal(signal.SIGINT))):
            with self.subTest(name), VirtualPrinter() as printer:
                idle = connect(printer)
                wait_until_open(printer, 1)
                printer.set_fault("stall", after=3)
                stalled = connect(printer)
                stalled.sendall(b"abcdef")
                wait_until_open(printer, 2)
                started = time.monotonic()
                self.assertEqual(stop(printer), 0)
                self.assertLess(time.monotonic() - started, 3)
                self.assertEqual(printer.output.count("printer stopped"), 2)
                for connection in (idle, stalled):
                    with connection, self.assertRaises(ConnectionResetError):
                        connection.recv(1)
                with self.assertRaises(ConnectionRefusedError):
                    connect(printer)
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
            store = ["--store", folder]
            for arguments, status, words in (
                    ([], 2, "--store"),
                    ([*store, "--bogus"], 2, "--bogus"),
                    ([*store, "--raw-port", "70000"], 2, "--raw-port"),
                    ([*store, "--fault", "slow"], 2, "rate"),
                    ([*store, "--raw-port", str(running.raw_port)], 1, "in use"),
                    ([*store, "--raw-port", "0", "--control-port", str(running.control_port)], 1, "in use"),
                    ([*store, "--raw-port", "0", "--address", "nowhere"], 1, "nowhere"),
                    ([*store, "--raw-port", "0", "--ready-file", str(file / "x")], 1, "Not a directory"),
                    (["--store", str(file), "--raw-port", "0"], 1, str(file))):
                with self.subTest(arguments=arguments):
                    ended = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=LIMIT)
                    self.assertEqual(ended.returncode, status)
                    self.assertRegex(ended.stderr, r"\Avprinter: [^\n]+\n\Z")
                    self.assertIn(words, ended.stderr)


if __name__ == "__main__":
    unittest.main()
