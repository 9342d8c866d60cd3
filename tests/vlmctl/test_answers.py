"""vlmctl status and bidi on answers as printers of many makes write them."""

import json
import random
import re
import unittest
import xml.etree.ElementTree
import xml.sax.saxutils

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
    "a declaration that nothing uses": replaced(ANSWER, ("<wprt:Storage>", '<wprt:Storage xmlns:never="urn:never">')),
    "our prefixes for something else, where it stands": replaced(
        ANSWER, ("<wprt:Storage>", '<wprt:Storage><pri:X xmlns:pri="urn:a"/><vln:X xmlns:vln="urn:b">1</vln:X>')),
    "addressing of 2005/08": replaced(ANSWER, ("http://schemas.xmlsoap.org/ws/2004/08/addressing",
                                               "http://www.w3.org/2005/08/addressing")),
    "no header": replaced(ANSWER, (r"(?s)<soap:Header>.*</soap:Header>", "")),
    "UTF-8 with a byte order mark": b"\xef\xbb\xbf" + ANSWER.encode(),
    "UTF-16": b"\xff\xfe" + ANSWER.replace("utf-8", "utf-16").encode("utf-16-le"),
    "UTF-16 in network order": b"\xfe\xff" + ANSWER.replace("utf-8", "UTF-16").encode("utf-16-be"),
    "no XML declaration": replaced(ANSWER, (r"<\?xml.*?\?>\s*", "")),
    "CDATA": replaced(ANSWER, (r">([^<>\s][^<>]*)</wprt:(\w+)>", r"><![CDATA[\1]]></wprt:\2>")),
    "comments and instructions": replaced(ANSWER, (r">([^<>\s]+)</wprt:", r"><!-- a -->\1<!-- b --></wprt:"),
                                          ("<wprt:Storage>", "<wprt:Storage><?x y?><!-- <wprt:Level>1 -->")),
    "line ends of another system": ANSWER.replace("\n", "\r\n").encode(),
    "references for characters": replaced(ANSWER, ("Black", "&#66;l&#x61;ck"), (">true<", ">&#116;rue<")),
    "all in one line": replaced(ANSWER, (r">\s+<", "><")),
    "values on lines of their own": replaced(ANSWER, (r">(\d+|true|Processing)</wprt:", r">\n      \1\n    </wprt:")),
    "no Valid": replaced(ANSWER, (' Valid="true"', "")),
    "Valid with blanks": replaced(ANSWER, ('Valid="true"', 'Valid=" true\n"')),
    "Valid in another way": replaced(ANSWER, ('Valid="true"', 'Valid="1"')),
    "qualified attributes": replaced(ANSWER, QUALIFIED),
    "the name of the list of conditions as published": replaced(ANSWER, ACTIVE_CONDITION),
    "several languages": replaced(ANSWER, (r"(<wprt:PrinterName.*>)",
                                           r'\1<wprt:PrinterName xml:lang="fr">L\'imprimante</wprt:PrinterName>')),
}


