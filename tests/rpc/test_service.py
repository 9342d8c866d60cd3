"""The remote procedures as clients in other processes meet them: the companion over each endpoint, and impacket over
TCP, which shares no code with us or with the runtime that serves."""

import socket
import struct
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

from impacket.dcerpc.v5.rpcrt import DCERPCException

import windows
from foreign_client import TCP_PORT, Foreign, command, parse, query

EXCHANGE = "StartDocPort WritePort ReadPort EndDocPort"
ONE_AFTER_THE_OTHER = rf"\A({EXCHANGE}( |\Z))+\Z"


class Host(windows.Dialogue):
    def __init__(self, *arguments):
        super().__init__("rpc_host.exe", *arguments)
        assert self.line() == "ready"


def block(size):
    return bytes((i * 7 + 1) & 0xFF for i in range(size))


class Service(unittest.TestCase):
    """One host for all: a process can serve TCP only once under Wine."""

    @classmethod
    def setUpClass(cls):
        cls.host = Host()
        cls.addClassCleanup(cls.host.stop)

    def setUp(self):
        self.foreign = Foreign()
        self.addCleanup(self.foreign.close)

    def tearDown(self):
        # Whatever a test did: the lock is free, and everybody is served.
        with self.subTest("afterwards"):
            for reset in ("release", "fail", "throw", "calls"):
                self.host.do(reset)
            self.assertEqual(self.query(), (0, 16, block(16)))
            self.assertEqual(self.host.do("calls"), EXCHANGE)

    def query(self, **arguments):
        return parse(self.foreign.call(0, query(**arguments)))

    def command(self, **arguments):
        return parse(self.foreign.call(1, command(**arguments)))

    def vlmctl(self, *arguments):
        return windows.vlmctl("rpc", *arguments)


class ProcedureTest(Service):
    def test_only_usb_printers_with_bidi_are_found(self):
        for name, code in (
                ("usb001", 0), (r"\\any\office", 0), (r"\\10.0.0.1\Office", 0),
                ("USB002", 110), (r"\\s\mute", 110), (r"\\s\net", 110), ("Office", 110), ("IP_office", 110),
                ("USB001x", 110), ("USB", 110), ("", 110), ("\\\\", 110), (r"\\s", 110), ("\\\\s\\", 110),
                (r"\\s\office\x", 110), (r"\s\office", 110), ("\\\\s\\" + "x" * 123, 110),
                ("USB003", 161), (r"\\s\closed", 161), ("USB004", 6),
                ("\\\\s\\" + "x" * 124, 87), ("x" * 100_000, 87)):
            with self.subTest(name[:40]):
                code_, size, reply = self.query(name=name)
                self.assertEqual(code_, code)
                if code:
                    self.assertEqual((size, reply), (0, b""))

    def test_names_compare_without_case_for_all_letters(self):
        for share, code in (("B\u00FCro", 0), ("b\u00DCRO", 0), ("Buro", 110), ("B\u00DCR\u00D6", 110)):
            with self.subTest(share):
                result = self.vlmctl("query", rf"\\server\{share}", 16, "--raw")
                if code:
                    self.assertRegex(result.stderr, f"returned {code}")
                else:
                    self.assertEqual(bytes.fromhex(result.stdout), block(16), result.stderr)

    def test_request_that_cannot_be_encoded_is_not_written(self):
        for counts in ({"long_count": 65}, {"short_count": 65}, {"long_count": 65535, "short_count": 65535}):
            self.assertEqual(self.command(**counts), (87, 0, b""))
        self.assertEqual(self.host.do("calls"), "")
        self.assertEqual(self.command(kind=1), (87, 0, b""), "an address that the client cannot send")
        self.assertEqual(self.host.do("calls"), "StartDocPort EndDocPort")

    def test_every_failure_below_gives_the_lock_back(self):
        for fault in ("fail", "throw"):
            for step in ("StartDocPort", "WritePort", "ReadPort", "EndDocPort"):
                with self.subTest(fault=fault, step=step):
                    self.host.do(f"{fault} {step}")
                    expected = (21 if fault == "fail" else 31, 0, b"")
                    if step == "EndDocPort":  # by then the reply is there
                        expected = (0, 16, block(16))
                    self.assertEqual(self.query(), expected)
                    self.assertEqual(self.query(), expected, "at once, not after a wait for the lock")
                    self.host.do(fault)


class JobLockTest(Service):
    def test_job_that_starts_during_an_exchange_is_refused(self):
        self.host.do("block ReadPort")
        self.foreign.rpc.call(0, query())
        self.assertEqual(self.host.do("entered"), "yes")
        self.assertEqual(self.host.do("job"), "error 170")
        second = Foreign()
        self.addCleanup(second.close)
        self.assertEqual(parse(second.call(0, query()))[0], 5)
        self.host.do("release")
        self.assertEqual(parse(self.foreign.rpc.recv()), (0, 16, block(16)))
        self.assertEqual(self.host.do("calls"), EXCHANGE)


