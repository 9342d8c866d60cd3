"""vlmctl status and bidi on answers as printers of many makes write them."""

import json
import re
import unittest

from companion import EXAMPLES, EXTENSIONS, Companion

ANSWER = (EXAMPLES / "printer-answer.xml").read_text("utf-8")
PRINT = "http://schemas.microsoft.com/windows/2006/08/wdp/print"


def replaced(text, *changes):
    for old, new in changes:
        changed = re.sub(old, new, text)
        assert changed != text, old
        text = changed
    return text


QUALIFIED = (r' (Name|Id|Valid)="', r' wprt:\1="')
ACTIVE_CONDITION = (r"ActiveConditions", r"ActiveCondition")
COMPONENT = (r"<wprt:Component>(\w+)</wprt:Component>",
             r"<wprt:Component>\n<wprt:Group>\1</wprt:Group>\n<wprt:Name>Left</wprt:Name>\n</wprt:Component>")

AS_PUBLISHED = replaced(ANSWER, QUALIFIED, ACTIVE_CONDITION, COMPONENT)

# The same printer, spelt in another way.
SPELLINGS = {
    "as it is": ANSWER,
    "the print service's namespace is the default one": replaced(ANSWER, ("(</?)wprt:", r"\1"), ("xmlns:wprt", "xmlns"),
                                                                 ('"wprt:Printer', '"Printer')),
    "namespaces are declared where they are used": replaced(
        ANSWER, (r'\s+xmlns:(wprt|vln)="[^"]+"', ""),
        (r"<wprt:GetPrinterElementsResponse>", f'<wprt:GetPrinterElementsResponse xmlns:wprt="{PRINT}">'),
        (r'(<wprt:ElementData)( Name="vln:)', r'\1 xmlns:vln="http://velun.example/wsd/print/2026"\2')),
    "the envelope's namespace is the default one": replaced(ANSWER, ("(</?)soap:", r"\1"), ("xmlns:soap", "xmlns")),
    "each part has a default namespace of its own": replaced(
        ANSWER, (r'(?s)<wprt:ElementData Name="wprt:(\w+)"(.*?)</wprt:ElementData>',
                 lambda part: re.sub("(</?)wprt:", r"\1", part[0]).replace('"wprt:', '"')
                 .replace("<ElementData", f'<ElementData xmlns="{PRINT}"'))),
    "UTF-16 in network order": b"\xfe\xff" + ANSWER.replace("utf-8", "UTF-16").encode("utf-16-be"),
    "comments and instructions": replaced(ANSWER, (r">([^<>\s]+)</wprt:", r"><!-- a -->\1<!-- b --></wprt:"),
                                          ("<wprt:Storage>", "<wprt:Storage><?x y?><!-- <wprt:Level>1 -->")),
    "values on lines of their own": replaced(ANSWER, (r">(\d+|true|Processing)</wprt:", r">\n      \1\n    </wprt:")),
    "Valid with blanks": replaced(ANSWER, ('Valid="true"', 'Valid=" true\n"')),
    "Valid in another way": replaced(ANSWER, ('Valid="true"', 'Valid="1"')),
    "several languages": replaced(ANSWER, (r"(<wprt:PrinterName.*>)",
                                           r'\1<wprt:PrinterName xml:lang="fr">L\'imprimante</wprt:PrinterName>')),
}


class Answers(Companion):
    def bidi(self, *arguments):
        return {answer["path"]: (answer["type"], answer["value"], answer["result"])
                for answer in json.loads(self.works("bidi", *arguments, "--json", "\\"))}

    def saved(self, answer, *extensions):
        return self.bidi("getall", *extensions, "--wsd", self.write("answer.xml", answer))

    def status(self, answer):
        return self.works("status", self.serve(answer))


class Spellings(Answers):
    def test_a_printer_says_the_same_however_it_spells_it(self):
        values = self.saved(ANSWER, *EXTENSIONS)
        self.assertGreater(len(values), 70)
        status = self.status(ANSWER)
        self.assertEqual(len(status.splitlines()), 19, status)
        for what, answer in SPELLINGS.items():
            with self.subTest(what):
                self.assertEqual(self.saved(answer, *EXTENSIONS), values)
                self.assertEqual(self.status(answer), status)

    def test_a_prefix_inside_the_answer_means_nothing_to_the_paths_that_are_asked(self):
        answer = replaced(ANSWER, ("<wprt:Storage>", '<wprt:Storage><vln:X xmlns:vln="urn:third">1</vln:X>'))
        for source in (("--wsd", self.write("answer.xml", answer)), ("--printer", self.serve(answer))):
            # One of the print service's names alone, one of the vendor's.
            for path in ("\\Printer.Configuration.Memory:Size", "\\Printer.DeviceInfo:AveragePowerWatts"):
                with self.subTest(source=source[0], path=path):
                    answered = json.loads(self.works("bidi", "get", *EXTENSIONS, *source, "--json", path))
                    self.assertEqual(answered[0]["result"], 0)

    def test_a_saved_answer_holds_what_the_paths_ask_for(self):
        extension = self.write("extension.xml", f"""<d:Definition xmlns:d="http://schemas.microsoft.com/windows/2005/03/printing/bidi">
<Schema xmlns:pri="{PRINT}" xmlns:again="{PRINT}"><Property name="P">
<Value name="Asked" query="again:PrinterStatus" filter="pri:PrinterState"/>
<Value name="Unasked" filter="pri:PrinterConfiguration//pri:Size"/></Property></Schema></d:Definition>""")
        file = self.write("answer.xml", ANSWER)
        for source, results in ((("--wsd", file), [0, 232]), (("--wsd", file, "--whole"), [0, 0])):
            answered = json.loads(self.works("bidi", "get", "--ext", extension, *source, "--json",
                                             "\\P:Asked", "\\P:Unasked"))
            self.assertEqual([one["result"] for one in answered], results, source)

    def test_components_are_understood_in_one_text_and_as_published(self):
        self.assertEqual(self.saved(AS_PUBLISHED, *EXTENSIONS), self.saved(ANSWER, *EXTENSIONS))
        self.assertIn("conditions   Marker: MarkerSupplyLow (Warning)\n", self.status(ANSWER))
        self.assertIn("conditions   Marker Left: MarkerSupplyLow (Warning)\n", self.status(AS_PUBLISHED))

    def test_names_may_hold_blanks(self):
        answer = replaced(ANSWER, ("Tray1", "Tray 1 (left)"), ("Black", "Photo  Black"))
        values = self.saved(answer, *EXTENSIONS)
        self.assertEqual(values[r"\Printer.Layout.InputBins.Tray 1 (left):Level"], ("BIDI_INT", "75", 0))
        self.assertEqual(values[r"\Printer.Consumables.Photo  Black:Level"], ("BIDI_INT", "85", 0))
        self.assertRegex(self.status(answer), r"(?m)^  Tray 1 \(left\)  \[#{15}")


