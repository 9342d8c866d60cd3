"""vlmctl bidi as an author of extension files uses it: the program, files, what it prints and its exit status."""

import json
import pathlib
import re
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "vlmctl"))
from companion import EXAMPLES, EXTENSIONS, Companion  # noqa: E402
from vprinter import VirtualPrinter  # noqa: E402
from windows import ROOT  # noqa: E402

PRINTER_ANSWER = EXAMPLES / "printer-answer.xml"
SCHEMA = ROOT / "packaging" / "bidi-extension.xsd"
PAGE = ROOT / "docs" / "bidi-extension-files.md"

BIDI = 'xmlns:bidi="http://schemas.microsoft.com/windows/2005/03/printing/bidi"'
PRINT = 'xmlns:pri="http://schemas.microsoft.com/windows/2006/08/wdp/print"'
ANSWER = f'<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" {PRINT}><s:Body/></s:Envelope>'
LEAF = 'query="pri:PrinterStatus" filter="pri:PrinterStatus/pri:PrinterState"'


def schema(body, attributes=""):
    return f"<Schema {BIDI} {PRINT} {attributes}>\n{body}\n</Schema>\n"


def printer(body):
    return schema(f'<Property name="Printer">\n{body}\n</Property>')


def lint(file):
    """Against the XML schema."""
    return subprocess.run(["xmllint", "--noout", "--nonet", "--schema", SCHEMA, file], timeout=60, capture_output=True,
                          text=True)


class Files(Companion):
    """Paths on the command line are relative to the test's folder."""

    def vlmctl(self, *arguments, **more):
        return super().vlmctl("bidi", *arguments, folder=self.folder, **more)