class HostileTest(Service):
    def test_malformed_calls_are_refused(self):
        good = query()
        bad = [(0, good[:cut]) for cut in (0, 3, 8, 12, 19, len(good) - 8, len(good) - 1)]
        bad += [(1, command()[:cut]) for cut in (20, 30, 200, 426)]
        bad += [(0, struct.pack("<III", 6, 0, 6) + b"USB001\0\0" + struct.pack("<II", 16, 64)),  # no NUL
                (0, struct.pack("<III", 4, 0, 7) + b"USB001\0\0" + struct.pack("<II", 16, 64)),
                (0, struct.pack("<III", 7, 2, 7) + b"USB001\0\0" + struct.pack("<II", 16, 64)),
                (0, struct.pack("<III", 7, 0, 0xFFFFFFFF) + b"USB001\0\0" + struct.pack("<II", 16, 64)),
                (2, good), (7, good), (1, good)]
        bad += [(0, query(size=size)) for size in (1_048_577, 0x40000000, 0x7FFFFFFF, 0xFFFFFFFC, 0xFFFFFFFF)]
        bad += [(1, command(size=0xFFFFFFFF))]
        for operation, stub in bad:
            with self.subTest(operation=operation, length=len(stub), tail=stub[-4:].hex()):
                # On a connection of its own: after some of these the runtime answers twice.
                client = Foreign()
                with self.assertRaises(DCERPCException):
                    client.call(operation, stub)
                client.close()
        self.assertEqual(self.host.do("calls"), "", "nothing of it reached the port")

    def test_vanishing_silent_and_garbled_clients_disturb_nobody(self):
        silent = [socket.create_connection(("127.0.0.1", TCP_PORT)) for _ in range(10)]
        for i, connection in enumerate(silent):
            connection.sendall((b"", b"\x05\x00\x0b", b"GET / HTTP/1.0\r\n\r\n")[i % 3])
        self.host.do("block ReadPort")
        vanishing = Foreign()
        vanishing.rpc.call(0, query())
        self.assertEqual(self.host.do("entered"), "yes")
        vanishing.close()
        self.host.do("release")
        for _ in range(20):
            gone = Foreign()
            gone.rpc.call(0, query())
            gone.close()
        deadline = time.monotonic() + 10
        while (code := self.query()[0]) == 5 and time.monotonic() < deadline:
            pass
        self.assertEqual(code, 0)
        for connection in silent:
            connection.close()
        # Calls of clients that have gone may still be served, one after the other.
        served = []
        while (calls := self.host.do("calls")) and time.monotonic() < deadline:
            served.append(calls)
            time.sleep(0.5)
        self.assertEqual(calls, "")
        self.assertRegex(" ".join(served), ONE_AFTER_THE_OTHER)

    def test_many_callers_at_once_are_all_served_one_after_the_other(self):
        for endpoint, times in (("tcp", 64), ("pipe", 64), ("local", 500)):
            with self.subTest(endpoint):
                result = self.vlmctl("query", "USB001", 16, "--endpoint", endpoint, "--times", times)
                outcomes = dict(line.rsplit(" ", 1) for line in result.stdout.splitlines())
                # Each waits a second for the port at most, so a crowd may leave some with 5, but nobody without.
                self.assertEqual(sum(map(int, outcomes.values())), times, result.stdout + result.stderr)
                self.assertLessEqual(outcomes.keys(), {"result 0", "result 5"})
                self.assertGreater(int(outcomes["result 0"]), times // 4)
                self.assertRegex(self.host.do("calls"), ONE_AFTER_THE_OTHER)


class ClosingTest(unittest.TestCase):
    """The port or the monitor goes away under a call. Local calls only: each case has a host of its own."""

    def setUp(self):
        self.callers = self.enterContext(ThreadPoolExecutor())

    def start(self, *arguments):
        self.host = Host(*arguments)
        self.addCleanup(self.host.process.kill)
        self.addCleanup(self.host.stop)
        return self.host

    def call_in_background(self, port="USB001"):
        """What waits for its end and gives what it says."""
        call = self.callers.submit(lambda: windows.vlmctl("rpc", "query", port, 16).stderr)
        if port == "USB001":
            self.assertEqual(self.host.do("entered"), "yes")
        return call.result

    def query(self):
        result = windows.vlmctl("rpc", "query", "USB001", 16, "--raw")
        return result.stdout.strip() or result.stderr.strip()

    def assert_serves(self):
        self.assertEqual(bytes.fromhex(self.query()), block(16))

    def assert_waits_in_vain(self, verb):
        waited = int(self.host.do(verb).split()[1])
        self.assertTrue(2500 < waited < 6000, waited)

    def test_close_waits_for_an_exchange_and_the_exchange_fails(self):
        host = self.start()
        host.do("block ReadPort")
        finish = self.call_in_background()
        host.send("close")
        time.sleep(0.3)
        host.send("release")
        self.assertEqual(sorted([host.line(), host.line()])[1], "ok")
        self.assertRegex(finish(), "returned 995")
        self.assertEqual(host.do("calls"), EXCHANGE + " ClosePort")
        self.assertEqual(host.do("open"), "ok")
        self.assert_serves()

    def test_close_leaves_an_exchange_that_hangs_to_itself(self):
        host = self.start()
        host.do("block ReadPort")
        finish = self.call_in_background()
        self.assert_waits_in_vain("close")
        self.assertEqual(host.do("open"), "error 170", "the name is taken until the exchange is over")
        self.assertEqual(host.do("calls"), "StartDocPort WritePort ReadPort", "not closed under the call")
        host.do("release")
        self.assertRegex(finish(), "returned 995")
        self.assertEqual(host.do("calls"), "EndDocPort ClosePort")
        self.assertEqual(host.do("open"), "ok")
        self.assert_serves()

    def test_shutdown_leaves_an_exchange_that_hangs_and_calls_nothing_below_any_more(self):
        host = self.start()
        host.do("block WritePort")
        finish = self.call_in_background()
        self.assertLess(int(host.do("shutdown").split()[1]), 6000)
        self.assertEqual(host.do("unload"), "kept", "code that a call is inside must stay")
        host.do("calls")
        host.do("release")
        finish()
        self.assertEqual(host.do("calls"), "")

    def test_shutdown_bars_all_ports_at_once_while_one_hangs(self):
        host = self.start()
        host.do("block ReadPort")
        hanging = self.call_in_background()
        host.do("slow 700")
        healthy = self.call_in_background("USB005")
        while host.do("slow") != "StartDocPort":
            time.sleep(0.05)
        self.assert_waits_in_vain("shutdown")
        self.assertRegex(healthy(), "returned 995")
        self.assertEqual(host.do("slow"), "EndDocPort", "nothing new is begun, and the document is ended")
        host.do("calls")
        host.do("release")
        hanging()
        self.assertEqual(host.do("calls"), "")

    def test_shutdown_does_not_wait_for_ever_for_a_call_that_the_spooler_holds(self):
        host = self.start()
        host.do("delay 8000")
        asked = host.do("asked")
        caller = self.callers.submit(self.query)
        while host.do("asked") == asked:
            time.sleep(0.05)
        self.assert_waits_in_vain("shutdown")
        self.assertEqual(host.do("unload"), "kept")
        caller.result()

    def test_exception_that_is_not_cpp_costs_the_port_until_shutdown(self):
        """It passes through us; the RPC runtime catches it, at least this one."""
        host = self.start()
        host.do("raise ReadPort")
        self.assertRegex(windows.vlmctl("rpc", "query", "USB001", 16).stderr, "RPC status 998")
        self.assertEqual(host.do("calls"), "StartDocPort WritePort ReadPort", "nothing of ours ran on its way")
        host.do("raise")
        self.assertRegex(self.query(), "returned 5")
        self.assertEqual(host.do("job"), "error 170")
        self.assert_waits_in_vain("close")
        self.assertEqual(host.do("open"), "error 170")
        self.assertEqual(host.do("calls"), "")
        # The other ports, and the end, are as ever.
        self.assertEqual(windows.vlmctl("rpc", "query", "USB005", 16).stderr, "")
        self.assert_waits_in_vain("shutdown")

    def test_process_ends_at_once_with_a_call_in_flight(self):
        for arguments in ([], ["spoolsv.exe"]):
            with self.subTest(arguments):
                host = self.start(*arguments)
                host.do("block ReadPort")
                finish = self.call_in_background()
                self.assertLess(host.stop(), 5)
                self.assertRegex(finish(), "RPC status 172")

    def test_unloaded_without_shutdown_in_the_spooler_the_interface_is_gone(self):
        host = self.start("spoolsv.exe")
        self.assert_serves()
        self.assertEqual(host.do("unload"), "gone")
        self.assertRegex(self.query(), "RPC status 1717")

    def test_unload_after_shutdown_and_load_again(self):
        host = self.start()
        for _ in range(3):
            self.assert_serves()
            self.assertEqual(host.do("second"), "ok")
            self.assert_serves()
            self.assertRegex(host.do("shutdown"), "done")
            self.assertRegex(self.query(), "RPC status 1717")
            self.assertEqual(host.do("unload"), "gone")
            self.assertRegex(self.query(), "RPC status 1717")
            self.assertEqual(host.do("load"), "ok")