class Speller:
    """The same answer written by chance: prefixes, declarations, white space, comments and CDATA wherever they may be."""

    PREFIXES = ("", "pri", "vln", "wprt", "soap", "ns1", "x")
    URIS = {"wprt": PRINT, "vln": "http://velun.example/wsd/print/2026"}

    def __init__(self, seed):
        self.random = random.Random(seed)

    def chance(self, share):
        return self.random.random() < share

    def write(self):
        return self.element(xml.etree.ElementTree.fromstring(ANSWER), {}, root=True)

    def prefix(self, uri, scope, declared, root, empty=True):
        """A prefix in scope for the namespace, or a new one, which is added to the declared ones."""
        known = [prefix for prefix, bound in {**scope, **declared}.items() if bound == uri and (prefix or empty)]
        if known and self.chance(0.8):
            prefix = self.random.choice(known)
            # Declared once more, so that nothing else on this element takes it.
            declared[prefix] = uri
            return prefix
        # What the root binds to another namespace than the extension files is a mismatch, and meant to be one.
        free = [prefix for prefix in self.PREFIXES
                if prefix not in declared and (prefix or empty) and not (root and prefix in ("pri", "vln"))]
        prefix = self.random.choice(free)
        declared[prefix] = uri
        return prefix

    def element(self, element, scope, root=False):
        uri, local = element.tag[1:].split("}")
        declared = {}
        if not root and self.chance(0.1):
            declared[self.random.choice(self.PREFIXES[1:])] = f"urn:nothing{self.random.randrange(3)}"
        prefix = self.prefix(uri, scope, declared, root)
        attributes = []
        for key, value in element.attrib.items():
            if key.startswith("{"):
                key = "xml:" + key.split("}")[1]
            elif uri == PRINT and self.chance(0.3):
                own = self.prefix(PRINT, scope, declared, root, empty=False)
                key = f"{own}:{key}"
            if local == "ElementData" and key.endswith("Name"):
                named, name = value.split(":")
                own = self.prefix(self.URIS[named], scope, declared, root)
                value = f"{own}:{name}" if own else name
            attributes.append((key, value))
        scope = {**scope, **declared}
        attributes += [("xmlns:" + name if name else "xmlns", bound) for name, bound in declared.items()]
        self.random.shuffle(attributes)
        tag = f"{prefix}:{local}" if prefix else local
        written = "".join(f" {key}={xml.sax.saxutils.quoteattr(self.blanks() + value + self.blanks())}"
                          if not key.startswith("xml") else f" {key}={xml.sax.saxutils.quoteattr(value)}"
                          for key, value in attributes)
        inside = "".join(self.blanks() + self.element(child, scope) for child in element)
        if not len(element):
            inside = self.text((element.text or "").strip())
        return f"<{tag}{written}>{inside}{self.blanks()}</{tag}>"

    def blanks(self):
        return self.random.choice(("", "", "", " ", "\n  "))

    def text(self, text):
        cut = self.random.randrange(len(text) + 1)
        pieces = [f"<![CDATA[{piece}]]>" if self.chance(0.2) else xml.sax.saxutils.escape(piece)
                  for piece in (text[:cut], text[cut:])]
        return self.blanks() + self.random.choice(("", "<!-- c -->", "<?p i?>")).join(pieces)


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

    def test_a_printer_says_the_same_whatever_it_is_spelt_by_chance(self):
        values = self.saved(ANSWER, *EXTENSIONS)
        for seed in range(30):
            answer = Speller(seed).write()
            with self.subTest(seed=seed, answer=answer):
                self.assertEqual(self.saved(answer, *EXTENSIONS), values)

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

    # Whatever is asked for, its name is all that it tells, and it says of no element that it is valid.
    ITS_NAME_ALONE = f"""<?xml version="1.0" encoding="UTF-8"?>
<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"
 xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing">
<s:Header><a:To>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</a:To></s:Header>
<s:Body><wprt:GetPrinterElementsResponse xmlns:wprt="{PRINT}"><wprt:PrinterElements>
<wprt:ElementData Name="wprt:PrinterDescription"><wprt:PrinterDescription>
<wprt:PrinterName>Catcher &amp; Co</wprt:PrinterName>
</wprt:PrinterDescription></wprt:ElementData></wprt:PrinterElements></wprt:GetPrinterElementsResponse></s:Body>
</s:Envelope>"""

    # All namespaces of its other messages on the root, none of the optional elements, booleans as numbers.
    THE_LEAST = f"""<?xml version="1.0" encoding="UTF-8"?><SOAP-ENV:Envelope
 xmlns:SOAP-ENV="http://www.w3.org/2003/05/soap-envelope" xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing"
 xmlns:wsd="http://schemas.xmlsoap.org/ws/2005/04/discovery"
 xmlns:wscn="http://schemas.microsoft.com/windows/2006/08/wdp/scan" xmlns:wprt="{PRINT}">
<SOAP-ENV:Header><wsd:AppSequence InstanceId="7" MessageNumber="2"/></SOAP-ENV:Header><SOAP-ENV:Body>
<wprt:GetPrinterElementsResponse><wprt:PrinterElements>
<wprt:ElementData Name="wprt:PrinterDescription" Valid="true"><wprt:PrinterDescription>
<wprt:ColorSupported>1</wprt:ColorSupported><wprt:PagesPerMinute>8</wprt:PagesPerMinute>
<wprt:PrinterName xml:lang="en-US">Bridge</wprt:PrinterName></wprt:PrinterDescription></wprt:ElementData>
<wprt:ElementData Name="wprt:PrinterConfiguration" Valid="true"><wprt:PrinterConfiguration>
<wprt:Finishings><wprt:StaplerInstalled>0</wprt:StaplerInstalled><wprt:HolePunchInstalled>1</wprt:HolePunchInstalled>
</wprt:Finishings></wprt:PrinterConfiguration></wprt:ElementData>
<wprt:ElementData Name="wprt:PrinterStatus" Valid="true"><wprt:PrinterStatus><wprt:PrinterState>Idle</wprt:PrinterState>
<wprt:PrinterPrimaryStateReason>None</wprt:PrinterPrimaryStateReason><wprt:QueuedJobCount>0</wprt:QueuedJobCount>
</wprt:PrinterStatus></wprt:ElementData>
</wprt:PrinterElements></wprt:GetPrinterElementsResponse></SOAP-ENV:Body></SOAP-ENV:Envelope>"""

    def found(self, answer):
        return {path: value for path, (_, value, result) in self.saved(answer, *EXTENSIONS).items() if result == 0
                if "Installed" not in path and "Schema" not in path and "Finisher" not in path}

    def test_what_little_they_say_is_answered(self):
        manufacturer = {r"\Printer.DeviceInfo:Manufacturer": "Velun",
                        r"\Printer.DeviceInfo:StaplesPerCartridge": "5000"}
        self.assertEqual(self.found(self.ITS_NAME_ALONE),
                         {**manufacturer, r"\Printer.DeviceInfo:ModelName": "Catcher & Co"})
        self.assertEqual(self.status(self.ITS_NAME_ALONE), "printer      Catcher & Co\n")
        self.assertEqual(self.found(self.THE_LEAST),
                         {**manufacturer, r"\Printer.DeviceInfo:ModelName": "Bridge",
                          r"\Printer.DeviceInfo:PagesPerMinute": "8", r"\Printer.DeviceInfo:ColorSupported": "false",
                          r"\Printer.Status:State": "Idle", r"\Printer.Status:QueuedJobs": "0"})
        self.assertEqual(self.status(self.THE_LEAST).split(),
                         "printer Bridge state Idle reasons None queued jobs 0".split())
        installed = self.saved(self.THE_LEAST, *EXTENSIONS)
        self.assertEqual([installed[rf"\Printer.Finishing.{unit}:Installed"][1] for unit in ("Stapler", "Punch")],
                         ["false", "true"])


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
            answer = replaced(ANSWER, ('Valid="true"', mark), ('"wprt:PrinterStatus"', '" wprt:PrinterStatus "'))
            with self.subTest(mark=mark):
                elements = json.loads(self.works("bidi", "enum", *EXTENSIONS, "--printer", self.serve(answer), "--json", "\\"))
                self.assertEqual({element["answered"] for element in elements}, {not denied})
        self.fails("wsd", self.serve(ANSWER.replace('Valid="true"', 'wprt:Valid=" 0 "')), "PrinterStatus", status=3,
                   says="no valid pri:PrinterDescription, .*pri:PrinterStatus")


if __name__ == "__main__":
    unittest.main()
