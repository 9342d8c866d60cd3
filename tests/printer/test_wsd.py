"""Asks the virtual printer's WSD print service as a client does: SOAP over HTTP, down to the bytes on the wire."""

import gzip
import pathlib
import re
import socket
import ssl
import time
import unittest
import uuid
import xml.etree.ElementTree as ET

from vprinter import LIMIT, VirtualPrinter, connect, exchange, post, receive, split, wait_until

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOAP = "http://www.w3.org/2003/05/soap-envelope"
WSA = "http://schemas.xmlsoap.org/ws/2004/08/addressing"
PRINT = "http://schemas.microsoft.com/windows/2006/08/wdp/print"
VENDOR = "http://velun.example/wsd/print/2026"
NAMES = ("pri:PrinterDescription", "pri:PrinterConfiguration", "pri:PrinterStatus", "pri:DefaultPrintTicket",
         "pri:PrinterCapabilities", "vln:DeviceExtension")


def message(names=NAMES, url="http://printer/wsd/print/", declarations=f'xmlns:vln="{VENDOR}"', order=None, **changes):
    """A sound request; `changes` replace header values by their name, `order` names the headers to be there."""
    values = {"To": url, "Action": PRINT + "/GetPrinterElements", "MessageID": uuid.uuid4().urn,
              "ReplyTo": f"<wsa:Address>{WSA}/role/anonymous</wsa:Address>",
              "From": f"<wsa:Address>{uuid.uuid4().urn}</wsa:Address>", **changes}
    headers = "".join(f"<wsa:{key}>{values[key]}</wsa:{key}>" for key in order or values)
    wanted = "".join(f"<pri:Name>{name}</pri:Name>" for name in names)
    return (f"<?xml version='1.0' encoding='utf-8'?>"
            f'<soap:Envelope xmlns:soap="{SOAP}" xmlns:wsa="{WSA}" xmlns:pri="{PRINT}"><soap:Header>{headers}'
            f"</soap:Header><soap:Body><pri:GetPrinterElementsRequest><pri:RequestedElements {declarations}>{wanted}"
            f"</pri:RequestedElements></pri:GetPrinterElementsRequest></soap:Body></soap:Envelope>")


def ask_raw(url, body=None, **details):
    """All bytes of the answer to a request, which is a sound one if none is given, and how they end."""
    return exchange(url, message(url=url) if body is None else body, **details)


def ask(url, body=None, **details):
    """A right answer's ElementData by name, each with its validity and its content element."""
    status, _, text = split(ask_raw(url, body, **details)[0])
    assert status == 200, (status, text)
    return elements(text)


def elements(text):
    path = f"{{{SOAP}}}Body/{{{PRINT}}}GetPrinterElementsResponse/{{{PRINT}}}PrinterElements/{{{PRINT}}}ElementData"
    return {data.get("Name"): (data.get("Valid"), list(data)) for data in ET.fromstring(text).findall(path)}


def leaves(node, path=""):
    """The element's whole content: paths with attributes, in order. Times change from answer to answer."""
    path += f"/{node.tag}{sorted(node.attrib.items())}"
    if len(node) == 0 and not node.tag.endswith("}PrinterCurrentTime"):
        return [f"{path}={node.text}"]
    return [leaf for child in node for leaf in leaves(child, path)]


def content_of(answer):
    """What the answer says, without the prefixes: names as {namespace}name, in order."""
    return [(name.rpartition(":")[2], valid, [leaf for part in parts for leaf in leaves(part)])
            for name, (valid, parts) in elements(split(answer)[2]).items()]


class WsdCase(unittest.TestCase):
    """One printer for all cases of a class; each starts with a printer that behaves."""

    @classmethod
    def setUpClass(cls):
        cls.printer = cls.enterClassContext(VirtualPrinter())

    def setUp(self):
        self.printer.clear_wsd_fault()
        self.printer.clear_wsd_style()
        self.printer.clear_wsd_requests()

    def values(self, *paths):
        """The texts at these paths below what the printer says now; a path begins with an element's name."""
        found = {name.rpartition(":")[2]: parts for name, (_, parts) in ask(self.printer.wsd_url).items()}
        steps = [path.split("/") for path in paths]
        return [found[name][0].findtext("/".join("{*}" + step for step in rest)) for name, *rest in steps]


