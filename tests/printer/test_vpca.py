"""Talks to the virtual printer's device over a socket to its raw port, with the frames that docs/vpca.md shows."""

import pathlib
import struct
import time
import unittest

import vpca_examples as examples
from vprinter import VirtualPrinter, receive, wait_until


def request(operation, body, sequence=7):
    return examples.MAGIC + struct.pack(">BBHHHIIH", 0x10, 4, operation, sequence, len(body), 0, 0, 0) + body


def block_request(block):
    return request(0x31, struct.pack(">I", block))


def attribute_request(*ids):
    return request(0x66, struct.pack(f">HBBHH{len(ids)}H", 0, 0, 0, 0, len(ids), *ids))


def status_of(reply):
    return struct.unpack_from(">H", reply, 18)[0]


def changed(frame, at, octets):
    return frame[:at] + octets + frame[at + len(octets):]


class Device(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.printer = cls.enterClassContext(VirtualPrinter())

    def setUp(self):
        self.printer.clear_vpca_fault()

    def exchange(self, *pieces):
        """All that comes back, up to an orderly end."""
        received, ended = self.printer.send(*pieces)
        self.assertEqual(ended, "end")
        return received

    def test_WorkedExamplesAreAnsweredAsTheDocumentSays(self):
        refused = changed(examples.BLOCK_REQUEST, 20, b"\x0B\xAD\x0B\xAD")
        for sent, expected in ((examples.BLOCK_REQUEST, examples.BLOCK_REPLY),
                               (refused, examples.BLOCK_REFUSAL),
                               (examples.ATTRIBUTE_REQUEST, examples.ATTRIBUTE_REPLY)):
            self.assertEqual(self.exchange(sent), expected)
        full = self.exchange(examples.FULL_ATTRIBUTE_REQUEST)
        self.assertEqual((status_of(full), full[20:32]), (1, b"\x02" + examples.ATTRIBUTE_REPLY[21:]))
        self.assertEqual((full[32:35], len(full)), (b"\x09\x65\x1C", 35 + 28))
        for listed in examples.attribute_lists():
            ids, at = [], 1
            while at < len(listed):
                ids.append(struct.unpack_from(">H", listed, at)[0])
                at += 3 + listed[at + 2]
            with self.subTest(ids=ids):
                reply = self.exchange(attribute_request(4711, *ids))
                self.assertEqual((status_of(reply), reply[20:]), (1, listed))
                self.assertEqual(struct.unpack_from(">H", reply, 8)[0], len(listed))

    def test_DataBlocksMayBeLongerThanOnePacketAndThanTheLengthField(self):
        for block, size in ((1, 0), (2, 8192), (3, 8193), (4, 70_000)):
            with self.subTest(size=size):
                reply = self.exchange(block_request(block))
                self.assertEqual((status_of(reply), reply[20:24]), (1, struct.pack(">I", block)))
                self.assertEqual(reply[24:], bytes(i % 251 for i in range(size)))

    def test_WhatTheDeviceCannotServeIsRefused(self):
        for sent, status, body in (
                (block_request(29), 29, b"\0\0\0\x1D"), (block_request(5), 0, b""), (request(0x31, bytes(3)), 0, b""),
                (request(0x31, bytes(5)), 0, b""), (request(0x30, b""), 0, b""), (request(45, b"abc"), 0, b""),
                (request(0x66, bytes.fromhex("0000 03 04 C0000207 0000 0000")), 0, b""),
                (request(0x66, bytes.fromhex("0000 01 00 0000 0000")), 0, b""),
                (request(0x66, bytes.fromhex("0000 00 00 0000 0002 00B4")), 0, b""),
                (request(0x66, bytes.fromhex("0000 00 00 FFFF 0000")), 0, b""),
                (request(0x66, bytes.fromhex("0000 00 00 0000 0000 00")), 0, b""),
                (attribute_request(*[180] * 256), 0, b"")):
            with self.subTest(sent=sent[:40].hex(" ")):
                reply = self.exchange(sent)
                self.assertEqual((status_of(reply), reply[20:]), (status, body))
                self.assertEqual(reply[4:8], sent[4:8], "operation and sequence")
        self.assertEqual(status_of(self.exchange(attribute_request(*[180] * 255))), 1)

    def test_ADialogueIsCutByTheFramesAndNotByTheSegments(self):
        sent = examples.BLOCK_REQUEST + examples.ATTRIBUTE_REQUEST
        expected = examples.BLOCK_REPLY + examples.ATTRIBUTE_REPLY
        for cut in range(len(sent)):
            self.assertEqual(self.exchange(sent[:cut], sent[cut:]), expected, f"cut at {cut}")
        with self.printer.connect() as connection:  # the second request only after the first reply
            for _ in range(2):
                connection.sendall(examples.BLOCK_REQUEST)
                self.assertEqual(connection.recv(100), examples.BLOCK_REPLY)

    def test_OnlyADialogueIsNoDocument(self):
        before = len(self.printer.documents())
        self.exchange(examples.BLOCK_REQUEST)
        self.assertEqual(len(self.printer.documents()), before)
        for content in (b"", b"\xCD", b"\xCD\xCB" + bytes(30), b"\xCA\xCD", b"%!" + examples.BLOCK_REQUEST):
            self.assertEqual(self.exchange(content), b"")
            record = self.printer.documents()[-1]
            self.assertEqual((record["complete"], pathlib.Path(record["file"]).read_bytes()), (True, content))
        with self.printer.connect() as connection:  # half the magic decides nothing
            connection.sendall(examples.BLOCK_REQUEST[:1])
            time.sleep(0.1)
            connection.sendall(examples.BLOCK_REQUEST[1:])
            self.assertEqual(connection.recv(100), examples.BLOCK_REPLY)

    def test_WhatIsNoRequestEndsTheDialogue(self):
        good = examples.BLOCK_REQUEST
        for sent in (changed(good, 2, b"\x11"), good + b"\x1B%-12345X" + bytes(20), examples.MAGIC + bytes(18)):
            with self.subTest(sent=sent.hex(" ")), self.printer.connect() as connection:
                connection.sendall(sent)
                self.assertEqual(receive(connection)[1], "reset")
        for size in range(2, len(good)):
            self.assertEqual(self.printer.send(good[:size]), (b"", "reset"), size)
        self.assertEqual(self.exchange(good), examples.BLOCK_REPLY)

    def test_AFaultChangesTheReply(self):
        reply, attributes = examples.BLOCK_REPLY, examples.ATTRIBUTE_REPLY
        for fault, sent, expected in (
                ({"status": 0}, examples.BLOCK_REQUEST, examples.BLOCK_REFUSAL),
                ({"status": 29}, examples.BLOCK_REQUEST, changed(reply, 18, b"\0\x1D")),
                ({"status": 65535, "sequence": 9}, examples.BLOCK_REQUEST,
                 changed(changed(examples.BLOCK_REFUSAL, 18, b"\xFF\xFF"), 6, b"\0\x09")),
                ({"operation": 0x66}, examples.BLOCK_REQUEST, changed(reply, 4, b"\0\x66")),
                ({"length": 4}, examples.BLOCK_REQUEST, changed(reply, 8, b"\0\x04")),
                ({"id": 0xFFFFFFFE}, examples.BLOCK_REQUEST, changed(reply, 20, b"\xFF\xFF\xFF\xFE")),
                ({"id": 2405}, examples.ATTRIBUTE_REQUEST, changed(attributes, 21, b"\x09\x65")),
                ({"id": 2405}, attribute_request(), request(0x66, b"\0")[:3] + b"\x05" +
                 request(0x66, b"\0")[4:18] + b"\0\x01\0"),
                ({"reply": b"garbage"}, examples.BLOCK_REQUEST, b"garbage"),
                ({"reply": "CD ca"}, examples.BLOCK_REQUEST, b"\xCD\xCA"),
                ({"truncate": 1000}, examples.BLOCK_REQUEST, reply)):
            with self.subTest(fault=fault):
                state = self.printer.set_vpca_fault(**fault)["vpcaFault"]
                self.assertEqual(state.keys(), fault.keys())
                self.assertEqual(self.exchange(sent), expected)
        self.printer.clear_vpca_fault()
        self.assertIsNone(self.printer.state()["vpcaFault"])
        self.assertEqual(self.exchange(examples.BLOCK_REQUEST), reply)

    def test_ALateReplyIsLateAndHoldsUpNothingElse(self):
        self.printer.set_vpca_fault(delay=250, requests=1)
        started = time.monotonic()
        with self.printer.connect() as late:
            late.sendall(examples.BLOCK_REQUEST)
            wait_until(lambda: self.printer.state()["vpcaFault"] is None, "the fault is taken")
            self.assertEqual(self.exchange(examples.BLOCK_REQUEST), examples.BLOCK_REPLY)
            self.assertLess(time.monotonic() - started, 0.25)
            self.assertEqual(late.recv(100), examples.BLOCK_REPLY)
        self.assertGreaterEqual(time.monotonic() - started, 0.25)
        with VirtualPrinter() as printer, printer.connect() as connection:  # nor the printer's end
            printer.set_vpca_fault(delay=600_000)
            connection.sendall(examples.BLOCK_REQUEST)
            wait_until(printer.vpca_requests, "the request has come")
            self.assertEqual(printer.shutdown(), 0)
