"""vlmctl vpca: what it makes it can read, and of a bad frame it says where and why."""

import tempfile
import unittest

from companion import Companion

BLOCK_REQUEST = "CDCA1004003100010004" + "00" * 10
ATTRIBUTES = "CDCA10050066000100{:02X}0000000000000000{}"


class VpcaTest(Companion):
    def test_encoded_requests_are_the_documented_bytes_and_decode(self):
        for arguments, expected, says in (
                (("query", "0x11223344"), BLOCK_REQUEST + "11223344", r"20  data id +0x11223344"),
                (("query", "0010"), BLOCK_REQUEST + "0000000A", r"20  data id +0x0000000a"),
                (("--values", "0x51525354", "0x61626364", "command", "--short", "180"),
                 "CDCA1004006600010 00A5152535461626364 0000 0000 00 00 0000 0001 00B4", r"28    id +180")):
            with self.subTest(arguments), tempfile.NamedTemporaryFile() as file:
                made = bytes.fromhex(self.works("vpca", "encode", *arguments))
                self.assertEqual(made, bytes.fromhex(expected.replace(" ", "")))
                file.write(made)
                file.flush()
                self.assertRegex(self.works("vpca", "decode", "--file", file.name), says)

    def test_bad_frames_say_where_and_why(self):
        for frame, says in (
                ("CDCA1005", "offset 0: the header takes 20 bytes, there are 4"),
                ("ABCD" + "00" * 18, "offset 0: the magic is ABCD"),
                ("CDCA11" + "00" * 17, "offset 2: the version 0x11"),
                ("CDCA1005002D" + "00" * 14, "offset 4: the operation 0x2d"),
                (ATTRIBUTES.format(12, "0001") + "01", "offset 8: the body length 12 reaches beyond"),
                (ATTRIBUTES.format(11, "0001") + "0100B408" + "01" * 8,
                 "offset 24: attribute 180 takes 8 bytes, there are 7"),
                (ATTRIBUTES.format(11, "0001") + "0100B407" + "01" * 7,
                 "offset 24: 7 bytes are no value of attribute 180")):
            with self.subTest(says):
                self.fails("vpca", "decode", frame, says="bad frame: at " + says)


if __name__ == "__main__":
    unittest.main()
