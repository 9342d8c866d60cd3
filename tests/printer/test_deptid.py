"""Asks the virtual printer's department-ID service as a client does: what it allows, and what it finds wrong."""

import json
import pathlib
import re
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

from vprinter import VirtualPrinter, exchange, split

SOAP = "http://www.w3.org/2003/05/soap-envelope"
ENCODING = "http://www.w3.org/2003/05/soap-encoding"
SERVICE = "http://velun.example/ns/active/deptid"
SECRET = "Xq7-hidden"
ACCOUNTS = [{"username": "4711", "password": SECRET, "domain": "sales", "type": "department"},
            {"username": "Jürgen", "password": ""}]
SOUND = (f'<soap:Envelope xmlns:soap="{SOAP}"><soap:Body soap:encodingStyle="{ENCODING}">'
         f'<snp:CheckUserPassword xmlns:snp="{SERVICE}"><username>4711</username><domain>sales</domain>'
         f"<type>department</type><password>{SECRET}</password></snp:CheckUserPassword></soap:Body></soap:Envelope>")


class DepartmentId(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with tempfile.NamedTemporaryFile("w", suffix=".json") as accounts:
            json.dump(ACCOUNTS, accounts)
            accounts.flush()
            cls.printer = cls.enterClassContext(VirtualPrinter("--accounts", accounts.name))

    def ask(self, body, **details):
        """Status and message of the answer."""
        status, _, text = split(exchange(self.printer.deptid_url, body, **details)[0])
        return status, ElementTree.fromstring(text)

    def test_allows_only_its_accounts(self):
        rows = (("4711", "sales", "department", SECRET, "true"), ("4711", "sales", "department", SECRET[:-1], "false"),
                ("4711", "Sales", "department", SECRET, "false"), ("4711", "sales", "", SECRET, "false"),
                ("J&#xFC;rgen", "any", "any", "", "true"), ("", "sales", "department", "", "false"))
        for username, domain, account_type, password, verdict in rows:
            with self.subTest(username=username, domain=domain, type=account_type):
                body = SOUND
                for old, new in (("4711", username), ("sales", domain), ("department", account_type),
                                 (SECRET, password)):
                    body = body.replace(f">{old}<", f">{new}<")
                status, answer = self.ask(body)
                self.assertEqual(status, 200)
                response = answer.find(f"{{{SOAP}}}Body/{{{SERVICE}}}CheckUserPasswordResponse")
                self.assertEqual(response.findtext("result"), verdict)

    def test_says_what_is_wrong_with_a_request_but_not_the_password(self):
        password = f"<password>{SECRET}</password>"
        nil = '<domain xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xsi:nil="1"{}'
        self.assertEqual(self.ask(SOUND.replace("<domain>sales</domain>", nil.format("/>")))[0], 200)
        for old, new, finding in (
                (SOAP, "http://schemas.xmlsoap.org/soap/envelope/", "instead of the SOAP 1.2 Envelope"),
                ("<soap:Body", "<soap:Header/><soap:Body", "Envelope must hold one .*Body"),
                (ENCODING, "urn:x", "encodingStyle"),
                (f' soap:encodingStyle="{ENCODING}"', "", "encodingStyle"),
                (f' soap:encodingStyle="{ENCODING}"', f' encodingStyle="{ENCODING}"', "encodingStyle"),
                (SERVICE, SERVICE + "/", "Body must hold one .*CheckUserPassword"),
                ("CheckUserPassword", "CheckPassword", "Body must hold one .*CheckUserPassword"),
                ("<username>4711</username><domain>sales</domain>", "<domain>sales</domain><username>4711</username>",
                 "field 1 is not username.*field 2 is not domain"),
                (password, "", "field 4 is missing: password"),
                (password, password * 2, "5 fields instead of 4"),
                (password, f"{password}and", "text between the fields"),
                ("<type>", '<type xmlns="urn:x">', "field 3 is not type without a namespace"),
                ("<type>", '<type x="">', "type has an attribute"),
                ("<domain>", nil.format(">"), "domain is null, but not empty"),
                (password, f"<password>{SECRET[:4]}<{SECRET[4:]}/></password>", "password holds an element"),
                (password, f"<password>&{SECRET[4:]};</password>", "not well-formed XML: line 1: parser error 26"),
                ("</soap:Envelope>", "", "not well-formed"),
                ("<soap:Envelope", "<!DOCTYPE x><soap:Envelope", "document type declaration")):
            with self.subTest(new):
                body = SOUND.replace(old, new)
                self.assertNotEqual(body, SOUND)
                status, answer = self.ask(body)
                self.assertEqual(status, 500 if "schemas.xmlsoap" in new else 400)
                reason = answer.findtext(f".//{{{SOAP}}}Reason/{{{SOAP}}}Text")
                self.assertRegex(reason, finding)
                shown = self.printer.deptid_requests()[-1]
                self.assertEqual("; ".join(shown["findings"]), reason)
                self.assertIsNone(shown["result"])
        self.assertEqual(self.ask(SOUND, content_type="text/xml")[0], 400)
        everything = json.dumps(self.printer.deptid_requests())
        self.assertEqual(re.findall(f"{SECRET[:4]}|{SECRET[4:]}", everything), [])


class AccountsFile(unittest.TestCase):
    def test_unusable_file_ends_the_start_without_showing_it(self):
        for content, says in ((f'[{{"username": "a", "password": "{SECRET}"', "is not a JSON array"),
                              (json.dumps({"a": SECRET}), "is not a JSON array"),
                              (json.dumps([ACCOUNTS[0], {"password": SECRET}]), "account 2 must have"),
                              (json.dumps([{"username": "a", "password": SECRET, "pass": SECRET}]), "account 1 must"),
                              (None, "cannot read")):
            with self.subTest(says), tempfile.TemporaryDirectory() as folder:
                path = pathlib.Path(folder, "accounts.json")
                if content is not None:
                    path.write_text(content)
                with self.assertRaises(RuntimeError) as failure:
                    VirtualPrinter("--accounts", str(path)).stop()
                self.assertRegex(str(failure.exception), says)
                self.assertNotIn(SECRET, str(failure.exception))
