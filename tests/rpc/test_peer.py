"""vlmctl rpc and doctor where somebody else has the remote procedures' TCP port, by mistake or on purpose: whatever that
peer sends, the companion ends with one line."""

import struct
import unittest

import windows
from foreign_client import command, query
from rpc_peer import (RpcPeer, answer, bind_ack, bind_nak, endless, fault, fragments, pdu, reply,
                      RESPONSE)

QUERY = ("query", "USB001", 16)
COMMAND = ("command", "USB001", "--values", "0x51525354", "0x61626364", "--word", "0x0A0B", "--long", 5, "--short", 180)
MOST = 1_048_576


def rpc(call, capacity=16, timeout=20, **more):
    return windows.vlmctl("rpc", *call, "--endpoint", "tcp", "--capacity", capacity, "--timeout", timeout, **more)


class PeerTest(unittest.TestCase):
    def assert_fails(self, done, says):
        self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
        self.assertRegex(done.stderr, rf"\Avlmctl: [^\n]*{says}[^\n]*\n\Z")

    def test_request_is_that_of_another_client_and_the_largest_reply_is_taken(self):
        data = bytes(i % 251 for i in range(MOST))
        for call, capacity, size, operation, stub in ((QUERY, 16, 0, 0, query(size=16)),
                                                      (QUERY, 15, 15, 0, query(size=15)),
                                                      (COMMAND, MOST, MOST, 1, command(longs=[5], size=MOST))):
            with self.subTest(call=call[0], size=size), RpcPeer(answer(reply(data[:size]))) as peer:
                done = rpc((*call, "--raw"), capacity)
                self.assertEqual(bytes.fromhex(done.stdout), data[:size], done.stderr)
                self.assertEqual(peer.requests, [(operation, stub)])

    def test_reply_that_does_not_fit_what_was_asked_for(self):
        asked = "the limit is"
        for stub, capacity, says in (
                (reply(bytes(17)), 16, asked), (reply(bytes(20), size=16), 16, asked),
                (reply(bytes(100_000)), 16, asked), (reply(bytes(100_000), size=16), 16, asked),
                (reply(bytes(8_000_000)), 16, asked), (reply(bytes(MOST + 1)), MOST, asked),
                (reply(bytes(100_000), result=5), 16, asked), (reply(b"x"), 0, asked),
                (reply(bytes(16), count=0x7FFFFFFF), 16, asked), (reply(bytes(16), count=0xFFFFFFFF), MOST, asked),
                (reply(bytes(16), count=MOST), MOST, "ends before"), (reply(bytes(9), count=13), 16, "ends before"),
                (reply(bytes(16), count=4), 16, "after its end"), (reply(b"") + bytes(70_000), 16, "after its end"),
                (reply(bytes(16), size=17), 16, "size 17"), (reply(bytes(16), size=0xFFFFFFFF), 16, "4294967295"),
                (reply(bytes(4), result=31), 16, "result 31"),
                (b"", 16, "a reply of only"), (bytes(11), 16, "a reply of only")):
            for call in (QUERY, COMMAND) if says == asked and len(stub) > 90_000 else (QUERY,):
                with self.subTest(length=len(stub), begin=stub[:4].hex(), call=call[0]), RpcPeer(answer(stub)):
                    self.assert_fails(rpc(call, capacity), says)

    def test_many_such_replies_are_counted(self):
        with RpcPeer(answer(reply(bytes(100_000)))):
            self.assertEqual(rpc(QUERY + ("--times", 5)).stdout, "not a reply of the monitor 5\n")

    def test_what_is_no_answer_to_the_call(self):
        whole = b"".join(fragments(1, reply(bytes(16))))
        for name, peer, says in (
                ("refuses to bind", RpcPeer(on_bind=lambda call: [bind_nak(call)]), "RPC status 1727"),
                ("another interface", RpcPeer(on_bind=lambda call: [bind_ack(call, 2, 1, bytes(20))]), "status 1717"),
                ("fault", RpcPeer(lambda call: [fault(call, 0x1C010002)]), "RPC status 1745"),
                ("fault of a C++ exception", RpcPeer(lambda call: [fault(call, 0xE06D7363)]), "RPC status 0xE06D7363: "),
                ("fault of a bad address", RpcPeer(lambda call: [fault(call, 0xC0000005)]), "RPC status 0xC0000005: "),
                ("fault of a debugger's note", RpcPeer(lambda call: [fault(call, 0x40010006)]), "status 0x40010006"),
                ("fault without a code", RpcPeer(lambda call: [fault(call, 0)]), "a reply of only"),
                ("a page", RpcPeer(on_bind=lambda _: [b"HTTP/1.1 400 Bad Request\r\n\r\n" * 9]), "not speak RPC"),
                ("a page later", RpcPeer(lambda _: [b"HTTP/1.1 400 Bad Request\r\n\r\n" * 9]), "not speak RPC"),
                ("lengths that lie", RpcPeer(lambda call: [pdu(RESPONSE, call, bytes(24), length=3)]), "RPC status"),
                ("closes instead of binding", RpcPeer(on_bind=lambda _: [], close=True), "went away"),
                ("closes instead of answering", RpcPeer(lambda _: [], lambda call: [bind_ack(call)]), "within 2 s"),
                ("stops within its answer", RpcPeer(lambda _: [whole[:30]]), "within 2 s"),
                ("fragments of nothing", RpcPeer(lambda call: endless(call, 16, 0)), "within 2 s|without end"),
                ("fragments without end", RpcPeer(endless), "an endless reply"),
                ("more than it announced", RpcPeer(lambda call: endless(call, 16)), "within 2 s|without end")):
            with self.subTest(name), peer:
                self.assert_fails(rpc(QUERY, timeout=45 if says == "an endless reply" else 2), says)


class DoctorTest(unittest.TestCase):
    def tcp(self):
        report = windows.vlmctl("doctor", VLM_SPOOLER="wine").stdout
        return next(line for line in report.splitlines() if " rpc tcp " in line)

    def test_only_the_monitors_own_answers_are_ok(self):
        refused = reply(b"", result=110)
        for name, on_call, says in (
                ("success", answer(reply(b"")), "0 for a printer without a name instead of 110"),
                ("one code for all", answer(refused), "110 for a command .* instead of 87"),
                ("a refusal with data", answer(reply(bytes(100_000), result=110)), "100000 bytes, the limit is 0"),
                ("a fault", lambda call: [fault(call, 0x1C010002)], "RPC status 1745"),
                ("no end", endless, "sends an endless reply|does not answer"),  # as fast as the machine is
                ("nothing", lambda _: [], "accepts the call but does not answer")):
            with self.subTest(name), RpcPeer(on_call):
                self.assertRegex(self.tcp(), rf"wrong +rpc tcp +.*{says}")

    def test_the_right_refusals_are_ok(self):
        def refuse(call):
            operation = peer.requests[-1][0]
            return fragments(call, reply(b"", result=(110, 87)[operation]))
        with RpcPeer(refuse) as peer:
            self.assertRegex(self.tcp(), r"ok +rpc tcp +answers \(110")
        self.assertEqual(struct.unpack_from("<I", peer.requests[0][1], len(peer.requests[0][1]) - 4), (0,))