class Schema(Files):
    # What an XML schema can say, and the checker has to say the same about.
    SAMPLES = {
        "empty schema": (True, schema("")),
        "all leaves": (True, printer(
            f'<Value name="A" {LEAF}/><Value name="B" type="BIDI_INT" {LEAF}></Value><Installed name="C" {LEAF}/>'
            f'<List name="D" {LEAF}>\n</List><Const name="E" type="BIDI_FLOAT">1.5</Const><Const name="F"/>')),
        "every type": (True, printer("".join(
            f'<Value name="{t}" type="BIDI_{t}" {LEAF}/>' for t in ("INT", "STRING", "BOOL", "FLOAT", "BLOB")))),
        "types that say what is so anyway": (True, printer(
            f'<Installed name="A" type="BIDI_BOOL" {LEAF}/><List name="B" type="BIDI_STRING" {LEAF}/>')),
        "both ways of a parameter": (True, printer(
            f'<Property name="$A$"><Parameter parameter="A" {LEAF}/></Property>'
            f'<Parameter name="$B$" parameter="B" {LEAF}><Const name="C">$</Const>'
            f'<Parameter name="$D$" parameter="D" {LEAF}/></Parameter>')),
        "wrapped": (True, f'<bidi:Definition {BIDI} version="1"><Schema {PRINT}/></bidi:Definition>'),
        "bound to its schema": (True, schema("", 'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" '
                                                 'xsi:noNamespaceSchemaLocation="bidi-extension.xsd"')),
        "a comment and an instruction": (True, printer("<!-- <Nope/> --><?ed it?>")),
        "the same name for a level and a leaf": (True, printer('<Property name="A"/><Const name="A"/>')),

        "what only the platform's port monitor reads": (True, printer(
            f'<Value name="A" drvPrinterEvent="true" xmllang="1" {LEAF}/>'
            f'<Value name="B" optional="true" {LEAF}>no</Value><Value name="C" {LEAF}>also a default</Value>'
            f'<Value name="D" xmllang="false" optional="0" {LEAF}/>'
            f'<Installed name="E" drvPrinterEvent="TRUE" {LEAF}/><List name="F" drvPrinterEvent="false" {LEAF}/>')),
        "what stands beside a schema": (True, (
            f"<bidi:Definition {BIDI}><PortStatus/><Schema {PRINT}/><PortStatus><Status><Keyword>Paused</Keyword>"
            "<ResourceIdOffset>3</ResourceIdOffset><Severity>3</Severity></Status></PortStatus></bidi:Definition>")),

        "unknown element": (False, printer("<Constant/>")),
        "element in lower case": (False, printer('<value name="A"/>')),
        "unknown attribute": (False, printer(f'<Value name="A" default="0" {LEAF}/>')),
        "attribute of another element": (False, printer('<Const name="A" filter="pri:A"/>')),
        "foreign attribute": (False, printer(f'<Value name="A" bidi:hint="x" {LEAF}/>')),
        "leaf below the schema": (False, schema('<Const name="A"/>')),
        "parameter below the schema": (False, schema(f'<Parameter name="$A$" parameter="A" {LEAF}/>')),
        "element in a leaf": (False, printer('<Const name="A"><Const name="B"/></Const>')),
        "schema in a schema": (False, schema("<Schema/>")),
        "text in a level": (False, printer("text")),
        "text in a list": (False, printer(f'<List name="A" {LEAF}>text</List>')),
        "a language for a list": (False, printer(f'<List name="A" xmllang="true" {LEAF}/>')),
        "an event of what never changes": (False, printer('<Const name="A" drvPrinterEvent="true"/>')),
        "an event of a level": (False, printer('<Property name="A" drvPrinterEvent="true"/>')),
        "what is optional always": (False, printer(f'<Installed name="A" optional="true" {LEAF}/>')),
        "port status in a schema": (False, schema("<PortStatus/>")),
        "port status without a schema": (False, f"<bidi:Definition {BIDI}><PortStatus/></bidi:Definition>"),
        "level without name": (False, schema("<Property/>")),
        "leaf without name": (False, printer(f"<Value {LEAF}/>")),
        "leaf with an empty name": (False, printer('<Const name=""/>')),
        "value without filter": (False, printer('<Value name="A" query="pri:B"/>')),
        "value with an empty filter": (False, printer('<Value name="A" query="pri:B" filter=""/>')),
        "parameter without parameter": (False, printer(f'<Parameter name="A" {LEAF}/>')),
        "parameter in dollars": (False, printer(f'<Parameter name="$A$" parameter="$A$" {LEAF}/>')),
        "unknown type": (False, printer(f'<Value name="A" type="BIDI_TEXT" {LEAF}/>')),
        "type in lower case": (False, printer(f'<Value name="A" type="bidi_int" {LEAF}/>')),
        "installed as a number": (False, printer(f'<Installed name="A" type="BIDI_INT" {LEAF}/>')),
        "query without prefix": (False, printer('<Value name="A" query="B" filter="pri:B"/>')),
        "two queries": (False, printer('<Value name="A" query="pri:B pri:C" filter="pri:B"/>')),
        "dot in the name of a level": (False, schema('<Property name="A.B"/>')),
        "apostrophe in the name of a leaf": (False, printer('<Const name="A\'s"/>')),
        "leaf twice": (False, printer(f'<Const name="A"/><Value name="A" {LEAF}/>')),
        "elements in a namespace": (False, schema("", 'xmlns="urn:x"')),
        "not a schema": (False, f'<Property {BIDI} name="A"/>'),
        "wrapper around nothing": (False, f"<bidi:Definition {BIDI}/>"),
        "wrapper around something else": (False, f'<bidi:Definition {BIDI}><Property name="A"/></bidi:Definition>'),
        "not well-formed": (False, "<Schema>"),
    }

    def test_checker_and_schema_agree_on_structure(self):
        for name, (valid, text) in self.SAMPLES.items():
            with self.subTest(name):
                file = self.write("sample.xml", text)
                check, by_schema = self.vlmctl("check", file), lint(file)
                self.assertEqual(valid, by_schema.returncode == 0, by_schema.stderr)
                self.assertEqual(valid, check.returncode < 2, check.stdout + check.stderr)

    def test_examples_fit_the_schema(self):
        for file in EXAMPLES.glob("velun-*.xml"):
            self.assertEqual(lint(file).returncode, 0)


