"""vlmctl --json: what each command prints has the shape that its page and its schema say."""

import json
import re
import subprocess
import unittest

import jsonschema
from companion import EXTENSIONS, NOBODY, Companion, windows
from test_answers import ANSWER, replaced
from vprinter import VirtualPrinter

PAGE = windows.ROOT / "docs/json.md"
SHAPES = json.loads((windows.ROOT / "packaging/vlmctl-json.schema.json").read_text())
HELPERS = {"text", "count", "level", "element", "declared", "search", "parameters"}
FRAME = "CDCA1004003100010004" + "00" * 10 + "11223344"


def validate(document, shape):
    jsonschema.Draft7Validator({**SHAPES, "$ref": f"#/definitions/{shape}"}).validate(document)


class Page(unittest.TestCase):
    def test_every_shape_has_an_example_that_fits(self):
        jsonschema.Draft7Validator.check_schema(SHAPES)
        examples = re.findall(r"^```json shape=(\S+)\n(.*?)^```$", PAGE.read_text("utf-8"), re.S | re.M)
        self.assertEqual({shape for shape, _ in examples}, set(SHAPES["definitions"]) - HELPERS)
        for shape, text in examples:
            with self.subTest(shape):
                validate(json.loads(text), shape)
                self.assertRaises(jsonschema.ValidationError, validate, "not so", shape)


class Output(Companion):
    def output(self, shape, *arguments, status=0, **more):
        done = windows.vlmctl(*arguments, "--json", **more)
        self.assertEqual(done.returncode, status, done.stderr)
        self.assertEqual(len(done.stderr.splitlines()), 0 if status == 0 else 1, done.stderr)
        document = json.loads(done.stdout)
        validate(document, shape)
        return document

    def test_what_a_printer_says(self):
        odd = replaced(ANSWER, (">Velun VP[^<]*<", ">a &quot;b&quot; \\\\ \U0001F5A8<"), (">75</wprt:Level>", ">about half</wprt:Level>"))
        url = self.serve(odd)
        status = self.output("status", "status", url, f"http://{NOBODY}/", status=1)
        self.assertEqual([one["needs"] for one in status], ["unreachable", "warning"])
        self.assertEqual((status[1]["name"], status[1]["trays"][0]["percent"]), ('a "b" \\ \U0001F5A8', None))
        wsd = self.output("wsd", "wsd", url, "PrinterStatus", "v:Unknown", "--ns", "v=urn:v", status=1)
        state = [one["text"] for part in wsd["elements"] for element in part["children"]
                 for one in element["children"] if one["name"] == "pri:PrinterState"]
        self.assertEqual((state, wsd["leftOut"]), (["Processing"], ["v:Unknown"]))
        self.output("bidi-get", "bidi", "getall", *EXTENSIONS, "--printer", url, "\\")
        self.output("bidi-enum", "bidi", "enum", *EXTENSIONS, "--printer", url, "\\")
        self.output("bidi-enum", "bidi", "enum", *EXTENSIONS, "\\")
        for path, status in (("\\Printer.Status:State", 0), ("\\Printer.Consumables.Black:Level", 0),
                             ("\\Printer.Consumables.Pink:Level", 3), ("\\Printer:Nothing", 3)):
            self.output("bidi-explain", "bidi", "explain", path, *EXTENSIONS, "--printer", url, status=status)
        self.output("bidi-explain", "bidi", "explain", "\\Printer.Consumables.Black:Level", *EXTENSIONS)

    def test_what_is_wrong_with_a_file(self):
        file = self.write("bad.xml", '<Schema xmlns:pri="urn:x"><Property name="A"><Value type="BIDI_TEXT"/></Property></Schema>')
        self.assertTrue(self.output("bidi-check", "bidi", "check", file, status=2))

    def test_a_frame_from_anywhere(self):
        decoded = self.output("vpca-decode", "vpca", "decode", FRAME)
        self.assertIn({"offset": 20, "name": "data id", "value": "0x11223344"}, decoded["fields"])
        self.assertEqual(self.output("vpca-decode", "vpca", "decode", "-", stdin=FRAME + "\n"), decoded)
        # Bytes that a text stream would change: a line end and the end of a text.
        file = self.write("frame", bytes.fromhex(FRAME[:-8] + "0d0a1a0a"))
        windows_line = self.output("vpca-decode", "vpca", "decode", "--file", file)["fields"][-1]
        self.assertEqual(windows_line["value"], "0x0d0a1a0a")
        piped = subprocess.run([windows.RUNNER, windows.BIN / "vlmctl.exe", "vpca", "decode", "--file", "-"],
                               input=file.read_bytes(), capture_output=True, timeout=60)
        self.assertIn(b"0x0d0a1a0a", piped.stdout)
        bad = self.output("vpca-decode", "vpca", "decode", "CDCA1005002D" + "00" * 14, status=1)
        self.assertIn("at offset 4", bad["problem"])

    def test_a_trace_that_is_no_text(self):
        file = self.write("trace.log", b'Error: port "\xff\xed\xa0\x80": \x1b\n')
        summary = self.output("trace-summary", "trace", "--file", file, "--summary")
        self.assertIn("\ufffd", summary["ports"][0]["port"])

    def test_calls_that_nobody_answers(self):
        self.output("rpc", "rpc", "query", "USB001", "1", status=1)
        self.output("rpc-times", "rpc", "command", "USB001", "--times", "3")
        self.output("doctor", "doctor", "--printer", NOBODY, status=1, VLM_SPOOLER="wine")

    def test_a_document_that_was_printed(self):
        with VirtualPrinter() as vprinter:
            address = f"127.0.0.1:{vprinter.raw_port}"
            vprinter.set_answer("ready\n")
            printed = self.output("print", "print", "-", "--to", address, stdin="\r\n\x1a" * 50_000)
            self.assertEqual((printed["bytes"], printed["events"]), (150_000, ["sent to printer", "last page ejected"]))
            self.assertIn("ready", printed["answer"])
            self.assertEqual(vprinter.documents()[0]["bytes"], 150_000)


if __name__ == "__main__":
    unittest.main()
