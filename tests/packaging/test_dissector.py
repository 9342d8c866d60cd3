"""The packet dissector as tshark runs it: on the exchange that the demo makes, recorded between the monitor and the
virtual printer, and on what no correct device sends."""

import contextlib
import io
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests/support"), str(ROOT / "tools")]
import demo  # noqa: E402
import vpca_examples as examples  # noqa: E402
from vprinter import VirtualPrinter  # noqa: E402
from wire_tap import ACK, RST, Capture, WireTap  # noqa: E402

DISSECTOR = ROOT / "packaging/vpca.lua"
# tshark loads no script for root since 4.4.
TSHARK_USER = {"user": "nobody", "group": "nogroup", "extra_groups": []} if os.geteuid() == 0 else {}
COMPLAINTS = "_ws.expert.message"
# What the TCP dissector says, among our complaints.
OF_TCP = re.compile(r"(Connection (finish \(FIN\)|reset \(RST\))|This frame \w+ the connection closing) ?")
DECODE_AS = ("-d", "tcp.port==9100,vpca")
LONG_BLOCK = b"\xCD\xCA\x10\x05\x00\x31\x00\x01" + bytes(10) + b"\x00\x01" + b"\x00\x00\x00\x04"


def pattern(size):
    return bytes(i % 251 for i in range(size))


class Dissected(unittest.TestCase):
    def rows(self, capture, *fields, options=()):
        """For each packet that the dissector shows, the values of the fields, several joined by blanks, and what it
        complains of."""
        with tempfile.TemporaryDirectory(prefix="vlm-dissector-") as folder:
            os.chmod(folder, 0o755)  # and copied into it: the tree may be for its owner's eyes alone
            script = shutil.copy(DISSECTOR, folder)
            path = pathlib.Path(folder) / "capture.pcap"
            capture.save(path)
            result = subprocess.run(
                ["tshark", "-n", "-r", path, "-X", f"lua_script:{script}", "-Y", "vpca", "-T", "fields",
                 "-E", "aggregator= ", *options, *(word for field in (*fields, COMPLAINTS) for word in ("-e", field))],
                capture_output=True, text=True, timeout=60, env=os.environ | {"HOME": folder}, **TSHARK_USER)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertNotIn("Lua", result.stdout + result.stderr)
        rows = [line.split("\t") for line in result.stdout.splitlines()]
        return [(*row[:len(fields)], OF_TCP.sub("", row[-1]).strip()) for row in rows]

    def answers(self, frames, *fields, options=DECODE_AS):
        """The rows of what a device sends on several connections, on each in one packet before it closes."""
        capture = Capture()
        for host, frame in enumerate(frames, 50_000):
            capture.connect(host)
            capture.send(host, False, frame)
            capture.end(host, False)
        return self.rows(capture, *fields, options=options)


class ExchangeTest(Dissected):
    def test_exchange_of_the_demo(self):
        with VirtualPrinter() as printer, WireTap(printer.raw_port) as tap:
            with contextlib.redirect_stdout(io.StringIO()):
                demo.call_remote_procedures(tap.port)
        rows = self.rows(tap, "vpca.operation", "vpca.result", "vpca.block.id", "vpca.block.size", "vpca.block.data",
                         "vpca.request.id16", "vpca.attribute.value", "vpca.value1")
        small, largest = str(0x11223344), pattern(8192).hex()
        value = bytes(range(1, 9)).hex()
        self.assertEqual([row[:5] for row in rows if row[0] == "49"], [
            ("49", "", small, "", ""), ("49", "1", small, "4", "aabbccdd"),
            ("49", "", "2", "", ""), ("49", "1", "2", "8192", largest),
            ("49", "", "29", "", ""), ("49", "29", "29", "0", "")])
        self.assertEqual([row[1:2] + row[5:8] for row in rows if row[0] == "102"], [
            ("", "180", "", "0x51525354"), ("1", "", value, "0x00000000"),
            ("", "2405", "", "0x00000000"), ("1", "", "2405" + bytes(range(2, 28)).hex(), "0x00000000")])
        self.assertEqual(len(rows), 10, "the job's data is none")
        self.assertEqual([row[-1] for row in rows if row[-1]], ["Refused by the printer"])