class Answers(WsdCase):
    def test_SaysWhatTheExampleAnswerSays(self):
        """The structure that the example extension files are written for."""
        def outline(root):
            return list(dict.fromkeys(re.sub(r"\[\('Id'.*?\]|=.*", "", leaf) for leaf in leaves(root)))

        example = elements((ROOT / "examples/bidi/printer-answer.xml").read_bytes())
        live = ask(self.printer.wsd_url)
        self.assertEqual(list(live), list(example))
        for name, (_, parts) in example.items():
            with self.subTest(name):
                self.assertEqual(live[name][0], "true")
                expected, actual = outline(parts[0]), outline(live[name][1][0])
                if name.startswith("vln:"):
                    self.assertEqual(actual.pop().rpartition("}")[2], "PagesPrinted[]")
                self.assertEqual(actual, expected)

    def test_OnlyWhatIsAskedForAndUnknownNamesAreMarked(self):
        wanted = ("pri:PrinterStatus", "pri:Nothing", "vln:PrinterStatus", "x:Größe")
        request = message(wanted, declarations=f'xmlns:vln="{VENDOR}" xmlns:x="urn:x"')
        status, headers, body = split(ask_raw(self.printer.wsd_url, request)[0])
        self.assertEqual((status, headers["connection"]), (200, "close"))
        self.assertEqual(headers["content-type"], "application/soap+xml; charset=utf-8")
        self.assertEqual(int(headers["content-length"]), len(body))
        header = ET.fromstring(body).find(f"{{{SOAP}}}Header")
        self.assertEqual(header.findtext(f"{{{WSA}}}Action"), PRINT + "/GetPrinterElementsResponse")
        self.assertIn(f">{header.findtext(f'{{{WSA}}}RelatesTo')}</wsa:MessageID>", request)
        self.assertEqual([(name, valid, len(parts)) for name, (valid, parts) in elements(body).items()],
                         [("wprt:PrinterStatus", "true", 1), ("wprt:Nothing", "false", 0),
                          ("vln:PrinterStatus", "false", 0), ("q:Größe", "false", 0)])
        self.assertEqual(ask(self.printer.wsd_url, message(())), {})

    def test_EveryStyleSaysTheSame(self):
        right = content_of(ask_raw(self.printer.wsd_url)[0])
        for style, spelled in (
                ({"prefix": "wprt"}, f'<soap:Envelope [^>]*xmlns:wprt="{PRINT}"'),
                ({"prefix": "p-9_ä"}, '<p-9_ä:PrinterStatus>'),
                ({"prefix": ""}, f'<soap:Envelope [^>]*xmlns="{PRINT}".*Name="PrinterStatus".*<PrinterStatus>'),
                ({"prefix": "pri", "nested": True},
                 f'<soap:Body><pri:GetPrinterElementsResponse xmlns:pri="{PRINT}">.*xmlns:vln="{VENDOR}" Name="vln:'),
                ({"prefix": "", "nested": True}, f'<GetPrinterElementsResponse xmlns="{PRINT}">'),
                ({"soapPrefix": "SOAP-ENV", "extra": {"pri": "urn:another"}}, '<SOAP-ENV:Body>.*<wprt:')):
            with self.subTest(style=style):
                self.printer.set_wsd_style(**style)
                answer = ask_raw(self.printer.wsd_url)[0]
                self.assertRegex(answer.decode(), "(?s)" + spelled)
                self.assertEqual(content_of(answer), right)
        self.assertNotIn("vln:", ask_raw(self.printer.wsd_url, message(NAMES[:1]))[0].decode())

    def test_HttpsIsServed(self):
        self.assertEqual(len(ask(self.printer.wsds_url)), len(NAMES))
        self.assertEqual(self.printer.wsd_requests()[-1]["scheme"], "https")

    def test_OtherPathsAndMethodsAreNoService(self):
        base = self.printer.wsd_url.removesuffix("wsd/print/")
        for url in (base, base + "wsd/print", base + "wsd/other/"):
            self.assertEqual(split(ask_raw(url)[0])[0], 404)
        with connect(self.printer.wsd_url) as connection:
            connection.sendall(b"GET /wsd/print/ HTTP/1.1\r\nHost: printer\r\n\r\n")
            self.assertEqual(split(receive(connection)[0])[0], 404)


