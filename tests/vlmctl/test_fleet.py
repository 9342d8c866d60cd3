"""vlmctl status with many printers: in what order they are shown, that the dead delay and hide nobody, and that Prometheus
reads the numbers."""

import contextlib
import http.server
import json
import pathlib
import re
import socket
import subprocess
import tempfile
import threading
import time
import unittest
import urllib.parse
import urllib.request

from companion import NOBODY, Companion, windows
from test_answers import ANSWER, printer, replaced
from vprinter import VirtualPrinter

RULES = windows.ROOT / "packaging/prometheus"
OPENER = urllib.request.build_opener(urllib.request.ProxyHandler({}))
FINE = replaced(ANSWER, (r"(?s)<wprt:ActiveConditions>.*</wprt:ActiveConditions>", ""), (">8</wprt:Level>", ">80</wprt:Level>"))
CONDITION = "<wprt:ActiveConditions><wprt:DeviceCondition><wprt:Name>{}</wprt:Name><wprt:Severity>{}</wprt:Severity>" \
            "</wprt:DeviceCondition></wprt:ActiveConditions></wprt:PrinterStatus>"


def promtool(*arguments, **more):
    return subprocess.run(["promtool", *map(str, arguments)], capture_output=True, text=True, timeout=30, **more)


def samples(text):
    """{series as written: value}; a series that is there twice is a mistake."""
    series = [line.rsplit(" ", 1) for line in text.splitlines() if not line.startswith("#")]
    assert len(series) == len({name for name, _ in series}), "a series twice"
    return {name: float(value) for name, value in series}


def conditions(name, severity):
    return replaced(FINE, ("</wprt:PrinterStatus>", CONDITION.format(name, severity)))


