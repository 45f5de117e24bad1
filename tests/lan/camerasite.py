"""Cameras that hear only Probes to their own addresses, as those behind a router do."""

import ipaddress
import random
import socket
import struct
import threading

from camera import Probe, reply
from lan import PORT

IP_PKTINFO = 8


class Site:
    """Cameras on the addresses of a namespace, which may be all of a subnet: the kernel takes
    whatever is routed to it. `loss` is the share of Probes, and of replies, that are lost."""

    def __init__(self, namespace, subnet, addresses, loss=0.0, answer=reply):
        self._addresses = set(map(str, addresses))
        self._loss, self._answer = loss, answer
        self._random = random.Random(1)
        self.asked = {}  # how often each was, lost ones included
        self.senders = set()
        namespace.ip("route", "add", "local", str(ipaddress.ip_network(subnet)), "dev", "lo")
        self._socket = namespace.socket()
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
        self._socket.setsockopt(socket.IPPROTO_IP, IP_PKTINFO, 1)
        self._socket.bind(("0.0.0.0", PORT))
        self._socket.settimeout(0.1)
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._serve, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stop.set()
        self._thread.join(10)
        self._socket.close()

    def _serve(self):
        while not self._stop.is_set():
            try:
                payload, ancillary, _, sender = self._socket.recvmsg(65536, 256)
            except TimeoutError:
                continue
            self._take(payload, dict((kind, data) for _, kind, data in ancillary), sender)

    def _take(self, payload, ancillary, sender):
        to = socket.inet_ntoa(ancillary[IP_PKTINFO][8:12])
        number = self.asked.get(to, 0)
        self.asked[to] = number + 1
        self.senders.add(sender[0])
        if to not in self._addresses or self._lost():
            return
        text = self._answer(Probe(payload, sender, to, number))
        if not self._lost():
            source = struct.pack("=i4s4s", 0, socket.inet_aton(to), bytes(4))
            self._socket.sendmsg([text], [(socket.IPPROTO_IP, IP_PKTINFO, source)], 0, sender)

    def _lost(self):
        return self._random.random() < self._loss
