"""The remote procedures down to a device: a foreign client calls, the monitor asks over a USB port whose lower monitor
carries the bytes to the virtual printer's VPCA device, and the device answers, or does whatever it is told to do."""

import struct
import time
import unittest

import windows
from foreign_client import Foreign, command, parse, query
from vprinter import VirtualPrinter

LOWER_TIMEOUT = 1000  # milliseconds
TIMED_OUT = 10060
SMALL_BLOCK, SMALL_BLOCK_DATA = 0x11223344, b"\xAA\xBB\xCC\xDD"
VALUE_180 = bytes(range(1, 9))
VALUE_2405 = b"\x24\x05" + bytes(range(2, 28))


def pattern(size):
    return bytes(i % 251 for i in range(size))


class DeviceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.printer = cls.enterClassContext(VirtualPrinter())
        cls.spooler = windows.Dialogue("spoolhost.exe")
        cls.addClassCleanup(cls.spooler.stop)
        cls.spooler.send("usb USB001 Office\njob 1 report")
        opened = cls.spooler.do(f"open USB001 127.0.0.1 {cls.printer.raw_port} {LOWER_TIMEOUT}")
        assert opened == "open USB001: ok", opened

    def setUp(self):
        self.client = Foreign()
        self.addCleanup(self.client.close)

    def query(self, data_id=SMALL_BLOCK, size=8192):
        return parse(self.client.call(0, query(data_id=data_id, size=size)))

    def command(self, *ids, size=64):
        return parse(self.client.call(1, command(shorts=ids, size=size)))

    def assert_serves(self):
        """The lock is free (else the answer is 5), and no byte of an exchange before is in the way."""
        self.assertEqual(self.query(), (0, 4, SMALL_BLOCK_DATA))

    def test_data_blocks_come_as_the_device_has_them_up_to_one_read(self):
        for data_id, capacity, expected in (
                (SMALL_BLOCK, 4, (0, SMALL_BLOCK_DATA)), (SMALL_BLOCK, 3, (122, b"")), (SMALL_BLOCK, 0, (122, b"")),
                (1, 64, (0, b"")),
                (2, 8192, (0, pattern(8192))), (2, 1_048_576, (0, pattern(8192))), (2, 8191, (122, b"")),
                # Longer than one read: its beginning, and the rest does not come back with the next call.
                (3, 1_048_576, (0, pattern(8192))), (4, 1_048_576, (0, pattern(8192))),
                (29, 64, (31, b"")), (5, 64, (31, b""))):
            with self.subTest(data_id=data_id, capacity=capacity):
                code, reply = expected
                self.assertEqual(self.query(data_id, capacity), (code, len(reply), reply))
                self.assert_serves()

    def test_attributes(self):
        for ids, capacity, expected in (
                ((180,), 8, (0, VALUE_180)), ((180,), 7, (122, b"")), ((180,), 0, (122, b"")),
                ((2405,), 64, (0, VALUE_2405)), ((2405,), 27, (122, b"")),
                ((180, 2112), 64, (0, VALUE_180)), ((2112, 180), 64, (0, b"")),
                # The values together count against the capacity, though only the first is handed out.
                ((180, 2), 11, (122, b"")), ((180, 2), 12, (0, VALUE_180)),
                ((2,), 64, (0, b"")), ((6012,), 64, (0, b"")), ((7000,), 64, (0, b"")),
                ((65535, 180), 64, (0, VALUE_180)),  # the device leaves out what it does not have
                ((65535,), 64, (13, b"")), ((), 64, (13, b"")),
                ((2405, 2405), 64, (13, b""))):  # more than one read
            with self.subTest(ids=ids, capacity=capacity):
                code, reply = expected
                self.assertEqual(self.command(*ids, size=capacity), (code, len(reply), reply))
                self.assert_serves()

    def test_request_reaches_the_device_as_it_was_asked(self):
        self.query()
        for longs, shorts in (([0x01020304, 5], [180, 2405]), (range(1000, 1064), range(100, 164))):
            self.client.call(1, command(longs=longs, shorts=shorts))
        block, few, most = self.printer.vpca_requests()[-3:]
        self.assertEqual(block, bytes.fromhex("CDCA100400310001 0004 0000000000000000 0000 11223344"))
        self.assertEqual(few, bytes.fromhex(
            "CDCA100400660001 0014 5152535461626364 0000 0A0B0000 0002 0102030400000005 0002 00B40965"))
        self.assertEqual(most[24:], struct.pack(">H64IH64H", 64, *range(1000, 1064), 64, *range(100, 164)))

    def test_faults_of_the_device_reach_the_caller_as_codes_and_leave_the_port_free(self):
        block, attribute = self.query, lambda: self.command(180)
        whole = 20 + 4 + 4
        cases = [(block, {"status": status}, 31) for status in (0, 2, 4, 29, 33, 34, 0xFFFF)]
        cases += [(attribute, {"status": status}, 31) for status in (0, 29, 33, 65535)]
        cases += [
            (block, {"id": SMALL_BLOCK + 1}, 13), (block, {"id": SMALL_BLOCK + 1, "status": 29}, 13),
            (block, {"operation": 0x66}, 13), (block, {"operation": 45}, 13),
            (attribute, {"operation": 0x31}, 13), (attribute, {"length": 0}, 13), (attribute, {"length": 100}, 13),
            (attribute, {"id": 2405}, 13),  # 2405 with the length of 180
            (attribute, {"id": 7}, (0, 0, b"")), (block, {"length": 1}, 0), (block, {"sequence": 9}, 0),
            (block, {"reply": b"\xCA\xCD" + bytes(30)}, 13), (block, {"reply": b"@PJL INFO STATUS"}, 13),
            (block, {"reply": b"\xCD\xCA\x11" + bytes(30)}, 13), (block, {"reply": b"\xFF" * 9_000}, 13),
            (attribute, {"reply": b"\0"}, 13), (attribute, {"reply": b"\xFF" * 64}, 13),
            (block, {"truncate": 19}, 13), (block, {"truncate": 23}, 13),
            (block, {"truncate": whole - 1}, (0, 3, SMALL_BLOCK_DATA[:3])),
            (block, {"truncate": whole - 3}, (0, 1, SMALL_BLOCK_DATA[:1])), (attribute, {"truncate": 30}, 13),
            (block, {"truncate": 0, "close": True}, 13),
            (block, {"truncate": 0}, TIMED_OUT), (attribute, {"truncate": 0}, TIMED_OUT),
            # An answer that comes after the port below gave up is not taken for the next call's.
            (block, {"delay": LOWER_TIMEOUT + 300}, TIMED_OUT), (block, {"delay": LOWER_TIMEOUT // 4}, 0),
        ]
        for call, fault, expected in cases:
            with self.subTest(call=call.__name__, **{key: str(value)[:40] for key, value in fault.items()}):
                self.printer.set_vpca_fault(**fault, requests=1)
                outcome = call()
                if isinstance(expected, int):
                    self.assertEqual(outcome[0], expected)
                    self.assertEqual(outcome[1] == 0, expected != 0)
                else:
                    self.assertEqual(outcome, expected)
                self.assert_serves()

    def test_printer_that_is_off_or_resets(self):
        for fault, code in (({"mode": "refuse"}, 10061), ({"mode": "reset", "after": 0}, 10054)):
            with self.subTest(**fault):
                self.printer.set_fault(**fault)
                self.assertEqual(self.query(), (code, 0, b""))
                self.printer.clear_fault()
                self.assert_serves()

    def test_job_and_call_keep_apart_on_one_port(self):
        self.assertRegex(self.spooler.do("start 1"), "ok$")
        begin = time.monotonic()
        self.assertEqual(self.query(), (5, 0, b""))
        self.assertTrue(0.9 < time.monotonic() - begin < 3)
        # A second job waits in vain and gives a lock back that is not its own: the port is still not free.
        self.assertRegex(self.spooler.do("start 1"), "170")
        self.assertRegex(self.spooler.do("text first part"), "ok$")
        self.assertEqual(self.command(180), (5, 0, b""))
        self.assertRegex(self.spooler.do("end"), "ok$")
        self.assert_serves()
        record = self.printer.wait_for_documents(1)[-1]
        self.assertEqual((self.printer.store / record["file"]).read_bytes(), b"first part")