class Check(Files):
    def test_a_finding_is_one_line_whatever_the_file_holds(self):
        self.write("rude.xml", printer('<Const name="A" type="&#10;x:1: error: &#x9b;2J&#xFFFE1;Ünfug"/>'))
        done = self.vlmctl("check", "rude.xml")
        self.assertEqual(done.returncode, 2)
        self.assertEqual(len(done.stdout.splitlines()), 1, done.stdout)
        self.assertRegex(done.stdout, r"^rude\.xml:3:17: error: the type '\?x:1: error: \?2J.*Ünfug' is not one of ")

    def test_what_is_too_much_is_refused_at_once(self):
        bomb = "".join(f'<!ENTITY e{i} "&e{i - 1};&e{i - 1};">' for i in range(1, 40))
        for name, content, text in (
                ("large.xml", b"<Schema>" + b" " * (9 << 20) + b"</Schema>", "larger than 8 MB"),
                ("deep.xml", "<a>\n" * 10000 + "</a>" * 10000, "deep.xml:101:1: error: elements are nested deeper"),
                ("bomb.xml", f'<?xml version="1.0"?>\n<!DOCTYPE a [<!ENTITY e0 "x">{bomb}]>\n<a>&e39;</a>',
                 "bomb.xml:2:1: error: the file has a document type"),
                ("many.xml", "<a>" + "<b/>" * 400001 + "</a>", "many.xml:1:1: error: the file has too many elements"),
                ("findings.xml", printer("<b/>\n" * 2000), "too many findings")):
            with self.subTest(name):
                done = self.vlmctl("check", self.write(name, content))
                self.assertIn(done.returncode, (2, 3))
                self.assertIn(text, done.stdout + done.stderr)
                self.assertLess(len(done.stdout.splitlines()), 600)
        self.fails("check", ".", status=3, says=r"\. cannot be opened: ")

    def test_programs_read_the_same_findings(self):
        self.write("a b.xml", printer('<Value name="Ü" type="BIDI_TEXT" query="pri:A" filter="pri:B["/>'))
        files = ["a b.xml", "missing.xml"]
        text = self.vlmctl("check", *files)
        findings = json.loads(self.vlmctl("check", "--json", *files).stdout)
        self.assertEqual([f"{f['file']}:{f['line']}:{f['column']}: {f['severity']}: {f['text']} [{f['rule']}]"
                          for f in findings], text.stdout.splitlines())
        self.assertEqual(len(findings), 3)

        done = self.vlmctl("check", "--sarif", *files)
        self.assertEqual((done.returncode, done.stderr), (3, text.stderr))
        log = json.loads(done.stdout)
        self.assertEqual((log["version"], len(log["runs"])), ("2.1.0", 1))
        run = log["runs"][0]
        rules = run["tool"]["driver"]["rules"]
        self.assertEqual({type(run["tool"]["driver"][key]) for key in ("name", "version")}, {str})
        for rule in rules:
            self.assertIn(rule["defaultConfiguration"]["level"], ("error", "warning"))
            self.assertTrue(rule["shortDescription"]["text"])
        self.assertEqual([(rules[r["ruleIndex"]]["id"], r["level"], r["message"]["text"]) for r in run["results"]],
                         [(f["rule"], f["severity"], f["text"]) for f in findings])
        places = [r["locations"][0]["physicalLocation"] for r in run["results"]]
        self.assertEqual([(p["region"]["startLine"], p["region"]["startColumn"]) for p in places],
                         [(f["line"], f["column"]) for f in findings])
        self.assertEqual({p["artifactLocation"]["uri"] for p in places}, {"a%20b.xml"})
        self.assertFalse(run["invocations"][0]["executionSuccessful"])
        self.assertIn("missing.xml", run["invocations"][0]["toolExecutionNotifications"][0]["message"]["text"])
        page = PAGE.read_text("utf-8")
        self.assertEqual([rule["id"] for rule in rules if f"`{rule['id']}`" not in page], [])

    def test_an_answer_shows_what_comes_to_nothing(self):
        answer = ["--wsd", PRINTER_ANSWER]
        value = '<Value name="{}" query="pri:{}" filter="{}"/>'.format
        for what, text, found in (
                ("in order", printer(value("A", "PrinterStatus", "pri:PrinterStatus/pri:PrinterState")), []),
                ("nothing to find", printer(value("A", "PrinterStatus", "pri:PrinterStatus/pri:Mood")),
                 ["3:43 nothing-found"]),
                ("an element that does not come, once", printer(
                    value("A", "Mood", "pri:Mood/pri:A") + "\n" + value("B", "Mood", "pri:Mood")),
                 ["3:17 element-not-sent"]),
                ("a namespace", schema("", 'xmlns:q="urn:q"'), ["1:148 namespace-not-sent"]),
                ("a parameter, not what is in it", printer(
                    '<Parameter name="$P$" parameter="P" query="pri:PrinterStatus" filter="pri:PrinterStatus/pri:Mood">'
                    + value("A", "PrinterStatus", "pri:PrinterStatus/pri:X[.='$P$']") + "</Parameter>"),
                 ["3:63 nothing-found"]),
                ("the same as a level's", printer(
                    '<Property name="$P$"><Parameter parameter="P" query="pri:PrinterStatus" '
                    'filter="pri:PrinterStatus/pri:Mood"/>'
                    + value("A", "PrinterStatus", "pri:PrinterStatus/pri:X[.='$P$']") + "</Property>"),
                 ["3:73 nothing-found"]),
                ("one of many has it", printer(
                    '<Parameter name="$P$" parameter="P" query="pri:PrinterConfiguration" '
                    'filter="pri:PrinterConfiguration//pri:AllowedValue|//pri:Color">'
                    + value("A", "PrinterConfiguration", "pri:PrinterConfiguration//*[pri:Color='$P$' and .//pri:Level&gt;80]")
                    + "</Parameter>"), []),
                ("a value that fails all", printer(
                    '<Parameter name="$P$" parameter="P" query="pri:PrinterStatus" '
                    'filter="pri:PrinterStatus/pri:PrinterCurrentTime">'
                    + value("A", "PrinterStatus", "pri:PrinterStatus[$P$]") + "</Parameter>"),
                 ["1:1 unusable-with-answer", "3:181 unquoted-parameter"])):
            with self.subTest(what):
                done = self.vlmctl("check", "--json", self.write("e.xml", text), *answer)
                self.assertEqual([f"{f['line']}:{f['column']} {f['rule']}" for f in json.loads(done.stdout)], found)
                errors = any("unusable" in one for one in found)
                self.assertEqual(done.returncode, 2 if errors else 1 if found else 0, done.stderr)
        self.fails("check", "e.xml", "--wsd", "nowhere.xml", status=3, says="nowhere.xml cannot be opened")


