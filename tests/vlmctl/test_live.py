"""vlmctl wsd, status and bidi --printer, from the command line to a printer that answers live."""

import json
import unittest
import xml.etree.ElementTree as ElementTree

from companion import EXAMPLES, EXTENSIONS, NOBODY, WithPrinter, windows

PRINT = "http://schemas.microsoft.com/windows/2006/08/wdp/print"
VENDOR = "http://velun.example/wsd/print/2026"
NO_PRINTER = f"http://{NOBODY}/wsd/print/"

BLACK = r"\Printer.Consumables.Black:Level"
STATE = r"\Printer.Status.Summary:State"  # of the lower monitor alone
URL = r"\Printer.Velun.OIP.Service.WSDPrintServices:WSDPrintServiceURL"


def envelope(parts):
    return (f'<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:p="{PRINT}" xmlns:v="{VENDOR}">'
            f"<s:Body><p:GetPrinterElementsResponse><p:PrinterElements>{parts}</p:PrinterElements>"
            "</p:GetPrinterElementsResponse></s:Body></s:Envelope>")


class Live(WithPrinter):
    def setUp(self):
        super().setUp()
        self.printer.set_machine(location="Zürich, 2. Stock", toner={"Black": 85}, trays={"Tray1": 75})

    def bidi(self, action, *arguments):
        answers = self.works("bidi", action, *EXTENSIONS, "--printer", self.url, "--json", *arguments)
        return json.loads(answers)


class Elements(Live):
    def test_raw_is_what_came_and_envelope_is_all_of_what_is_left(self):
        self.printer.set_wsd_style(prefix="wprt")
        self.assertIn("<wprt:PrinterState>", self.works("wsd", self.url, "PrinterStatus", "--raw"))
        envelope = ElementTree.fromstring(self.works("wsd", self.url, "PrinterStatus", "--envelope"))
        self.assertEqual(envelope.tag, "{http://www.w3.org/2003/05/soap-envelope}Envelope")
        self.assertIsNotNone(envelope.find(f".//{{{PRINT}}}PrinterState"))

    def test_vendor_elements_are_asked_for_in_their_namespace(self):
        shown = self.works("wsd", self.url, "v:DeviceExtension", "--ns", f"v={VENDOR}")
        self.assertIn("<v:AveragePowerWatts>", shown)

    def test_element_that_the_printer_lacks_is_shown_as_such_and_is_a_failure(self):
        shown = self.fails("wsd", self.url, "Nonsense", "PrinterStatus", says="no valid pri:Nonsense$").stdout
        self.assertIn('Valid="false"', shown)
        self.assertIn("\n    <pri:PrinterState>", shown)

    def test_element_that_does_not_come_at_all_is_a_failure(self):
        def part(name, content="", valid="true"):
            mark = f' Name="{name}"' if name else ""
            return f'<p:ElementData{mark} Valid="{valid}">{content}</p:ElementData>'

        status, empty = "<p:PrinterStatus/>", ""
        for parts, asked, says in (
                (empty, ["PrinterStatus"], "did not send pri:PrinterStatus$"),
                (part("p:PrinterStatus", status), ["PrinterStatus", "pri:PrinterStatus"], None),
                (part("PrinterStatus", status), ["PrinterStatus"], None),
                (part("", status), ["PrinterStatus"], None),  # it holds what was asked for
                (part("p:PrinterStatus", status), ["PrinterStatus", "PrinterConfiguration", "v:Device"],
                 "did not send pri:PrinterConfiguration, v:Device$"),
                (part("v:PrinterStatus", status.replace("p:", "v:")), ["PrinterStatus"], "did not send pri:PrinterStatus$"),
                (part("p:Nonsense", valid="false"), ["Nonsense", "PrinterStatus"],
                 "no valid pri:Nonsense; the printer did not send pri:PrinterStatus$")):
            with self.subTest(parts=parts, asked=asked):
                command = ("wsd", self.serve(envelope(parts)), *asked, "--ns", f"v={VENDOR}")
                if says:
                    self.fails(*command, status=1 if status in parts or "v:P" in parts else 3, says=says)
                else:
                    self.works(*command)

    def test_values_cannot_steer_the_terminal(self):
        self.printer.set_machine(location="a\u009b31mb\u2028c & <d>")
        for arguments, expected in ((("wsd", self.url, "PrinterDescription"), "a&#x9B;31mb&#x2028;c &amp; &lt;d"),
                                    (("wsd", self.url, "PrinterDescription", "--raw"), "a?31mb?c"),
                                    (("status", self.url), "a?31mb?c & <d>")):
            with self.subTest(arguments[0]):
                self.assertIn(expected, self.works(*arguments))


class Status(Live):
    def test_shows_state_supplies_and_trays(self):
        self.printer.set_machine(toner={"Black": 40, "Cyan": 100, "Yellow": 1}, trays={"Tray1": 0})
        shown = self.works("status", self.url)
        for line in (r"printer +Velun VP-4200C", r"location +Zürich, 2\. Stock", r"state +\w+",
                     r"reasons +.*MediaEmpty.*", r" +Black +\[########\.{12}\]  40%  Toner VT-42K",
                     r" +Cyan +\[#{20}\] 100% .*", r" +Yellow +\[#\.{19}\]   1% .*",
                     r" +Tray1 +\[\.{20}\]   0%  iso_a4_210x297mm, .*"):
            self.assertRegex(shown, rf"(?m)^{line}$")


