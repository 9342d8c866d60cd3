"""vlmctl vpca: what it makes it can read, and of a bad frame it says where and why."""

import unittest

from companion import Companion

BLOCK_REQUEST = "CDCA1004003100010004" + "00" * 10
ATTRIBUTES = "CDCA10050066000100{:02X}0000000000000000{}"


def frame(body):
    """An answer with attributes, in hex digits."""
    return (b"\xCD\xCA\x10\x05\0\x66\0\1" + len(body).to_bytes(2, "big") + bytes(9) + b"\1" + body).hex()


class VpcaTest(Companion):
    def test_encoded_requests_are_the_documented_bytes_and_decode(self):
        for arguments, expected, says in (
                (("query", "0x11223344"), BLOCK_REQUEST + "11223344", r"20  data id +0x11223344"),
                (("query", "0010"), BLOCK_REQUEST + "0000000A", r"20  data id +0x0000000a"),
                (("query", "4", "--sequence", "7"), "CDCA1004003100070004" + "00" * 10 + "00000004", r"sequence +7"),
                (("--values", "0x51525354", "0x61626364", "command", "--short", "180"),
                 "CDCA1004006600010 00A5152535461626364 0000 0000 00 00 0000 0001 00B4", r"28    id +180")):
            with self.subTest(arguments):
                made = bytes.fromhex(self.works("vpca", "encode", *arguments))
                self.assertEqual(made, bytes.fromhex(expected.replace(" ", "")))
                self.assertRegex(self.works("vpca", "decode", "--file", self.write("frame", made)), says)

    def test_values_longer_than_255_bytes_are_read_to_their_end(self):
        def record(text):
            return b"\xC0\0\2\5" + bytes([text]) + b"a" * text + bytes(13)

        def addresses(count, size):
            return bytes([count]) + bytes(range(size)) * count

        for attribute, value in ((2112, record(237)), (2112, record(238)), (2112, record(255)),
                                 (6012, addresses(31, 8)), (6012, addresses(32, 8)), (6012, addresses(255, 8)),
                                 (144, addresses(64, 4)), (144, addresses(255, 4))):
            head = attribute.to_bytes(2, "big") + bytes([len(value) % 256])
            after = b"\0\xB4\x08" + b"12345678"
            with self.subTest(attribute=attribute, size=len(value)):
                lines = self.works("vpca", "decode", frame(b"\2" + head + value + after)).splitlines()
                shown, _, digits = lines[-2].partition(": ")
                self.assertRegex(shown, rf" 21  +{attribute} +{len(value)} bytes")
                self.assertTrue(bytes.fromhex(digits) == value, "other bytes")
                self.assertRegex(lines[-1], rf" {24 + len(value)}  +180 +8 bytes: 31 32 33 34 35 36 37 38")
                # Cut short, it is bad where the value begins; so is one that the low byte does not fit.
                cut = frame(b"\1" + head + value[:-1])
                self.fails("vpca", "decode", cut, says=rf"at offset 24: .*{attribute}")
                wrong = frame(b"\1" + head[:2] + bytes([(head[2] - 1) % 256]) + value)
                self.fails("vpca", "decode", wrong, says=rf"at offset 24: .*{attribute}")

    def test_bad_frames_say_where_and_why(self):
        for frame, says in (
                ("CDCA1005", "offset 0: the header needs 20 bytes, there are 4"),
                ("ABCD" + "00" * 18, "offset 0: the magic is ABCD"),
                ("CDCA11" + "00" * 17, "offset 2: the version 0x11"),
                ("CDCA1005002D" + "00" * 14, "offset 4: the operation 0x2d"),
                (ATTRIBUTES.format(12, "0001") + "01", "offset 8: the body length 12 exceeds the"),
                (ATTRIBUTES.format(11, "0001") + "0100B408" + "01" * 8,
                 "offset 24: attribute 180 needs 8 bytes, there are 7"),
                (ATTRIBUTES.format(11, "0001") + "0100B407" + "01" * 7,
                 "offset 24: 7 bytes are not a valid value of attribute 180")):
            with self.subTest(says):
                self.fails("vpca", "decode", frame, says="bad frame: at " + says)


if __name__ == "__main__":
    unittest.main()
