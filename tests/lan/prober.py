"""Asks a network as a searcher's socket does, and keeps what came with the frames it came in."""

import contextlib
import socket
import struct
import time
import uuid

from lan import GROUP, PORT

ETH_ALL = 3

PROBE = """<?xml version="1.0" encoding="UTF-8"?>
<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"
 xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing"><s:Header>
<a:MessageID>urn:uuid:{id}</a:MessageID>
<a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To>
<a:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</a:Action></s:Header><s:Body>
<Probe xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery"/></s:Body></s:Envelope>"""


def probe_text():
    return PROBE.format(id=uuid.uuid4()).encode()


def mac_text(raw):
    return ":".join(f"{byte:02X}" for byte in raw)


class Prober:
    """A UDP socket of the searcher's and, beside it, everything that passes its device."""

    def __init__(self, namespace, device, address, family=socket.AF_INET):
        self.socket = namespace.socket(family)
        self.socket.bind((address, 0))
        self.scope = ()
        if family == socket.AF_INET6:
            with namespace.entered():
                self.scope = (0, socket.if_nametoindex(device))
        self.wire = namespace.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_ALL))
        self.wire.bind((device, 0))
        self.wire.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()
        self.wire.close()

    def ask(self, address=GROUP, text=None, port=PORT):
        self.socket.sendto(probe_text() if text is None else text, (address, port, *self.scope))

    def replies(self, count, seconds=30):
        """Waits for so many; returns [(address, text)], fewer when the time is up."""
        found = []
        deadline = time.monotonic() + seconds
        with contextlib.suppress(socket.timeout):
            while len(found) < count:
                self.socket.settimeout(max(0.01, deadline - time.monotonic()))
                text, peer = self.socket.recvfrom(65536)
                found.append((peer[0], text.decode(errors="replace")))
        return found

    def frames(self):
        """What has passed the device until now, as (EtherType, source MAC, target MAC, rest)."""
        self.wire.setblocking(False)
        found = []
        with contextlib.suppress(BlockingIOError):
            while True:
                frame = self.wire.recv(65536)
                [kind] = struct.unpack_from("!H", frame, 12)
                found.append((kind, mac_text(frame[6:12]), mac_text(frame[:6]), frame[14:]))
        return found

    def arp_requests(self):
        """The ARP requests among them, as (asker's MAC, asker's address, address asked for)."""
        return [(mac_text(rest[8:14]), socket.inet_ntoa(rest[14:18]), socket.inet_ntoa(rest[24:28]))
                for kind, _, _, rest in self.frames() if kind == 0x0806 and rest[7] == 1]