class Bidi(Live):
    def test_network_ports_answer_like_the_engine_and_add_the_lower_monitors_own(self):
        engine = self.bidi("getall", r"\Printer.Consumables")
        self.assertGreater(len(engine), 10)
        for port, lower in (("tcp", [STATE]), ("wsd", [STATE, URL])):
            with self.subTest(port):
                answers = self.bidi("getall", "--port", port, r"\Printer.Consumables", STATE, URL)
                sources = {answer["path"]: answer.pop("source") for answer in answers if answer["result"] == 0}
                self.assertEqual([path for path, source in sources.items() if source == "lower monitor"], lower)
                self.assertEqual(answers[:len(engine)], engine)
                self.assertTrue(all(sources[answer["path"]] == "engine" for answer in engine))

    def test_lower_monitor_answers_alone_when_the_printer_is_off(self):
        for port in ("tcp", "wsd"):
            with self.subTest(port):
                shown = self.fails("bidi", "get", *EXTENSIONS, "--printer", NO_PRINTER, "--json", "--port", port, STATE, BLACK,
                                   says=r"no answer from 127\.0\.0\.1(:\d+)?: no connection \(12029\)$").stdout
                answers = json.loads(shown)
                self.assertEqual([(a["path"], a["result"], a["source"]) for a in answers],
                                 [(STATE, 0, "lower monitor"), (BLACK, 50, "lower monitor")])

    def test_usb_port_asks_nobody(self):
        self.printer.clear_wsd_requests()
        answers = json.loads(self.fails("bidi", "get", *EXTENSIONS, "--printer", self.url, "--json", "--port", "usb", BLACK,
                                        STATE, status=3, says="nothing was found").stdout)
        self.assertEqual([(a["path"], a["result"], a["source"]) for a in answers], [(BLACK, 232, "monitor")])
        self.assertEqual(self.printer.wsd_requests(), [])

    def test_extension_files_of_any_name_reach_the_driver_and_leave_nothing_behind(self):
        odd = self.write("Ämter, 1 & ; [2].xml", (EXAMPLES / "velun-base.xml").read_bytes())
        shown = self.works("bidi", "get", "--ext", odd, "--printer", self.url, "--port", "wsd", BLACK)
        self.assertRegex(shown, r"Level +BIDI_INT +85 +0 found +engine")
        self.assertEqual(list(windows.PREFIX.glob("drive_c/users/*/[Tt]emp/vlmctl-*")), [])


class Failures(Live):
    def test_misbehaving_printer_is_named_in_one_line(self):
        for fault, says in (({"mode": "html"}, "is not a WSD print service: "),
                            ({"mode": "not-found"}, "is not a WSD print service: HTTP status 404; "),
                            ({"mode": "empty"}, "is not a WSD print service: "),
                            ({"mode": "entity-bomb"}, "is not a WSD print service: .*document type"),
                            ({"mode": "soap12-fault"}, "status 500"),
                            ({"mode": "soap11-fault"}, "status 500: SOAP"),
                            ({"mode": "no-xml"}, "status 500"),
                            ({"mode": "length-long"}, "ends .*early"),
                            ({"mode": "close", "at": "request"}, "127.0.0.1")):
            with self.subTest(**fault):
                self.printer.set_wsd_fault(**fault)
                self.fails("status", self.url, says=says)
        self.printer.set_wsd_fault("html")
        self.fails("bidi", "get", *EXTENSIONS, "--printer", self.url, BLACK, says="is not a WSD print service: ")

    def test_nobody_there(self):
        for command in (("status", NO_PRINTER), ("wsd", NO_PRINTER, "PrinterStatus"), ("wsd", NO_PRINTER, "X", "--raw"),
                        ("bidi", "get", *EXTENSIONS, "--printer", NO_PRINTER, BLACK)):
            with self.subTest(command[0]):
                self.fails(*command, says=r"127\.0\.0\.1:1: no connection \(12029\)$")

    def test_fault_of_an_extension_file_is_not_the_printers(self):
        schema = (f'<b:D xmlns:b="http://schemas.microsoft.com/windows/2005/03/printing/bidi"><Schema xmlns:p="{PRINT}">'
                  '<Value name="A" query="p:PrinterStatus" filter="%s"/></Schema></b:D>')
        for text, arguments, says in (
                (schema % "p:A[", (), r"^vlmctl: the query failed: filter p:A\[ .*faulty.xml$"),
                (schema % "p:A[.=$X$]", (), "^vlmctl: the query failed: Parameter X .*faulty.xml$"),
                ((schema % "p:A").replace("</Schema>", "\n\n<x></y></Schema>"), (),
                 r"cannot be used: .*faulty.xml:3:7: not well-formed"),
                ("<x/>", (), "cannot be used: .*faulty.xml: declares the namespace"),
                ("<Schema>", ("--port", "tcp"), "extension files cannot be used: .*faulty.xml")):
            faulty = self.write("faulty.xml", text)
            with self.subTest(text):
                self.fails("bidi", "get", "--ext", faulty, "--printer", self.url, *arguments, r"\:A", says=says)

    def test_raw_shows_even_what_is_no_answer(self):
        self.printer.set_wsd_fault("html")
        self.assertRegex(self.works("wsd", self.url, "PrinterStatus", "--raw"), "(?i)<html")


if __name__ == "__main__":
    unittest.main()
