"""vlmctl status with many printers: in what order they are shown, that the dead delay and hide nobody, and that Prometheus
reads the numbers."""

import contextlib
import json
import re
import socket
import subprocess
import threading
import time
import unittest
import urllib.parse
import urllib.request

from companion import NOBODY, Companion, windows
from test_answers import ANSWER, replaced
from vprinter import VirtualPrinter

RULES = windows.ROOT / "packaging/prometheus"
OPENER = urllib.request.build_opener(urllib.request.ProxyHandler({}))
FINE = replaced(ANSWER, (r"(?s)<wprt:ActiveConditions>.*</wprt:ActiveConditions>", ""), (">8</wprt:Level>", ">80</wprt:Level>"))
CONDITION = "<wprt:ActiveConditions><wprt:DeviceCondition><wprt:Name>{}</wprt:Name><wprt:Severity>{}</wprt:Severity>" \
            "</wprt:DeviceCondition></wprt:ActiveConditions></wprt:PrinterStatus>"


def promtool(*arguments, **more):
    done = subprocess.run(["promtool", *arguments], capture_output=True, text=True, timeout=30, **more)
    assert done.returncode == 0 and ("metrics" not in arguments or not done.stdout + done.stderr), done


def samples(text):
    """{series as written: value}; a series that is there twice is a mistake."""
    series = [line.rsplit(" ", 1) for line in text.splitlines() if not line.startswith("#")]
    assert len(series) == len({name for name, _ in series}), "a series twice"
    return {name: float(value) for name, value in series}


def conditions(name, severity):
    return replaced(FINE, ("</wprt:PrinterStatus>", CONDITION.format(name, severity)))


class Fleet(Companion):
    def metrics(self, *arguments):
        text = self.works("status", *arguments, "--metrics")
        promtool("check", "metrics", input=text)
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
                file = self.write("list.txt", content)
                self.assertEqual(len(self.works("status", "--list", file, url).splitlines()), 2)
        done = self.fails("status", "--list", "-", stdin=f"{url}\n\n# x\nnot a host\n",
                          says="^vlmctl: standard input:4: 'not a host' is not a printer address")
        self.assertEqual(done.stdout, "")
        self.fails("status", "--list", self.folder / "none", says="cannot read .*none: file not found")
        self.fails("status", "--list", self.write("list.txt", "# nobody\n"), says="lists no printers")
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
        promtool("check", "rules", RULES / "vllm3mon.rules.yml")
        promtool("test", "rules", RULES / "vllm3mon.rules.test.yml")

    def test_prometheus_scrapes_two_hundred_printers(self):
        with VirtualPrinter("--printers", "200") as fleet:
            urls = [fleet.wsd_url, *(f"{fleet.wsd_url}{number}/" for number in range(2, 201)), f"http://{NOBODY}/"]
            begin = time.monotonic()
            self.works("status", "--list", self.write("printers.txt", "\n".join(urls)), "--metrics",
                       self.folder / "printers.prom")
            self.assertLess(time.monotonic() - begin, 30)
        trace = self.write("trace.log", 'Info: port "IP_1": job 1 ended, 90210 bytes, 2 failed writes, 1044 ms\n')
        self.works("trace", "--file", trace, "--summary", "--metrics", self.folder / "trace.prom")
        text = "".join((self.folder / file).read_text() for file in ("printers.prom", "trace.prom"))
        promtool("check", "metrics", input=text)
        low = {series for series, value in samples(text).items() if "consumable_level" in series and value < 0.1}
        self.assertGreater(len(low), 20)
        ask = self.scrape(text)
        self.assertEqual(ask("up", wait=True), [1])
        ask("vllm3mon_printer_up", wait=True)
        for query, value in (("count(vllm3mon_printer_up == 1)", 200),
                             ("count(vllm3mon_printer_consumable_level_ratio)", 800),
                             ("count(vllm3mon_printer_consumable_level_ratio < 0.1)", len(low)),
                             ("vllm3mon_port_bytes_total", 90210)):
            self.assertEqual(ask(query), [value])
        self.assertEqual(ask('count(ALERTS{alertname="TonerLow"})', wait=True), [len(low)])
        self.assertEqual(ask('count(ALERTS{alertname="PrinterGone"})', wait=True), [1])

    def scrape(self, text):
        """What a Prometheus that scrapes the text and has the rules answers to a query."""
        (self.folder / "prometheus.yml").write_text(json.dumps({
            "global": {"scrape_interval": "1s", "evaluation_interval": "1s"},
            "rule_files": [str(RULES / "vllm3mon.rules.yml")],
            "scrape_configs": [{"job_name": "printers", "static_configs": [
                {"targets": [urllib.parse.urlsplit(self.serve(text, "text/plain; version=0.0.4")).netloc]}]}]}))
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        with open(self.folder / "log", "w") as log:
            # It ends with this test, even when that is killed.
            process = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", "prometheus",
                                        f"--config.file={self.folder}/prometheus.yml",
                                        f"--storage.tsdb.path={self.folder}/data",
                                        f"--web.listen-address=127.0.0.1:{port}"], stdout=log, stderr=log)
        self.addCleanup(process.wait, timeout=20)
        self.addCleanup(process.terminate)

        def ask(query, wait=False):
            url = f"http://127.0.0.1:{port}/api/v1/query?" + urllib.parse.urlencode({"query": query})
            give_up = time.monotonic() + 20
            while True:
                with contextlib.suppress(OSError), OPENER.open(url, timeout=5) as answer:
                    found = [float(one["value"][1]) for one in json.load(answer)["data"]["result"]]
                    if found or not wait:
                        return found
                if time.monotonic() > give_up:
                    self.fail(f"{query}: no answer; " + (self.folder / "log").read_text())
                time.sleep(0.2)

        return ask


if __name__ == "__main__":
    unittest.main()
