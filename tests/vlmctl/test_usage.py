"""vlmctl and a user who mistypes: one line that names the mistake, exit status 2, and nothing is asked or sent."""

import unittest

from companion import EXAMPLES, NOBODY, Companion

URL = f"http://{NOBODY}/wsd/print/"
PATH = r"\Printer.Status:State"
ASK = ("bidi", "get", "--ext", EXAMPLES / "velun-base.xml")
QUERY = ("rpc", "query", "USB001")
DEPTID = ("deptid", "check")
FTP, NOT_FTP = "ftp://h/", "is not a printer address: .* http or https, not ftp$"


class UsageTest(Companion):
    def test_mistake_is_named_in_one_line(self):
        for arguments, says in (
                ((), "subcommand"), (("prnt",), "unknown: 'prnt'"), (("bidi", "gett"), "unknown: 'gett'"),
                (("print", "report.prn"), "--to"),
                (("print", "report.prn", "--to", "host", "--timeout", "0"), "--timeout"),
                (("wsd", URL), "NAME"), (("wsd", URL, "v:X"), "--ns v=URI"),
                (("wsd", URL, "X", "--ns", "v"), "PREFIX=URI"), (("wsd", URL, "X", "--ns", "pri=urn:x"), "PREFIX=URI"),
                (("status", "not a host"), "not a printer address"), (("status", "http://user@host/"), "not a printer address"),
                ((*ASK, EXAMPLES / "velun-finisher.xml", "--wsd", "a.xml", PATH), r"velun-finisher\.xml' is not a schema path"),
                ((*ASK, "--wsd", "a.xml", PATH, "/Printer:X"), "'/Printer:X' is not a schema path.*backslash"),
                (("bidi", "enum", "--ext", EXAMPLES / "velun-base.xml", "Printer:X"), "backslash"),
                ((*ASK, PATH), "--printer"), ((*ASK, "--wsd", "a.xml", "--printer", URL, PATH), "--printer"),
                ((*ASK, "--wsd", "a.xml", "--port", "tcp", PATH), "--printer"),
                ((*ASK, "--printer", URL, "--port", "lpt", PATH), "--port"),
                ((*ASK, "--printer", "https://h/", "--port", "tcp", PATH), "https"),
                ((*ASK, "--printer", "http://h/services/print", "--port", "tcp", PATH), "only a host.*/services/print"),
                ((*ASK, "--printer", "http://h:80/wsd/print/?x", "--port", "tcp", PATH), "only a host"),
                ((*ASK, "--printer", "h" * 60, "--port", "tcp", PATH), "too long"),
                ((*DEPTID, URL, "--user", "4711", "--password", "x"), "--password"),
                ((*DEPTID, URL, "--user", "4711", "x"), "x"), ((*DEPTID, URL), "--user"),
                ((*DEPTID, "http://user@host/", "--user", "4711"), "not a printer address"),
                (("status", FTP), NOT_FTP), (("wsd", FTP, "X"), NOT_FTP), ((*DEPTID, FTP, "--user", "4711"), NOT_FTP),
                ((*ASK, "--printer", FTP, PATH), NOT_FTP), ((*ASK, "--printer", FTP, "--port", "wsd", PATH), NOT_FTP),
                (QUERY, "ID"), ((*QUERY, "4x"), "data id '4x'"), ((*QUERY, "4", "--capacity", "1048577"), "1048576"),
                ((*QUERY, "4", "--host", "server"), "--host needs --endpoint"),
                (("vpca", "decode"), "--file"), (("vpca", "decode", "ABC"), "odd number"),
                (("trace", "--level", "off"), "--level: off not in"), (("trace", "--seconds", "-1"), "--seconds"),
                (("trace", "--since", "10m"), "--file"), (("trace", "--follow"), "--file"), (("trace", "--json"), "--summary"),
                (("trace", "--metrics"), "--summary"), (("trace", "--file", "-", "--follow"), "needs a file"),
                (("trace", "--file", "x", "--save", "y"), "--save")):
            with self.subTest(" ".join(map(str, arguments))):
                self.assertEqual(self.fails(*arguments, status=2, says=says).stdout, "")

    def test_address_of_a_raw_port(self):
        document = EXAMPLES / "velun.ini"
        for wrong in (":9100", "host:", "host:0", "host:65536", "host:9100x", "host:1:2", "::1", "[::1",
                      "[::1]9100"):
            with self.subTest(wrong):
                self.fails("print", document, f"--to={wrong}", status=2, says="is not HOST")
        self.fails("print", document, "--to", "[::1]:1", says="no connection to ::1:1: ")


if __name__ == "__main__":
    unittest.main()
