"""Cameras with a MAC address each that have to ask for the searcher's before they can answer, as
hosts do, made of one packet socket: the simulator's cameras know it from the Probe.

What a host does about ARP is RFC 1122, 2.3.2: a request a second at most, datagrams wait meanwhile;
after three requests without an answer they are dropped."""

import heapq
import itertools
import random
import select
import socket
import struct
import threading
import time

from camera import Probe, reply
from lan import GROUP, PORT

ARP, IPV4 = b"\x08\x06", b"\x08\x00"
REQUEST, REPLY = 1, 2
TRIES = 3
MAX_DELAY = 0.5  # seconds; WS-Discovery's APP_MAX_DELAY
PACKET_SOCKET_BUFFER = 16 << 20
SO_RCVBUFFORCE = 33


class Host:
    """One camera and what it knows of the searcher."""

    def __init__(self, number):
        self.address = f"10.1.{1 + number // 200}.{1 + number % 200}"
        self.packed = socket.inet_aton(self.address)
        self.mac = b"\x02\xaa" + self.packed
        self.searcher_mac = None
        self.waiting = []  # destination ports of answers that wait for it
        self.tries = 0
        payload = reply(Probe(b"", None, self.address, 0))
        self.payload = struct.pack("!HH", 8 + len(payload), 0) + payload

    @property
    def mac_text(self):
        return ":".join(f"{byte:02X}" for byte in self.mac)


class Crowd:
    """`count` cameras behind one device; `with` has them answer."""

    def __init__(self, namespace, device, searcher, count):
        self.hosts = {host.packed: host for host in map(Host, range(count))}
        self._searcher = socket.inet_aton(searcher)
        self._due = []  # (when, order, what to do)
        self._order = itertools.count()
        self._random = random.Random(1)
        with namespace.entered():
            self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
        self._socket.bind((device, 0))
        self._socket.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, PACKET_SOCKET_BUFFER)
        self._stop_in, self._stop_out = socket.socketpair()
        self._thread = threading.Thread(target=self._serve, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stop_in.close()
        self._thread.join(10)
        self._stop_out.close()
        self._socket.close()

    @property
    def resolved(self):
        """How many cameras got an answer to their ARP request."""
        return sum(host.searcher_mac is not None for host in self.hosts.values())

    def _later(self, seconds, action, *arguments):
        heapq.heappush(self._due, (time.monotonic() + seconds, next(self._order), action,
                                   arguments))

    def _serve(self):
        while True:
            while self._due and self._due[0][0] <= time.monotonic():
                _, _, action, arguments = heapq.heappop(self._due)
                action(*arguments)
            pause = max(0, self._due[0][0] - time.monotonic()) if self._due else None
            ready, _, _ = select.select([self._socket, self._stop_out], [], [], pause)
            if self._stop_out in ready:
                return
            if ready:
                self._hear(self._socket.recv(65536))

    def _hear(self, frame):
        if frame[12:14] == ARP:
            self._hear_arp(frame)
        elif frame[12:14] == IPV4 and frame[30:34] == socket.inet_aton(GROUP):
            [port] = struct.unpack_from("!H", frame, 34)
            for host in self.hosts.values():
                self._later(self._random.uniform(0, MAX_DELAY), self._answer, host, port)

    def _hear_arp(self, frame):
        host = self.hosts.get(frame[38:42])
        if host is None:
            return
        if frame[20:22] == struct.pack("!H", REQUEST):
            self._socket.send(frame[6:12] + host.mac + ARP
                              + arp(REPLY, host, frame[22:28], frame[28:32]))
            return
        host.searcher_mac = frame[6:12]
        for port in host.waiting:
            self._send_answer(host, port)
        host.waiting = []

    def _answer(self, host, port):
        if host.searcher_mac:
            self._send_answer(host, port)
            return
        host.waiting = (host.waiting + [port])[-TRIES:]
        if host.tries == 0:
            self._resolve(host)

    def _resolve(self, host):
        if host.searcher_mac:
            return
        if host.tries == TRIES:
            host.tries, host.waiting = 0, []
            return
        host.tries += 1
        self._socket.send(b"\xff" * 6 + host.mac + ARP
                          + arp(REQUEST, host, bytes(6), self._searcher))
        self._later(1, self._resolve, host)

    def _send_answer(self, host, port):
        udp = struct.pack("!HH", PORT, port) + host.payload
        header = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0x4000, 64,
                             socket.IPPROTO_UDP, 0, host.packed, self._searcher)
        header = header[:10] + struct.pack("!H", checksum(header)) + header[12:]
        self._socket.send(host.searcher_mac + host.mac + IPV4 + header + udp)


def arp(operation, host, target_mac, target):
    return struct.pack("!HHBBH6s4s6s4s", 1, 0x0800, 6, 4, operation, host.mac, host.packed,
                       target_mac, target)


def checksum(header):
    """RFC 1071."""
    total = sum(struct.unpack(f"!{len(header) // 2}H", header))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF
