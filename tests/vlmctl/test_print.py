"""vlmctl print, from the command line to the printer's store."""

import hashlib
import os
import socket
import subprocess
import unittest

from companion import WithPrinter, windows

MEGABYTE = 1_000_000


class PrintTest(WithPrinter):
    content = os.urandom(3 * MEGABYTE + 17)

    def setUp(self):
        super().setUp()
        self.document = self.write("report – März.prn", self.content)

    def test_document_arrives_unchanged_and_its_job_is_tracked(self):
        shown = self.works("print", self.document, "--to", self.address)
        record = self.record()
        self.assertEqual(record["sha256"], hashlib.sha256(self.content).hexdigest())
        self.assertTrue(record["complete"])
        for text in ("100%", rf"sent +{len(self.content)} bytes in \d", "job events +sent to printer, last page ejected"):
            self.assertRegex(shown, text)

    def test_empty_document_is_a_document(self):
        self.works("print", self.write("empty", ""), "--to", self.address)
        self.assertEqual(self.record()["bytes"], 0)

    def test_answers_of_the_printer_are_shown_made_printable(self):
        self.printer.set_answer("READY\x1b[2J", when="open")
        self.assertRegex(self.works("print", self.document, "--to", self.address, "--answer"), r"printer says +READY\?\[2J")
        self.printer.set_answer("DONE", when="document")
        self.assertRegex(self.works("print", self.document, "--to", self.address), r"printer says +DONE")

    def test_what_cannot_work_says_so_in_one_line(self):
        self.printer.set_fault("refuse")
        for document, arguments, says in (
                (self.folder / "none", (), "cannot read .*none"), (self.folder, (), "cannot read "),
                (self.document, (), rf"no connection to {self.address}: .*refused"),
                (self.document, ("--dll", "Z:\\none.dll"), r"Z:\\none\.dll was not found"),
                (self.document, ("--dll", self.document), "cannot be loaded"),
                (self.document, ("--dll", windows.BIN / "spoolss.dll"), "is not a print monitor")):
            with self.subTest(says):
                self.fails("print", document, "--to", self.address, *arguments, says=says)

    def test_reader_of_the_output_who_goes_away_costs_no_job(self):
        reader, output = os.pipe()
        os.close(reader)
        program = self.start("print", self.document, "--to", self.address, stdout=output, stderr=subprocess.PIPE)
        os.close(output)
        errors = program.communicate(timeout=60)[1]
        self.assertEqual((program.returncode, errors), (1, "vlmctl: cannot write to standard output\n"))
        self.assertTrue(self.record()["complete"])

    def test_connection_lost_in_the_middle_or_at_the_very_end_says_how_much_had_gone(self):
        for after in (MEGABYTE, len(self.content) - 1):
            with self.subTest(after):
                self.printer.set_fault("reset", after=after, connections=1)
                result = self.fails("print", self.document, "--to", self.address,
                                    says=r"connection was lost after (\d+) of 3000017 bytes")
                sent = int(result.stderr.split(" after ")[1].split()[0])
                self.assertTrue(after <= sent <= len(self.content), sent)

    def test_printer_that_stops_reading_ends_the_print_at_the_time_out(self):
        big = self.write("big", bytes(20 * MEGABYTE))  # more than all socket buffers on the way
        self.printer.set_fault("stall", after=1000)
        self.fails("print", big, "--to", self.address, "--timeout", "1",
                   says=r"stopped reading after \d+ of 20000000 bytes")
        self.printer.clear_fault()
        self.assertFalse(self.record()["complete"])

    def test_file_that_shrinks_while_it_is_printed_is_not_a_whole_document(self):
        shrinking = self.write("shrinking", bytes(20 * MEGABYTE))
        with socket.socket() as server:
            server.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65_536)
            server.bind(("127.0.0.1", 0))
            server.listen()
            program = self.start("print", shrinking, "--to", f"127.0.0.1:{server.getsockname()[1]}",
                                 stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            server.settimeout(60)
            with server.accept()[0] as connection, self.assertRaises(ConnectionResetError):
                connection.recv(1)
                os.truncate(shrinking, 10 * MEGABYTE)
                while connection.recv(MEGABYTE):
                    pass
            errors = program.communicate(timeout=60)[1]
        self.assertEqual(program.returncode, 1, errors)
        self.assertRegex(errors, r"\Avlmctl: the file changed while it was being read, after \d+ of 20000000 bytes; "
                                 r"the connection was reset\n\Z")


if __name__ == "__main__":
    unittest.main()