class Fleet(Companion):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def serve(self, answer):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        return stack.enter_context(printer(answer))

    def metrics(self, *arguments):
        text = self.works("status", *arguments, "--metrics")
        check = promtool("check", "metrics", input=text)
        self.assertEqual((check.returncode, check.stdout, check.stderr), (0, "", ""))
        return samples(text)

    def test_who_needs_a_hand_stands_first(self):
        fleet = {"fine": ("-", FINE),
                 "reports nothing": ("unreachable", replaced(ANSWER, ("(?s)<wprt:ElementData.*</wprt:ElementData>", ""))),
                 "low": ("low", replaced(FINE, (">80</wprt:Level>", ">9</wprt:Level>"))),
                 "not yet low": ("-", replaced(FINE, (">80</wprt:Level>", ">10</wprt:Level>"))),
                 "warns": ("warning", conditions("DoorOpen", "Warning")),
                 "tells": ("-", conditions("MediaLow", "Informational")),
                 "stopped": ("error", replaced(FINE, ("<wprt:PrinterState>\\w+", "<wprt:PrinterState>Stopped"))),
                 "jammed": ("error", conditions("MediaJam", "Critical")),
                 "no printer": ("unreachable", "<html/>")}
        urls = {self.serve(answer): needs for needs, answer in fleet.values()}
        urls[f"http://{NOBODY}/"] = "unreachable"
        result = self.vlmctl("status", *urls)
        self.assertEqual((result.returncode, result.stderr), (1, "vlmctl: 3 of 10 printers did not answer\n"))
        rows = [line.split()[:2] for line in result.stdout.splitlines()[1:]]
        self.assertEqual({url: needs for needs, url in rows}, urls)
        self.assertEqual([needs for needs, _ in rows], ["error"] * 2 + ["unreachable"] * 3 + ["warning", "low"] + ["-"] * 3)
        for what in ("MediaJam (Critical)", "DoorOpen (Warning)", "Yellow 9%", "reports nothing", "no connection to 127.0.0.1:1: "):
            self.assertIn(what, result.stdout)
        self.assertNotIn("MediaLow", result.stdout)

    def test_the_dead_and_the_mute_delay_and_hide_nobody(self):
        with VirtualPrinter("--printers", "40") as living, contextlib.ExitStack() as stack:
            dead = []
            for backlog in [0] * 30 + [5] * 10:
                listener = stack.enter_context(socket.create_server(("127.0.0.1", 0), backlog=backlog))
                dead.append(f"http://127.0.0.1:{listener.getsockname()[1]}/")
                # What has no room for one more does not answer at all, as a host that is off.
                for _ in range(2 if backlog == 0 else 0):
                    waiting = stack.enter_context(socket.socket())
                    waiting.setblocking(False)
                    waiting.connect_ex(listener.getsockname())
            begin = time.monotonic()
            done = self.vlmctl("status", "--at-once", "20", "--timeout", "4", "--json", *dead,
                               *(f"{living.wsd_url}{number}/" for number in range(2, 41)))
            self.assertLess(time.monotonic() - begin, 25)
            self.assertEqual(done.returncode, 1)
            self.assertEqual({one["url"] for one in json.loads(done.stdout) if not one["up"]}, set(dead))

    def test_a_list_of_printers(self):
        url = self.serve(FINE)
        for what, content in (("plain", url), ("comments", f"# all\n\n  {url}\t# the one\r\n{url}\n"),
                              ("UTF-16", f"\ufeff# Büro\n{url}\n".encode("utf-16-le"))):
            with self.subTest(what):
                file = self.folder / "list.txt"
                file.write_bytes(content if isinstance(content, bytes) else content.encode())
                self.assertEqual(len(self.works("status", "--list", file, url).splitlines()), 2)
        done = windows.vlmctl("status", "--list", "-", stdin=f"{url}\n\n# x\nnot a host\n")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertRegex(done.stderr, "^vlmctl: standard input:4: 'not a host' is not a printer address")
        self.fails("status", "--list", self.folder / "none", says="cannot read .*none: file not found")
        file.write_text("# nobody\n")
        self.fails("status", "--list", file, says="lists no printers")
        self.fails("status", "--json", status=2, says="an address is required")

    def test_numbers_of_a_printer(self):
        odd = replaced(ANSWER, (r">Velun VP[^<]*<", '>a "b" \\\\ &#10;c Z\u00fcrich<'),
                       ('Color>Cyan<', 'Color>Black<'), ('Name="TonerC"', 'Name="TonerK"'),
                       (">61</wprt:Level>", ">-1</wprt:Level>"))
        url, gone = self.serve(odd), f"http://{NOBODY}/"
        numbers = self.metrics(url, gone)
        self.assertEqual(numbers.pop(f'vllm3mon_printer_up{{printer="{gone}"}}'), 0)
        self.assertFalse([name for name in numbers if gone in name])
        self.assertAlmostEqual(numbers["vllm3mon_printers_asked_timestamp_seconds"], time.time(), delta=60)
        self.assertTrue(0 <= numbers[f'vllm3mon_printer_answer_duration_seconds{{printer="{url}"}}'] < 10)
        names = [name for name in numbers if name.startswith("vllm3mon_printer_info")]
        self.assertRegex(names[0], r'name="a \\"b\\" \\\\ .c Zürich"')
        one = f'printer="{url}"'
        for name, value in (("up{%s}", 1), ('state{%s,state="Processing"}', 1), ('state{%s,state="Idle"}', 0),
                            ('consumable_level_ratio{%s,consumable="TonerK",color="Black",type="Toner"}', 0.85),
                            ('consumable_level_ratio{%s,consumable="TonerY",color="Yellow",type="Toner"}', 0.08),
                            ('tray_level_ratio{%s,tray="Tray2"}', 0),
                            ('conditions{%s,component="Marker",condition="MarkerSupplyLow",severity="Warning"}', 1)):
            with self.subTest(name):
                self.assertEqual(numbers.get("vllm3mon_printer_" + name % one), value, sorted(numbers))

    def test_who_reads_the_file_finds_all_of_it(self):
        url, file = self.serve(FINE), self.folder / "printers.prom"
        file.write_text("old 1\n")
        seen, stop = set(), threading.Event()

        def read():
            while not stop.is_set():
                text = file.read_text()
                seen.add("old" if text == "old 1\n" else
                         "new" if "up{" in text and re.search(r"timestamp_seconds \d+\n$", text) else text)

        reader = threading.Thread(target=read)
        reader.start()
        try:
            for _ in range(3):
                self.assertEqual(self.works("status", "--metrics", file, url), "")
        finally:
            stop.set()
            reader.join()
        self.assertEqual(seen, {"old", "new"})
        self.assertEqual([path.name for path in self.folder.iterdir()], ["printers.prom"])
        self.assertIn("vllm3mon_printer_up", self.works("status", "--metrics", url))
        for bad in (self.folder, self.folder / "none" / "x.prom"):
            self.fails("status", url, "--metrics", bad, says="cannot write ")
        self.assertEqual([path.name for path in self.folder.iterdir()], ["printers.prom"])