class LiveValues(WsdCase):
    def test_PrintingUsesTonerAndPaperAndCountsPages(self):
        def levels():
            return map(int, self.values("PrinterConfiguration/Consumables/ConsumableEntry/Level",
                                        "PrinterConfiguration/InputBins/InputBinEntry/Level",
                                        "DeviceExtension/PagesPrinted"))

        toner, tray, pages = levels()
        self.printer.send(bytes(11 * 65536 + 1))  # no wait: printed before the host sees the end
        self.printer.send(b"")
        tonerAfter, trayAfter, pagesAfter = levels()
        self.assertEqual((tonerAfter, pagesAfter), (toner - 12, pages + 12))
        self.assertLess(trayAfter, tray)

    def test_EmptyTonerAndTraysAreConditionsWithStableIds(self):
        def conditions():
            root = ask(self.printer.wsd_url)["wprt:PrinterStatus"][1][0]
            active = root.iterfind("{*}ActiveConditions/{*}DeviceCondition")
            ids = {condition.findtext("{*}Name"): condition.get("Id") for condition in active}
            return ids, [reason.text for reason in root.iterfind("{*}PrinterStateReasons/{*}PrinterStateReason")]

        before, reasons = conditions()
        self.assertEqual(set(before), {"MarkerSupplyLow", "MediaEmpty", "MediaLow"})
        self.assertEqual(set(reasons), {"AttentionRequired", *before})
        self.printer.set_machine(toner={"Yellow": 1})
        self.printer.send(bytes(3 * 65536))
        after, _ = conditions()
        self.assertEqual(set(after), {"MarkerSupplyEmpty", "MediaEmpty", "MediaLow"})
        self.assertEqual(after["MediaEmpty"], before["MediaEmpty"])
        self.assertNotIn(after["MarkerSupplyEmpty"], before.values())
        self.printer.set_machine(toner={"Yellow": 100}, trays={"Tray2": 100, "Manual": 100})
        self.assertEqual(conditions(), ({}, ["None"]))

    def test_ProcessingWhileADocumentArrives(self):
        status = ("PrinterStatus/PrinterState", "PrinterStatus/QueuedJobCount")
        self.assertEqual(self.values(*status), ["Idle", "0"])
        with self.printer.connect() as connection:
            connection.sendall(b"page")
            wait_until(lambda: self.printer.machine()["jobs"], "the document begins")
            self.assertEqual(self.values(*status), ["Processing", "1"])
            connection.shutdown(socket.SHUT_WR)
            receive(connection)
        self.assertEqual(self.values(*status), ["Idle", "0"])


class RequestChecks(WsdCase):
    def refused(self, body, words, status=400, code="soap:Sender", **details):
        found, _, text = split(ask_raw(self.printer.wsd_url, body, **details)[0])
        fault = ET.fromstring(text).find(f"{{{SOAP}}}Body/{{{SOAP}}}Fault")
        reason = fault.findtext("{*}Reason/{*}Text")
        self.assertEqual((found, fault.findtext("{*}Code/{*}Value")), (status, code))
        self.assertIn(words, reason)
        findings = self.printer.wsd_requests()[-1]["findings"]
        self.assertEqual("; ".join(findings), reason)
        # However much is wrong.
        self.assertLess(len(reason), 10_000)
        self.assertLess(len(findings), 25)

    def test_WrongRequestsAreRefusedWithWhatIsWrong(self):
        right = message()
        address = "<wsa:Address>x</wsa:Address>"
        for body, words in (
                (right[:-5], "not well-formed"),
                (right.replace("<soap:Envelope", '<!DOCTYPE a [<!ENTITY x "y">]><soap:Envelope'), "document type"),
                (right.replace("<soap:Body>", "<soap:Body/><soap:Body>"), "one Header, then one Body"),
                (message(order=("Action", "To", "MessageID", "ReplyTo", "From")), "instead of wsa:To"),
                (message(order=("To", "Action", "MessageID", "ReplyTo")), "header 5 is missing: wsa:From"),
                (message(order=("To", "Action", "MessageID", "ReplyTo", "From", "From")), "6 headers"),
                (right.replace(WSA + '"', 'http://www.w3.org/2005/08/addressing"'), "instead of wsa:To"),
                (message(To=""), "wsa:To is not an address"),
                (message(Action=PRINT + "/CreatePrintJob"), "wsa:Action is not"),
                (message(MessageID="uuid:1"), "wsa:MessageID is not a urn:uuid"),
                (message(MessageID=uuid.uuid4().urn.upper()), "wsa:MessageID is not a urn:uuid"),
                (message(ReplyTo=address), "not the anonymous address"),
                (message(ReplyTo=f"{WSA}/role/anonymous"), "must hold one wsa:Address"),
                (message(From=address), "wsa:From is not a urn:uuid"),
                (message(("vln:A",), declarations=""), "not declared in its scope"),
                (message(("PrinterStatus",)), "no namespace"),
                (message(("pri:",)), "not a qualified name"),
                (message(("pri:A",) * 257), "more than 256"),
                (message(("x:A",) * 256, declarations=f'xmlns:x="{"u" * 1000}"'), "longer than 1000 bytes"),
                (right.replace("pri:Name>", "pri:Title>"), "instead of a print service Name"),
                (right.replace("<pri:Name>", "<a/>" * 2000 + "<pri:Name>"), "instead of a print service Name"),
                (right.replace("pri:Name>", "ä" * 5000 + ">"), "RequestedElements holds {}ääää"),
                (right.replace("pri:RequestedElements", "pri:Elements"), "one print service RequestedElements"),
                (right.replace("pri:GetPrinterElementsRequest", "pri:GetJobs"), "GetPrinterElementsRequest")):
            with self.subTest(words=words):
                self.refused(body, words)
        self.refused(right.replace(SOAP, "http://schemas.xmlsoap.org/soap/envelope/"), "SOAP 1.2 Envelope", 500,
                     "soap:VersionMismatch")
        self.refused(right, "content type is 'text/xml", content_type="text/xml; charset=utf-8")

    def test_SoundRequestsOfOtherShapesAreTaken(self):
        defaulted = message(("PrinterStatus",), declarations=f'xmlns="{PRINT}"')
        for body, details in ((message(), {"version": "1.1"}), (defaulted, {}), (message(url="127.0.0.1"), {}),
                              (message().replace("pri:", "x1:").replace("xmlns:pri", "xmlns:x1"), {}),
                              (message(), {"content_type": "Application/SOAP+XML; charset=utf-8"})):
            found = ask(self.printer.wsd_url, body, **details)
            self.assertTrue(all(valid == "true" for valid, _ in found.values()), found)

    def test_TheControlApiShowsWhatCame(self):
        body = message(NAMES[-2:], url="10.1.2.3")
        ask_raw(self.printer.wsd_url, body)
        entry, = self.printer.wsd_requests()
        self.assertEqual((entry["method"], entry["path"], entry["version"]), ("POST", "/wsd/print/", "HTTP/1.0"))
        self.assertEqual(entry["headers"]["SOAPAction"], '""')
        self.assertEqual((entry["to"], entry["body"], entry["findings"]), ("10.1.2.3", body, []))
        self.assertEqual(entry["names"], [f"{{{PRINT}}}PrinterCapabilities", f"{{{VENDOR}}}DeviceExtension"])
        for _ in range(105):
            ask_raw(self.printer.wsd_url, "")
        self.assertEqual(len(self.printer.wsd_requests()), 100)


