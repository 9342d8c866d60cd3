"""The files and folders of the tree that the documents name are there, and so are the pages that they link."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = sorted([*ROOT.glob("*.md"), *ROOT.glob("docs/*.md")])
FOLDERS = ("bench", "cmake", "docs", "examples", "fuzz", "packaging", "printer", "soak", "spooler", "src", "tests", "tools")
SOURCE = (".cpp", ".h", ".py", ".idl", ".cmake")


class Documents(unittest.TestCase):
    def test_name_only_what_is_there(self):
        sources = {path.name for folder in FOLDERS for path in (ROOT / folder).rglob("*") if path.suffix in SOURCE}
        for document in DOCUMENTS:
            prose = re.sub(r"^```.*?^```$", "", document.read_text("utf-8"), flags=re.S | re.M)
            for name in re.findall(r"`([\w./-]+)`", prose):
                with self.subTest(f"{document.name}: {name}"):
                    if name.split("/")[0] in FOLDERS and "/" in name:
                        self.assertTrue((ROOT / name).exists())
                    elif name.endswith(SOURCE):
                        self.assertIn(name.rsplit("/", 1)[-1], sources)

    def test_links_lead_somewhere(self):
        for document in DOCUMENTS:
            for target, anchor in re.findall(r"\]\((?!https?:)([^)#]*)#?([^)]*)\)", document.read_text("utf-8")):
                with self.subTest(f"{document.name}: {target}#{anchor}"):
                    path = document.parent / target if target else document
                    self.assertTrue(path.exists())
                    if anchor:
                        titles = re.findall(r"^#+ (.*)$", path.read_text("utf-8"), re.M)
                        self.assertIn(anchor, [re.sub(r"[^\w -]", "", title.lower()).replace(" ", "-") for title in titles])


if __name__ == "__main__":
    unittest.main()
