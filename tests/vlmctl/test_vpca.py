"""vlmctl vpca: what it makes it can read, and of a bad frame it says where and why."""

import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import windows  # noqa: E402

ATTRIBUTES = "CDCA10050066000100{:02X}0000000000000000{}"


class VpcaTest(unittest.TestCase):
    def test_encoded_requests_are_the_documented_bytes_and_decode(self):
        for arguments, expected, says in (
                (("query", "0x11223344"), "CDCA100400310001000400000000000000000000 11223344", r"20  data id +0x11223344"),
                (("--values", "0x51525354", "0x61626364", "command", "--short", "180"),
                 "CDCA1004006600010 00A5152535461626364 0000 0000 00 00 0000 0001 00B4", r"28    id +180")):
            made = windows.vlmctl("vpca", "encode", *arguments)
            self.assertEqual(bytes.fromhex(made.stdout), bytes.fromhex(expected.replace(" ", "")), made.stderr)
            read = windows.vlmctl("vpca", "decode", made.stdout.strip())
            self.assertEqual(read.returncode, 0, read.stderr)
            self.assertRegex(read.stdout, says)

    def test_bad_frames_say_where_and_why(self):
        for frame, says in (
                ("CDCA1005", "offset 0: the header takes 20 bytes, there are 4"),
                ("ABCD" + "00" * 18, "offset 0: the magic is ABCD"),
                ("CDCA11" + "00" * 17, "offset 2: the version 0x11"),
                ("CDCA1005002D" + "00" * 14, "offset 4: the operation 0x2d"),
                (ATTRIBUTES.format(12, "0001") + "01", "offset 8: the body length 12 reaches beyond"),
                (ATTRIBUTES.format(11, "0001") + "0100B408" + "01" * 8, "offset 24: attribute 180 takes 8 bytes, there are 7"),
                (ATTRIBUTES.format(11, "0001") + "0100B407" + "01" * 7, "offset 24: 7 bytes are no value of attribute 180")):
            with self.subTest(says):
                with tempfile.NamedTemporaryFile() as file:
                    file.write(bytes.fromhex(frame))
                    file.flush()
                    read = windows.vlmctl("vpca", "decode", "--file", file.name)
                self.assertEqual(read.returncode, 1)
                self.assertIn("bad frame: at " + says, read.stderr)


if __name__ == "__main__":
    unittest.main()