class Faults(WsdCase):
    def faulty(self, mode, url=None, patience=LIMIT, **details):
        self.printer.set_wsd_fault(mode, **details)
        return ask_raw(url or self.printer.wsd_url, patience=patience)

    def right_answer(self):
        """A message with the head and the size that every right answer has; its ids and times differ."""
        self.printer.clear_wsd_fault()
        return ask_raw(self.printer.wsd_url)[0]

    def test_OtherAnswers(self):
        for mode, status, kind, words in (
                ("not-found", 404, "text/html", "not</b>"), ("unauthorized", 401, "text/html", "not</b>"),
                ("html", 200, "text/html", "<br>"), ("no-xml", 500, "text/plain", "busy"),
                ("soap11-fault", 500, "text/xml", "<faultstring>The print engine is busy</"),
                ("soap12-fault", 500, "application/soap+xml", '<soap:Text xml:lang="en">The print engine is busy</'),
                ("empty", 200, "application/soap", "")):
            for url in (self.printer.wsd_url, self.printer.wsds_url):
                with self.subTest(mode=mode, url=url):
                    answer, ended = self.faulty(mode, url)
                    found, headers, body = split(answer)
                    self.assertEqual((found, ended, int(headers["content-length"])), (status, "end", len(body)))
                    self.assertIn(kind, headers["content-type"])
                    self.assertIn(words, body.decode())
                    self.assertEqual((mode == "empty", "xml" in kind), (body == b"", b"Envelope" in body))
                    self.assertEqual("www-authenticate" in headers, status == 401)

    def test_StopsAtEachStage(self):
        whole = self.right_answer()
        body_start = whole.index(b"\r\n\r\n") + 4
        for at, cut in (("connect", 0), ("request", 0), ("status-line", whole.index(b"\r\n") // 2),
                        ("head", (whole.index(b"\r\n") + body_start) // 2), ("body", (body_start + len(whole)) // 2)):
            for mode, expected in (("close", "end"), ("reset", "reset"), ("mute", "silence")):
                with self.subTest(mode=mode, at=at):
                    answer, ended = self.faulty(mode, at=at, patience=0.1 if mode == "mute" else LIMIT)
                    self.assertEqual(ended, expected)
                    if mode != "reset":  # a reset may overtake what was sent
                        self.assertEqual((len(answer), answer[:body_start]), (cut, whole[:min(cut, body_start)]))

    def test_StopsInTls(self):
        with self.assertRaises((ssl.SSLError, ConnectionError)):
            self.faulty("close", self.printer.wsds_url, at="connect")
        self.assertEqual(self.faulty("close", self.printer.wsds_url, at="request"), (b"", "cut"))
        answer, ended = self.faulty("close", self.printer.wsds_url, at="body")
        self.assertEqual(ended, "cut")
        self.assertLess(len(split(answer)[2]), int(split(answer)[1]["content-length"]))

    def test_MuteEndsWhenTheFaultIsClearedAndWithThePrinter(self):
        with VirtualPrinter() as printer:
            printer.set_wsd_fault("mute", connections=1)
            with connect(printer.wsd_url) as held:
                post(held, message(), printer.wsd_url)
                wait_until(printer.wsd_requests, "the request has come")
                self.assertEqual(len(ask(printer.wsd_url)), len(NAMES))  # the next one is not held
                printer.clear_wsd_fault()
                self.assertEqual(receive(held), (b"", "end"))
            printer.set_wsd_fault("mute")
            with connect(printer.wsd_url) as held, connect(printer.wsd_url):
                post(held, message(), printer.wsd_url)
                started = time.monotonic()
                self.assertEqual(printer.shutdown(), 0)
                self.assertLess(time.monotonic() - started, 3)

    def test_DripsComeSlowly(self):
        whole = self.right_answer()
        self.printer.set_wsd_fault("drip", piece=len(whole) // 4, pause=60)
        started = time.monotonic()
        answer, ended = ask_raw(self.printer.wsd_url)
        self.assertGreaterEqual(time.monotonic() - started, 0.24)
        self.assertEqual((content_of(answer), ended), (content_of(whole), "end"))

    def test_WrongLengthsAndCodings(self):
        size = len(split(self.right_answer())[2])
        for mode, announced, came in (("truncated", size // 2, size // 2), ("length-long", size + 1000, size),
                                      ("length-short", size // 2, size)):
            with self.subTest(mode=mode):
                answer, ended = self.faulty(mode)
                status, headers, body = split(answer)
                self.assertEqual((status, ended), (200, "end"))
                self.assertEqual((int(headers["content-length"]), len(body)), (announced, came))
        _, headers, rest = split(self.faulty("chunked")[0])
        self.assertEqual(headers["transfer-encoding"], "chunked")
        joined = b""
        while length := int((line := rest.partition(b"\r\n"))[0], 16):
            joined, rest = joined + line[2][:length], line[2][length + 2:]
        self.assertEqual(len(elements(joined)), len(NAMES))
        _, headers, body = split(self.faulty("gzip")[0])
        self.assertEqual(headers["content-encoding"], "gzip")
        self.assertEqual(len(elements(gzip.decompress(body))), len(NAMES))

    def test_HugeIsWellFormedAndAsLargeAsItSaysAndABombOnlyWhenExpanded(self):
        _, headers, body = split(self.faulty("huge", bytes=3_000_000)[0])
        self.assertEqual(int(headers["content-length"]), len(body))
        self.assertGreaterEqual(len(body), 3_000_000)
        self.assertEqual(len(elements(body)), len(NAMES))
        self.printer.set_wsd_fault("huge")
        with connect(self.printer.wsds_url) as connection:  # a client that has seen enough may go
            post(connection, message(), self.printer.wsds_url)
            self.assertGreaterEqual(int(re.search(rb"Content-Length: (\d+)", connection.recv(4096))[1]), 100_000_000)
        body = split(self.faulty("entity-bomb")[0])[2].decode()
        self.assertRegex(body, r"\A<\?xml [^>]*\?><!DOCTYPE bomb \[\n<!ENTITY e0 ")
        self.assertEqual(len(re.findall("<!ENTITY", body)), 11)
        self.assertIn("&e10;</soap:Envelope>", body)

    def test_RedirectsLeadToTheServiceOrRoundInCircles(self):
        for mode, status in (("redirect", 307), ("redirect", 302), ("redirect-loop", 308)):
            with self.subTest(mode=mode, status=status):
                found, headers, _ = split(self.faulty(mode, status=status)[0])
                self.assertEqual(found, status)
                if mode == "redirect":
                    self.assertEqual(len(ask(headers["location"])), len(NAMES))
                else:
                    self.assertEqual(headers["location"], self.printer.wsd_url)
