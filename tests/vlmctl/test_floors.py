"""The companion's source as a house: a folder for each family of commands, each with one door, and arrows one way."""

import re
import unittest

from companion import windows

HOUSE = windows.ROOT / "tools/vlmctl"
DOORS = {"bidi": "bidi_commands.h", "installation": "installation_commands.h", "printer": "printer_commands.h",
         "remote": "remote_commands.h", "trace": "trace_command.h"}
SHARED = {"exchange", "extension_files"}
CONSOLE = "console"


class FloorsTest(unittest.TestCase):
    def test_every_include_goes_down(self):
        for file in sorted(HOUSE.rglob("*.[ch]*")):
            room = file.parent.name
            for target, header in re.findall(r'#include "tools/vlmctl/(\w+)/(\S+)"', file.read_text()):
                with self.subTest(f"{file.relative_to(HOUSE)} -> {target}/{header}"):
                    if file.parent == HOUSE:
                        self.assertEqual(header, DOORS.get(target, header))
                    elif target != room:
                        below = {CONSOLE} | (SHARED if room in DOORS else set())
                        self.assertIn(target, below)

    def test_every_file_has_a_room(self):
        self.assertEqual({path.name for path in HOUSE.iterdir() if path.is_dir()}, {*DOORS, *SHARED, CONSOLE})
        self.assertEqual([path.name for path in HOUSE.glob("*.[ch]*")], ["main.cpp"])


if __name__ == "__main__":
    unittest.main()