class Query(Files):
    ASK = [*EXTENSIONS, "--wsd", PRINTER_ANSWER]

    def answers(self, action, *paths):
        done = self.vlmctl(action, "--json", *self.ASK, *paths)
        answers = json.loads(done.stdout)
        found = any(answer["result"] == 0 for answer in answers)
        self.assertEqual((done.returncode, done.stderr), (0, "") if found else (3, "vlmctl: nothing was found\n"))
        return [(a["path"], a["type"], a["value"], a["result"]) for a in answers]

    def test_get_answers_each_path_in_order(self):
        expected = [
            ("\\Printer.Consumables.Yellow:Level", "BIDI_INT", "8", 0),
            ("\\Printer.DeviceInfo:Location", "BIDI_STRING", "Zürich, 2. Stock", 0),
            ("\\Printer:Nothing", "BIDI_NULL", None, 232),
            ("\\Printer.DeviceInfo:ColorSupported", "BIDI_BOOL", "true", 0),
            ("\\Printer.DeviceInfo:AveragePowerWatts", "BIDI_FLOAT", "14.5", 0),
            ("\\Printer.DeviceInfo:SchemaVersion", "BIDI_INT", "3", 0),
            ("\\Printer.Finishing.Booklet:Installed", "BIDI_BOOL", "false", 0),
            ("\\Printer.Layout.InputBins.Manual:MediaType", "BIDI_STRING", "envelope", 0),
            ("\\Printer.Status.Conditions.InputTray.1047:Severity", "BIDI_STRING", "Informational", 0),
            ("\\Printer.Status:Reasons", "BIDI_STRING", "AttentionRequired,MarkerSupplyLow,MediaEmpty", 0),
        ]
        self.assertEqual(self.answers("get", *(path for path, *_ in expected)), expected)
        self.assertEqual(self.answers("get", "\\Printer.DeviceInfo:CertificateHash")[0][2:], (None, 232))

    def test_failures_are_one_clear_line(self):
        self.write("good.xml", printer(f'<Value name="A" {LEAF}/>'))
        self.write("cut.xml", "<Schema")
        self.write("other.xml", schema("").replace("wdp/print", "wdp/scan"))
        self.write("answer.xml", ANSWER)
        self.write("html.xml", "<html/>")
        self.write("clash.xml", ANSWER.replace(PRINT, f'{PRINT.replace(":pri=", ":w=")} xmlns:pri="urn:x"'))
        for arguments, text in (
                (["get", "--ext", "missing.xml", "--wsd", "answer.xml", "\\"], "missing.xml"),
                (["get", "--ext", "cut.xml", "--wsd", "answer.xml", "\\"], "cut.xml"),
                (["explain", "--ext", "cut.xml", "\\P:V"], "cut.xml:1:"),
                (["get", "--ext", "good.xml", "--wsd", "missing.xml", "\\"], "missing.xml cannot be opened"),
                (["get", "--ext", "good.xml", "--wsd", "html.xml", "\\"], "printer's answer"),
                (["get", "--ext", "good.xml", "--wsd", "clash.xml", "\\"], 'prefix "pri" is "urn:x" in the printer'),
                (["get", "--ext", "good.xml", "--ext", "other.xml", "--wsd", "answer.xml", "\\"], '"pri"'),
                (["getall", "--ext", "good.xml", "--wsd", "answer.xml", "\\it's"], "apostrophe"),
                (["enum", "--ext", "good.xml", "\\Nowhere"], "none of these paths")):
            with self.subTest(arguments):
                done = self.fails(*arguments, status=3 if text == "none of these paths" else 1, says=text)
                self.assertEqual(done.stdout, "")

    def test_file_names_may_hold_anything(self):
        name = "Büro & Co 100%.xml"
        self.write(name, printer('<Const name="A" type="BIDI_STRING">x</Const>'))
        self.write("answer.xml", ANSWER)
        answers = self.works("get", "--json", "--ext", name, "--wsd", "answer.xml", "\\Printer:A")
        self.assertEqual(json.loads(answers)[0]["value"], "x")

    def test_one_file_may_come_on_standard_input(self):
        good = printer('<Const name="A" type="BIDI_STRING">x</Const>')
        self.write("good.xml", good)
        self.write("answer.xml", ANSWER)
        page = PRINTER_ANSWER.read_text("utf-8")
        path = "\\Printer:A"
        for arguments, stdin, status, text in (
                (["check", "-"], good, 0, ""),
                (["check", "good.xml", "-"], printer("<Nope/>"), 2, "-:3:1: error: unknown element 'Nope'"),
                (["check", "-"], "<a", 2, "-:1:2: error: not well-formed"),
                (["get", "--ext", "-", "--wsd", "answer.xml", path], good, 0, "BIDI_STRING  x"),
                (["get", "--ext", "-", "--wsd", "answer.xml", path], "<a", 1, "cannot be used: -:1:2: "),
                (["get", "--ext", "good.xml", "--ext", "-", "--wsd", "answer.xml", path],
                 good.replace("wdp/print", "wdp/scan"), 1, 'wdp/scan" in -, but'),
                (["explain", "--ext", "-", path], good, 0, "A: Const in -:3:1"),
                # The answer is needed more than once.
                (["explain", *EXTENSIONS, "--wsd", "-", "\\Printer:Nope"], page, 3, "not-in-files"),
                (["check", "-", "-"], good, 2, "only one file can be '-'"),
                (["get", "--ext", "-", "--wsd", "-", path], good, 2, "only one file can be '-'")):
            with self.subTest(arguments):
                done = self.vlmctl(*arguments, stdin=stdin)
                self.assertEqual(done.returncode, status, done.stdout + done.stderr)
                self.assertIn(text, done.stdout + done.stderr)
                self.assertNotIn(".tmp", done.stdout + done.stderr)

    def test_table_shows_no_control_characters(self):
        self.write("e.xml", printer('<Const name="A" type="BIDI_STRING">a&#10;b&#x9b;2J</Const>'))
        self.write("answer.xml", ANSWER)
        done = self.vlmctl("get", "--ext", "e.xml", "--wsd", "answer.xml", "\\Printer:A")
        self.assertEqual(done.stdout.splitlines()[1:], ["\\Printer:A  BIDI_STRING  a?b?2J  0 found"])


