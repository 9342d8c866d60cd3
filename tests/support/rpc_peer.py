"""A service on the remote procedures' TCP port that is not the monitor's: it speaks DCE/RPC by the byte and says what a
test tells it to, right or wrong.

    with RpcPeer(answer(stub)) as peer:
        a client calls
    peer.requests: (operation, stub) of each call
"""

import socket
import struct
import threading
import uuid

from foreign_client import TCP_PORT

REQUEST, RESPONSE, FAULT, BIND, BIND_ACK, BIND_NAK = 0, 2, 3, 11, 12, 13
FIRST, LAST = 1, 2
NDR = uuid.UUID("8a885d04-1ceb-11c9-9fe8-08002b104860").bytes_le + struct.pack("<I", 2)
MOST_SENT = 1 << 30  # on one connection


def pdu(kind, call, body, flags=FIRST | LAST, length=None):
    return struct.pack("<BBBBIHHI", 5, 0, kind, flags, 0x10, 16 + len(body) if length is None else length, 0, call) + body


def bind_ack(call, result=0, reason=0, syntax=NDR, fragment=5840):
    address = b"51656\0"
    body = struct.pack("<HHIH", fragment, fragment, 0x1234, len(address)) + address
    body += bytes(-len(body) % 4) + struct.pack("<BxxxHH", 1, result, reason) + syntax
    return pdu(BIND_ACK, call, body)


def bind_nak(call, reason=0):
    return pdu(BIND_NAK, call, struct.pack("<HBBB", reason, 1, 5, 0))


def fault(call, status):
    return pdu(FAULT, call, struct.pack("<IHBxII", 0, 0, 0, status, 0))


def fragments(call, stub, size=4096, hint=None):
    """A whole response, in as many fragments as it takes."""
    pieces = [stub[at:at + size] for at in range(0, len(stub), size)] or [b""]
    for number, piece in enumerate(pieces):
        flags = (FIRST if number == 0 else 0) | (LAST if number == len(pieces) - 1 else 0)
        head = struct.pack("<IHBx", len(stub) if hint is None else hint, 0, 0)
        yield pdu(RESPONSE, call, head + piece, flags)


def endless(call, hint=0xFFFFFFFF, size=5000):
    """Fragments without a last one."""
    flags = FIRST
    while True:
        yield pdu(RESPONSE, call, struct.pack("<IHBx", hint, 0, 0) + bytes(size), flags)
        flags = 0


def reply(data, size=None, result=0, count=None):
    """The stub data of a reply. What it says may differ from what it holds."""
    at_end = -len(data) % 4
    return struct.pack("<I", len(data) if count is None else count) + data + bytes(at_end) + struct.pack(
        "<II", len(data) if size is None else size, result)


def answer(stub, **how):
    return lambda call: fragments(call, stub, **how)


class RpcPeer:
    """`on_call` and `on_bind` get the number of the call and give the pieces to send, after which the connection stays
    open; `close` ends it then."""

    def __init__(self, on_call=None, on_bind=lambda call: [bind_ack(call)], close=False):
        self._on = {REQUEST: on_call, BIND: on_bind}
        self._close = close
        self.requests = []
        self._connections = []

    def __enter__(self):
        self._listener = socket.create_server(("127.0.0.1", TCP_PORT))
        self._threads = [threading.Thread(target=self._accept)]
        self._threads[0].start()
        return self

    def __exit__(self, *_):
        self._end(self._listener)
        self._threads[0].join(10)
        for connection in self._connections:
            self._end(connection)
        for thread in self._threads:
            thread.join(10)

    @staticmethod
    def _end(a_socket):
        try:
            a_socket.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        a_socket.close()

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self._connections.append(connection)
            self._threads.append(threading.Thread(target=self._serve, args=(connection,)))
            self._threads[-1].start()

    def _serve(self, connection):
        left = MOST_SENT
        try:
            stream = connection.makefile("rb")
            while len(head := stream.read(16)) == 16:
                kind, length, call = head[2], *struct.unpack_from("<HxxI", head, 8)
                body = stream.read(length - 16)
                if kind == REQUEST:
                    self.requests.append((struct.unpack_from("<H", body, 6)[0], body[8:]))
                for piece in self._on[kind](call) if self._on.get(kind) else ():
                    left -= len(piece)
                    if left < 0:
                        return
                    connection.sendall(piece)
                if self._close:
                    self._end(connection)
        except OSError:  # the other side has gone
            pass
