"""vlmctl trace on saved lines: an incident looked for in them, while they are still being written too."""

import datetime
import json
import subprocess
import time
import unittest

from companion import Companion, Lines

JOB = 'Info: port "{}": job 1 ended, 1000 bytes, 0 failed writes, 58 ms'
ERROR = 'Error: port "{}": the lower monitor does not start the job, error 10061'
EXCHANGE = 'Info: host "{}": exchange ended, status {}, 300 bytes, 5 ms'


def stamped(*lines):
    return "".join(f"{when}  1820 {line}\n" for when, line in lines)


class SavedTrace(Companion):
    def setUp(self):
        self.file = self.folder / "trace.log"

    def read(self, content, *arguments):
        self.write(self.file, content)
        return self.works("trace", "--file", self.file, *arguments).splitlines()

    def ports(self, content, *arguments):
        return [line.split('"')[1] for line in self.read(content, *arguments)]

    def test_since_a_time_however_it_is_written(self):
        text = stamped(("2026-03-28T23:30:00.000+01:00", JOB.format("A")), ("2026-03-29T03:30:00+02:00", JOB.format("B")),
                       ("2026-03-29 04:00:00.5Z", JOB.format("C")))
        for since, ports in (("2026-03-28", "ABC"), ("2026-03-28T22:30Z", "ABC"), ("2026-03-28T22:30:00.001Z", "BC"),
                             ("2026-03-29T01:30:00-00:00", "BC"), ("2026-03-29T01:30:00.001Z", "C"),
                             ("2026-03-29T06:00:00.500+0200", "C"), ("2026-03-28 22:31Z", "BC")):
            with self.subTest(since):
                self.assertEqual(self.ports(text, "--since", since), list(ports))
        for since in ("yesterday", "10", "10 m", "m", "-10m", "1.5.2h", "25:00", "12:60", "2026-13-01", "2026-02-29",
                      "2026-03-28T", "2026-03-28T10:00+1", "2026-03-28T10:00 ", "9" * 400 + "d", "0000-01-01"):
            with self.subTest(since):
                self.fails("trace", "--file", self.file, f"--since={since}", status=2, says="is not a time; write 10m")

    def test_since_some_time_ago(self):
        now = datetime.datetime.now().astimezone()
        text = stamped(*(((now - datetime.timedelta(minutes=minutes)).isoformat(timespec="milliseconds"),
                          JOB.format(f"{minutes} ago")) for minutes in (4000, 100, 20, 5)))
        today = (now - datetime.timedelta(minutes=30)).strftime("%H:%M")
        for since, count in (("10m", 1), ("30m", 2), ("1.5h", 2), ("1h50m", 3), ("2h", 3), ("3d", 4), (today, 2)):
            with self.subTest(since):
                self.assertEqual(len(self.read(text, "--since", since)), count)

    def test_lines_without_a_date(self):
        old = f"17:44:36.503  1820 {JOB.format('old')}\n"
        text = old + stamped(("2026-03-28T10:00:00.000Z", JOB.format("new"))) + "[1820] " + JOB.format("bare") + "\n"
        self.assertEqual(self.ports(text), ["old", "new", "bare"])
        done = self.vlmctl("trace", "--file", self.file, "--since", "2026-03-28T10:00Z")
        self.assertEqual([line.split('"')[1] for line in done.stdout.splitlines()], ["new", "bare"])
        self.assertEqual(done.stderr, "1 line was left out: no date precedes it\n")
        self.file.write_text(old)
        self.assertEqual(self.vlmctl("trace", "--file", self.file, "--since", "10m").returncode, 3)

    def test_files_of_other_programs(self):
        text = stamped(("2026-03-28T10:00:00.000Z", JOB.format("Büro")), ("2026-03-28T10:00:01.000Z", JOB.format("2")))
        lines = self.read(text)
        for what, content in (("line ends of two characters", text.replace("\n", "\r\n").encode()),
                              ("a mark of UTF-8", b"\xEF\xBB\xBF" + text.encode()),
                              ("UTF-16", b"\xFF\xFE" + text.replace("\n", "\r\n").encode("utf-16-le")),
                              ("no end of the last line", text[:-1].encode())):
            with self.subTest(what):
                self.assertEqual(self.read(content), lines)
        with self.subTest("standard input"):
            done = self.vlmctl("trace", "--file", "-", stdin=text)
            self.assertEqual((done.returncode, done.stderr, done.stdout.splitlines()), (0, "", lines))
        with self.subTest("no text"):
            self.assertEqual(self.read(b'Error: port "\xFF":\t\x1b[2J\n' + b"x" * 200_000),
                             ['Error: port "\N{REPLACEMENT CHARACTER}": ?[2J', *(["x" * 65536] * 3), "x" * 3392])

    def test_what_failed_stands_first(self):
        job = ("2026-03-28T10:00:00.000Z", JOB.format("A"))
        text = stamped(job, job, ("2026-03-28T10:00:00.000Z", ERROR.format("B")),
                       ("2026-03-28T10:00:00.000Z", ERROR.format("C")), ("2026-03-28T10:00:02.000Z", ERROR.format("C")),
                       ("2026-03-28T10:00:00.000Z", EXCHANGE.format("good", 200)),
                       ("2026-03-28T10:00:00.000Z", EXCHANGE.format("refuses", 503)),
                       ("2026-03-28T10:00:00.000Z", EXCHANGE.format("silent", 0))) + "Error: something else\n"
        lines = [line for line in self.read(text, "--summary") if line]
        self.assertEqual([line.split()[0] for line in lines[:4]], ["PORT", "C", "B", "A"])
        self.assertEqual(lines[4:6], ["errors without a port: 1", "LAST ERRORS"])
        self.assertIn('port "C": the lower monitor does not start', lines[6])
        self.assertEqual([line.split()[0] for line in lines[8:]], ["HOST", "refuses", "silent", "good"])
        self.assertFalse({"B", "A", "errors"} & {line.split()[0] for line in self.read(text, "--summary", "--port", "c") if line})
        counted = json.loads("\n".join(self.read(text, "--summary", "--json")))
        self.assertEqual([tuple(port[key] for key in ("port", "errors", "jobs", "bytes", "milliseconds"))
                          for port in counted["ports"]], [("C", 2, 0, 0, 0), ("B", 1, 0, 0, 0), ("A", 0, 2, 2000, 116)])
        last = datetime.datetime.fromisoformat(counted["ports"][0]["lastError"]["time"])
        self.assertEqual(last, datetime.datetime(2026, 3, 28, 10, 0, 2, tzinfo=datetime.timezone.utc))

    def test_a_file_is_followed_when_it_grows_is_renamed_or_emptied(self):
        def line(port):
            return f"2026-03-28T10:00:00.000Z  1 {JOB.format(port)}"

        self.file.write_text(line("first") + "\n")
        follower = Lines(self.start("trace", "--follow", "--seconds", "60", "--file", self.file, stdout=subprocess.PIPE))
        self.assertEqual(follower.next(), line("first"))
        with open(self.file, "a") as file:
            file.write(line("in two")[:-3])
            file.flush()
            time.sleep(0.3)
            file.write(line("in two")[-3:] + "\n")
            file.flush()
            self.assertEqual(follower.next(), line("in two"))
            # The writer goes on for a moment with the file that it has open.
            self.file.rename(self.file.with_suffix(".old"))
            file.write(line("after the name has gone") + "\n")
            file.flush()
            self.assertEqual(follower.next(), line("after the name has gone"))
            file.write(line("without an end"))
        self.file.write_text("\ufeff" + line("a new file") + "\n", encoding="utf-16-le")
        self.assertEqual(follower.next(), line("without an end"))
        self.assertEqual(follower.next(), line("a new file"))
        self.file.write_text("")
        time.sleep(0.5)
        self.file.write_text(line("emptied") + "\n")
        self.assertEqual(follower.next(), line("emptied"))


if __name__ == "__main__":
    unittest.main()
