"""A client of the remote procedures that shares no code with us or with the runtime that serves: impacket, and the
bytes of each call written here."""

import struct

from impacket.dcerpc.v5 import transport
from impacket.uuid import uuidtup_to_bin

INTERFACE = ("F176E676-8D3D-4106-81CF-A092FB0F7041", "1.0")
TCP_PORT = 51656


class Foreign:
    """One connection over TCP."""

    def __init__(self):
        self.rpc = transport.DCERPCTransportFactory(f"ncacn_ip_tcp:127.0.0.1[{TCP_PORT}]").get_dce_rpc()
        self.rpc.connect()
        self.rpc.bind(uuidtup_to_bin(INTERFACE))

    def call(self, operation, stub):
        self.rpc.call(operation, stub)
        return self.rpc.recv()

    def close(self):
        self.rpc.disconnect()


def text(value):
    raw = value.encode() + b"\0"
    return struct.pack("<III", len(raw), 0, len(raw)) + raw + bytes(-len(raw) % 4)


def query(name="USB001", data_id=16, size=8192):
    return text(name) + struct.pack("<II", data_id, size)


def command(name="USB001", values=(0x51525354, 0x61626364), longs=(), shorts=(180,), size=64, long_count=None,
            short_count=None, kind=0):
    params = struct.pack("<HBxHxx", 0x0A0B, kind, len(longs) if long_count is None else long_count)
    params += struct.pack("<64I", *longs, *[0] * (64 - len(longs)))
    params += struct.pack("<H64Hxx", len(shorts) if short_count is None else short_count, *shorts,
                          *[0] * (64 - len(shorts)))
    return text(name) + struct.pack("<II", *values) + params + struct.pack("<I", size)


def parse(answer):
    """(Win32 code, size, reply bytes)"""
    count, = struct.unpack_from("<I", answer)
    at = 4 + count + (-count % 4)
    size, code = struct.unpack_from("<II", answer, at)
    assert len(answer) == at + 8, answer
    return code, size, answer[4:4 + count]