class New(Files):
    def test_a_live_printer_is_asked_for_what_is_published(self):
        with VirtualPrinter() as printer:
            self.works("new", "p.xml", "--printer", printer.wsd_url)
            done = self.vlmctl("check", "p.xml", "--printer", printer.wsd_url)
            self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
            driver = (self.folder / "p.ini").read_text()
            self.assertIn("[BidiFiles]\nBidiWSDFile=p.xml\n", driver)
            answers = self.works("getall", "--ext", "p.xml", "--printer", printer.wsd_url, "--port", "wsd", "\\")
            self.assertRegex(answers, r"(?m)^\\Printer\.PrinterStatus:PrinterState +BIDI_STRING +Idle +0 found +engine$")
            self.assertNotIn("232", answers)

    def test_nothing_is_overwritten_unless_it_is_told_to(self):
        for there in ("a.xml", "a.ini"):
            with self.subTest(there):
                self.write(there, "mine")
                self.fails("new", "a.xml", "--wsd", PRINTER_ANSWER, says="--force")
                self.assertEqual((self.folder / there).read_text(), "mine")
                self.assertEqual(len(list(self.folder.iterdir())), 1)
                self.works("new", "a.xml", "--wsd", PRINTER_ANSWER, "--force")
                self.assertNotEqual((self.folder / there).read_text(), "mine")
                for file in self.folder.iterdir():
                    file.unlink()

    def test_what_cannot_be_done_is_said_and_leaves_nothing(self):
        self.write("html.xml", "<html/>")
        (self.folder / "none.xml").write_text(re.sub(r"(?s)<wprt:ElementData.*</wprt:ElementData>|<!--.*?-->", "",
                                                     PRINTER_ANSWER.read_text("utf-8")))
        for file, answer, status, says in (("x.xml", "html.xml", 1, "html.xml"), ("x.xml", "none.xml", 3, "no elements"),
                                           ("x.xml", "missing.xml", 1, "cannot be opened"),
                                           ("a,b.xml", PRINTER_ANSWER, 2, "INI"), ("x.ini", PRINTER_ANSWER, 2, "INI"),
                                           ("nowhere/x.xml", PRINTER_ANSWER, 1, "cannot write ")):
            with self.subTest(file=file, answer=answer):
                done = self.fails("new", file, "--wsd", answer, status=status, says=says)
                self.assertEqual(done.stdout, "")
        self.assertEqual({file.name for file in self.folder.iterdir()}, {"html.xml", "none.xml"})


if __name__ == "__main__":
    unittest.main()
