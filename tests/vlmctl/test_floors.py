"""Source trees of several floors: a folder includes itself and folders of the floors below, never its neighbours."""

import re
import unittest

from companion import windows

TREES = {
    "tools/vlmctl": [{"console"}, {"exchange", "extension_files"},
                     {"bidi", "installation", "printer", "remote", "trace"}],
    "printer": [{"shared"}, {"net"}, {"soap", "vpca"}, {"raw", "wsd", "deptid"}, {"control"}],
}
# All that the companion's main.cpp may include of a family of commands.
DOORS = {"bidi": "bidi_commands.h", "installation": "installation_commands.h", "printer": "printer_commands.h",
         "remote": "remote_commands.h", "trace": "trace_command.h"}


class FloorsTest(unittest.TestCase):
    def test_every_include_goes_down(self):
        for tree, floors in TREES.items():
            root = windows.ROOT / tree
            level = {folder: number for number, floor in enumerate(floors) for folder in floor}
            for file in sorted(root.rglob("*.[ch]*")):
                for target, header in re.findall(rf'#include "{tree}/(\w+)/(\S+)"', file.read_text()):
                    with self.subTest(f"{file.relative_to(windows.ROOT)} -> {target}/{header}"):
                        if file.parent != root:
                            self.assertTrue(target == file.parent.name or level[target] < level[file.parent.name])
                        elif tree == "tools/vlmctl":
                            self.assertEqual(header, DOORS.get(target, header))

    def test_every_file_has_a_folder(self):
        for tree, floors in TREES.items():
            root = windows.ROOT / tree
            with self.subTest(tree):
                self.assertEqual({path.name for path in root.iterdir() if path.is_dir()}, set().union(*floors))
        self.assertEqual([path.name for path in (windows.ROOT / "tools/vlmctl").glob("*.[ch]*")], ["main.cpp"])


if __name__ == "__main__":
    unittest.main()
