"""Stands between a host and a printer on loopback TCP, passes on what comes, and keeps it as a packet capture.

    with WireTap(printer.raw_port) as tap:
        the host connects to ("127.0.0.1", tap.port)
    tap.save("exchange.pcap")

A capture has one packet for each piece that arrived, with the ends of the connections; the printer's port in it is
9100.
"""

import select
import socket
import struct
import threading

FIN, SYN, RST, PSH, ACK = 1, 2, 4, 8, 16
PRINTER_PORT = 9100
_RAW_IP = 101  # the link type of packets without a link layer


class Capture:
    """Packets of TCP connections. `host` tells the connections apart: it is the host's port."""

    def __init__(self):
        self.packets = []
        self._next = {}

    def connect(self, host):
        self._next[host] = [1000, 5000]
        self.send(host, True, b"", SYN)
        self.send(host, False, b"", SYN | ACK)

    def send(self, host, from_host, data, flags=PSH | ACK, most=16_000):
        """One direction's next bytes; in several packets when they are more than one may hold."""
        for at in range(0, max(len(data), 1), most):
            self._packet(host, from_host, data[at:at + most], flags)

    def end(self, host, from_host, flags=FIN | ACK):
        self.send(host, from_host, b"", flags)

    def _packet(self, host, from_host, data, flags):
        numbers = self._next[host]
        mine, theirs = (0, 1) if from_host else (1, 0)
        ports = (host, PRINTER_PORT) if from_host else (PRINTER_PORT, host)
        addresses = (b"\xC0\x00\x02\x01", b"\xC0\x00\x02\x02")
        tcp = struct.pack("!HHIIBBHHH", *ports, numbers[mine], numbers[theirs] if flags & ACK else 0, 5 << 4, flags,
                          65535, 0, 0) + data
        ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(tcp), len(self.packets), 0, 64, 6, 0, addresses[mine],
                         addresses[theirs])
        self.packets.append(ip + tcp)
        numbers[mine] += len(data) + (1 if flags & (SYN | FIN) else 0)

    def save(self, path):
        with open(path, "wb") as file:
            file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, _RAW_IP))
            for number, packet in enumerate(self.packets):
                file.write(struct.pack("<IIII", 1_700_000_000, number * 1000, len(packet), len(packet)) + packet)


class WireTap:
    def __init__(self, printer_port):
        self.capture = Capture()
        self._printer_port = printer_port
        self._lock = threading.Lock()
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self._threads = [threading.Thread(target=self._accept, daemon=True)]
        self._threads[0].start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        """Waits for the connections under way to end."""
        self._listener.shutdown(socket.SHUT_RDWR)
        for thread in self._threads:
            thread.join(10)
        self._listener.close()

    def save(self, path):
        with self._lock:
            self.capture.save(path)

    def _accept(self):
        while True:
            try:
                host, address = self._listener.accept()
            except OSError:
                return
            thread = threading.Thread(target=self._serve, args=(host, address[1]), daemon=True)
            self._threads.append(thread)
            thread.start()

    def _serve(self, host, number):
        with host, socket.create_connection(("127.0.0.1", self._printer_port)) as printer:
            with self._lock:
                self.capture.connect(number)
            sinks = {host: printer, printer: host}
            while sinks:
                for source in select.select(list(sinks), [], [])[0]:
                    try:
                        data = source.recv(65536)
                    except OSError:
                        data = None
                    with self._lock:
                        if data:
                            self.capture.send(number, source is host, data)
                        else:
                            self.capture.end(number, source is host, FIN | ACK if data == b"" else RST | ACK)
                    try:
                        if data:
                            sinks[source].sendall(data)
                        else:
                            sinks.pop(source).shutdown(socket.SHUT_WR)
                    except OSError:
                        return