class SmallServices(Answers):
    """What programs answer that play a printer so that the system prints to them."""

    # Whatever is asked for, it tells its name and little else, with booleans as numbers, and says of no element that it
    # is valid.
    HARDLY_ANYTHING = f"""<?xml version="1.0" encoding="UTF-8"?>
<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"
 xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing">
<s:Header><a:To>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</a:To></s:Header>
<s:Body><wprt:GetPrinterElementsResponse xmlns:wprt="{PRINT}"><wprt:PrinterElements>
<wprt:ElementData Name="wprt:PrinterDescription"><wprt:PrinterDescription>
<wprt:PrinterName>Catcher &amp; Co</wprt:PrinterName></wprt:PrinterDescription></wprt:ElementData>
<wprt:ElementData Name="wprt:PrinterConfiguration"><wprt:PrinterConfiguration>
<wprt:Finishings><wprt:StaplerInstalled>0</wprt:StaplerInstalled><wprt:HolePunchInstalled>1</wprt:HolePunchInstalled>
</wprt:Finishings></wprt:PrinterConfiguration></wprt:ElementData></wprt:PrinterElements></wprt:GetPrinterElementsResponse></s:Body>
</s:Envelope>"""

    def test_what_little_they_say_is_answered(self):
        values = self.saved(self.HARDLY_ANYTHING, *EXTENSIONS)
        self.assertEqual({path: value for path, (_, value, result) in values.items()
                          if result == 0 and not re.search("Installed|Schema|Finisher", path)},
                         {r"\Printer.DeviceInfo:Manufacturer": "Velun", r"\Printer.DeviceInfo:ModelName": "Catcher & Co",
                          r"\Printer.DeviceInfo:StaplesPerCartridge": "5000"})
        self.assertEqual([values[rf"\Printer.Finishing.{unit}:Installed"][1] for unit in ("Stapler", "Punch")],
                         ["false", "true"])
        self.assertEqual(self.status(self.HARDLY_ANYTHING), "printer      Catcher & Co\n")


class Status(Answers):
    def test_level_that_the_printer_cannot_tell_is_unknown(self):
        for level, shown in (("-1", "level unknown"), ("\n-1 ", "level unknown"), ("", "level unknown"),
                             ("0", r"\[\.{20}\]   0%"), ("low", "low")):
            with self.subTest(level=level):
                status = self.status(replaced(ANSWER, (">(85|75)</wprt:Level>", f">{level}</wprt:Level>")))
                self.assertRegex(status, rf"(?m)^  Black    {shown} +Toner VT-42K$")
                self.assertRegex(status, rf"(?m)^  Tray1   {shown} +iso_a4")

    def test_supply_without_a_colour_has_its_name(self):
        waste = '<wprt:ConsumableEntry wprt:Name="Waste"><wprt:Type>WasteToner</wprt:Type>' \
                "<wprt:Color>Other</wprt:Color><wprt:Level>-1</wprt:Level></wprt:ConsumableEntry></wprt:Consumables>"
        self.assertRegex(self.status(replaced(ANSWER, ("</wprt:Consumables>", waste))),
                         r"(?m)^  Waste +level unknown +WasteToner$")

    def test_only_what_a_printer_denies_is_invalid(self):
        for mark, denied in (("", False), ('wprt:Valid=" true "', False), ('Valid=""', False),
                             ('Valid="false"', True), ('wprt:Valid=" 0 "', True), ('Valid="False"', True)):
            answer = replaced(ANSWER, ('"wprt:PrinterStatus" Valid="true"', f'" wprt:PrinterStatus " {mark}'))
            with self.subTest(mark=mark):
                elements = json.loads(self.works("bidi", "enum", *EXTENSIONS, "--printer", self.serve(answer), "--json", "\\"))
                self.assertEqual([element["name"] for element in elements if not element["answered"]],
                                 ["pri:PrinterStatus"] if denied else [])
        self.fails("wsd", self.serve(ANSWER.replace('Valid="true"', 'wprt:Valid=" 0 "')), "PrinterStatus", status=3,
                   says="no valid pri:PrinterDescription, .*pri:PrinterStatus")


if __name__ == "__main__":
    unittest.main()