class Watched(Companion):
    def test_rules_do_what_they_say(self):
        for arguments in (("check", "rules", RULES / "vllm3mon.rules.yml"),
                          ("test", "rules", RULES / "vllm3mon.rules.test.yml")):
            done = promtool(*arguments)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_prometheus_scrapes_two_hundred_printers(self):
        with tempfile.TemporaryDirectory() as name, VirtualPrinter("--printers", "200") as fleet:
            folder = pathlib.Path(name)
            urls = [fleet.wsd_url, *(f"{fleet.wsd_url}{number}/" for number in range(2, 201)), f"http://{NOBODY}/"]
            (folder / "printers.txt").write_text("\n".join(urls))
            begin = time.monotonic()
            self.works("status", "--list", folder / "printers.txt", "--metrics", folder / "printers.prom")
            self.assertLess(time.monotonic() - begin, 30)
            (folder / "trace.log").write_text('Info: port "IP_1": job 1 ended, 90210 bytes, 2 failed writes, 1044 ms\n')
            self.works("trace", "--file", folder / "trace.log", "--summary", "--metrics", folder / "trace.prom")
            text = "".join((folder / file).read_text() for file in ("printers.prom", "trace.prom"))
            check = promtool("check", "metrics", input=text)
            self.assertEqual((check.returncode, check.stdout, check.stderr), (0, "", ""))
            low = {series for series, value in samples(text).items() if "consumable_level" in series and value < 0.1}
            self.assertGreater(len(low), 20)
            with self.scraped(folder, text) as ask:
                self.assertEqual(ask("count(vllm3mon_printer_up == 1)"), [200])
                self.assertEqual(ask("count(vllm3mon_printer_consumable_level_ratio)"), [800])
                self.assertEqual(ask("count(vllm3mon_printer_consumable_level_ratio < 0.1)"), [len(low)])
                self.assertEqual(ask("vllm3mon_port_bytes_total"), [90210])
                self.assertEqual(ask('count(ALERTS{alertname="TonerLow"})', wait=True), [len(low)])
                self.assertEqual(ask('count(ALERTS{alertname="PrinterGone"})', wait=True), [1])

    @contextlib.contextmanager
    def scraped(self, folder, text):
        """A Prometheus that scrapes the text and has the rules; what it answers to a query."""
        class Target(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                self.send_response(200)
                self.send_header("Content-Type", "text/plain; version=0.0.4")
                self.end_headers()
                self.wfile.write(text.encode())

            def log_message(self, *_):
                pass

        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Target) as server:
            threading.Thread(target=server.serve_forever).start()
            (folder / "prometheus.yml").write_text(json.dumps({
                "global": {"scrape_interval": "1s", "evaluation_interval": "1s"},
                "rule_files": [str(RULES / "vllm3mon.rules.yml")],
                "scrape_configs": [{"job_name": "printers", "static_configs": [
                    {"targets": [f"127.0.0.1:{server.server_port}"]}]}]}))
            with socket.create_server(("127.0.0.1", 0)) as free:
                port = free.getsockname()[1]
            with open(folder / "log", "w") as log:
                # It ends with this test, even when that is killed.
                process = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", "prometheus",
                                            f"--config.file={folder}/prometheus.yml",
                                            f"--storage.tsdb.path={folder}/data",
                                            f"--web.listen-address=127.0.0.1:{port}"], stdout=log, stderr=log)

            def ask(query, wait=False):
                url = f"http://127.0.0.1:{port}/api/v1/query?" + urllib.parse.urlencode({"query": query})
                give_up = time.monotonic() + 20
                while True:
                    with contextlib.suppress(OSError), OPENER.open(url, timeout=5) as answer:
                        found = [float(one["value"][1]) for one in json.load(answer)["data"]["result"]]
                        if found or not wait:
                            return found
                    if time.monotonic() > give_up:
                        self.fail(f"{query}: no answer; " + (folder / "log").read_text())
                    time.sleep(0.2)

            try:
                self.assertEqual(ask("up", wait=True), [1])
                ask("vllm3mon_printer_up", wait=True)
                yield ask
            finally:
                process.terminate()
                process.wait(timeout=20)
                server.shutdown()


if __name__ == "__main__":
    unittest.main()