class FrameTest(Dissected):
    def test_examples_of_the_document(self):
        self.assertEqual(self.answers([examples.FULL_ATTRIBUTE_REQUEST], "vpca.request.word", "vpca.request.address",
                                      "vpca.request.id32", "vpca.request.id16"),
                         [("0x0a0b", "c0000207", "16909060 5", "180 2405", "")])
        optional = examples.BLOCK_REQUEST[:3] + b"\x0C" + examples.BLOCK_REQUEST[4:18] + b"\x7F\0" + bytes(4)
        self.assertEqual(self.answers([examples.BLOCK_REFUSAL, optional], "vpca.result", "vpca.block.id",
                                      "vpca.option"),
                         [("0", "", "", "Refused by the printer"), ("", "0", "0x7f", "")])
        header = examples.ATTRIBUTE_REPLY[:8]
        shown = self.answers([header + len(body).to_bytes(2, "big") + bytes(8) + b"\0\1" + body
                              for body in examples.attribute_lists()],
                             "vpca.attribute.id", "vpca.attribute.address", "vpca.attribute.text",
                             "vpca.attribute.number", "vpca.attribute.value")
        self.assertEqual(shown, [
            ("", "", "", "", "", ""),
            ("144", "10.0.0.1", "", "", "", ""),
            ("1080", "", "", "", "", ""),
            ("6012", "192.0.2.1 192.0.2.2", "", "258 772", "", ""),
            ("2112", "192.0.2.5", "abc", "258 772 84281096 151653132 13", "", ""),
            ("2 7000", "", "", "", "aabbccdd 0102030405", "")])

    def test_frames_split_over_segments(self):
        capture = Capture()
        request, refusal = examples.FULL_ATTRIBUTE_REQUEST, examples.BLOCK_REFUSAL
        answer = LONG_BLOCK + pattern(70_000)
        splits = [1, 2, 3, 9, 19, 20, 21, len(request) - 1]
        for host, split in enumerate(splits, 50_000):
            capture.connect(host)
            for whole, from_host in ((request, True), (refusal, False), (answer, False), (answer, False)):
                capture.send(host, from_host, whole[:split])
                if whole[split:]:
                    capture.send(host, from_host, whole[split:])
            capture.end(host, True)
            capture.end(host, False)
        rows = self.rows(capture, "vpca.request.id16", "vpca.result", "vpca.block.data", options=DECODE_AS)
        both = (pattern(70_000) + answer).hex()  # no length says where the first answer ends
        self.assertEqual(rows, [("180 2405", "", "", ""), ("", "0", "", "Refused by the printer"),
                                ("", "1", both, "")] * len(splits))

    def test_frames_behind_each_other_in_one_segment(self):
        self.assertEqual(self.answers([examples.BLOCK_REQUEST + examples.ATTRIBUTE_REQUEST,
                                       examples.BLOCK_REPLY + examples.ATTRIBUTE_REPLY],
                                      "vpca.operation", "vpca.block.data"),
                         [("49 102", "", ""), ("49 102", "aabbccdd", "")])
        by_length = (*DECODE_AS, "-o", "vpca.to_the_end:FALSE")
        self.assertEqual(self.answers([examples.BLOCK_REPLY + b"more"], "vpca.block.data", options=by_length),
                         [("aabbccdd", "Not a VPCA frame")])

    def test_other_connections_are_left_alone(self):
        documents = [b"%!PS-Adobe-3.0", b"\x1BE", b"\xCD\xCA\x11" + bytes(30), b"\xCD"]
        self.assertEqual(self.answers(documents, options=()), [])

    def test_bad_frames_are_marked(self):
        block, attribute, request = examples.BLOCK_REPLY, examples.ATTRIBUTE_REPLY, examples.ATTRIBUTE_REQUEST
        of = "The connection ended after {} bytes of a frame"
        value = "The length is not that of the value's layout"
        bad = (
                (block[:19], of.format(19)), (block[:1], of.format(1)), (attribute[:25], of.format(25)),
                (request[:8] + b"\xFF\xFF" + request[10:], of.format(len(request))),
                (block[:23], "An answer without a data id"),
                (examples.BLOCK_REQUEST[:8] + b"\0\2" + bytes(12), "A data id has four bytes"),
                (request[:24] + b"\0\1" + request[26:],
                 "The body is not as long as its counts say"),
                (attribute[:8] + b"\0\0" + attribute[10:20], "An answer without a list"),
                (attribute[:20] + b"\2" + attribute[21:], "The list ends within an attribute"),
                (attribute[:21] + b"\x09\x65" + attribute[23:], value),
                (attribute[:23] + b"\7" + attribute[24:], value),
                (attribute[:21] + b"\0\2\xFF" + attribute[24:], "The value runs over the end of the list"),
                (block[:4] + b"\0\x2D" + block[6:], "Unknown operation"),
                (b"\xCD\xCA\x11" + block[3:], "Unknown protocol version"),
                (b"\xCA\xCD" + block[2:], "Not a VPCA frame"), (b"@PJL INFO STATUS", "Not a VPCA frame"),
                (attribute + b"garbage", "Not a VPCA frame"))
        self.assertEqual(self.answers([frame for frame, _ in bad]), [(complaint,) for _, complaint in bad])
        capture = Capture()
        capture.connect(50_000)
        capture.send(50_000, False, block)
        capture.end(50_000, False, RST | ACK)
        self.assertEqual(self.rows(capture), [(of.format(len(block)),)])

    def test_damaged_frames_do_not_stop_it(self):
        dice = random.Random(1)
        capture = Capture()
        for host in range(50_000, 50_400):
            capture.connect(host)
            frame = bytearray(dice.choice((examples.BLOCK_REPLY, examples.ATTRIBUTE_REPLY, examples.BLOCK_REQUEST,
                                           examples.FULL_ATTRIBUTE_REQUEST)))
            for _ in range(dice.randint(1, 4)):
                frame[dice.randrange(3, len(frame))] = dice.choice((0, 1, 0xFF, dice.randrange(256)))
            capture.send(host, False, bytes(frame[:dice.randint(3, len(frame))]))
            capture.end(host, False)
        self.assertGreaterEqual(len(self.rows(capture, "vpca.operation")), 400)


if __name__ == "__main__":
    unittest.main()
