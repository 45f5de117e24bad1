"""Cameras written by hand, for replies that the simulator does not make.

    with Responder(namespace, "eth0", ["10.1.0.2"], lambda probe: [reply(probe)]):
        ... searches ...
"""

import contextlib
import re
import select
import socket
import struct
import threading
import time

from lan import GROUP, PORT

NETWORK_VIDEO_TRANSMITTER = "dn:NetworkVideoTransmitter"
MESSAGE_ID = re.compile(rb"MessageID[^>]*>\s*([^<\s]+)")


class Probe:
    """A datagram that reached the group, as one camera of a Responder sees it."""

    def __init__(self, payload, sender, camera, number):
        self.payload = payload
        self.sender = sender  # (address, port)
        self.camera = camera  # the camera's own address
        self.number = number  # 0 for the first that this camera saw

    @property
    def message_id(self):
        found = MESSAGE_ID.search(self.payload)
        return found[1].decode("ascii", "replace") if found else ""


def reply(probe, xaddrs=None, scopes="onvif://www.onvif.org/hardware/Hand", extra=""):
    """A ProbeMatches answer; None leaves XAddrs at a plain http address of the camera."""
    if xaddrs is None:
        xaddrs = f"http://{probe.camera}/onvif/device_service"
    return (
        '<?xml version="1.0" encoding="UTF-8"?>'
        '<e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope"'
        ' xmlns:w="http://schemas.xmlsoap.org/ws/2004/08/addressing"'
        ' xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery"'
        ' xmlns:dn="http://www.onvif.org/ver10/network/wsdl"><e:Header>'
        f'<w:MessageID>uuid:00000000-0000-4000-8000-{hash(probe.camera) & 0xffffffffffff:012x}'
        f'</w:MessageID><w:RelatesTo>{probe.message_id}</w:RelatesTo>'
        '<w:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</w:Action>'
        '</e:Header><e:Body><d:ProbeMatches><d:ProbeMatch><w:EndpointReference>'
        f'<w:Address>urn:uuid:{probe.camera}</w:Address></w:EndpointReference>'
        f'<d:Types>{NETWORK_VIDEO_TRANSMITTER}</d:Types><d:Scopes>{scopes}</d:Scopes>'
        f'<d:XAddrs>{xaddrs}</d:XAddrs><d:MetadataVersion>1</d:MetadataVersion>{extra}'
        '</d:ProbeMatch></d:ProbeMatches></e:Body></e:Envelope>').encode()


class Responder:
    """Cameras on one device of a namespace. `answer(probe)` gives the datagrams that one of them
    sends back for one Probe, in order; a number among them is a pause in seconds."""

    def __init__(self, namespace, device, addresses, answer, bits=24):
        self.addresses = list(addresses)
        self._namespace, self._device = namespace, device
        self.probes = []  # payloads, once each
        self.answered = 0  # datagrams sent
        self._answer = answer
        self._counts = dict.fromkeys(self.addresses, 0)
        carried = {record["local"] for link in namespace.ip("-4", "address", "show", "dev", device)
                   for record in link["addr_info"]}
        namespace.batch([f"address add {address}/{bits} dev {device}"
                         for address in self.addresses if address not in carried] or ["link show"])
        self._stop_in, self._stop_out = socket.socketpair()
        self._listener = namespace.socket()
        self._listener.bind((GROUP, PORT))
        index = namespace.ip("link", "show", "dev", device)[0]["ifindex"]
        membership = struct.pack("=4s4si", socket.inet_aton(GROUP), bytes(4), index)
        self._listener.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, membership)
        self._senders = {}
        for address in self.addresses:
            self._senders[address] = namespace.socket()
            self._senders[address].bind((address, PORT))
        self._thread = threading.Thread(target=self._serve, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stop_in.close()
        self._thread.join(10)
        for end in [self._stop_out, self._listener, *self._senders.values()]:
            end.close()

    def introduce_to(self, searcher, device="eth0"):
        """Gives the searcher permanent neighbour entries for these cameras. They share a kernel,
        which asks for the searcher's address once and not once a camera."""
        mac = self._namespace.mac(self._device)
        searcher.batch([f"neighbour replace {address} lladdr {mac} dev {device} nud permanent"
                        for address in self.addresses])
        return self

    def _serve(self):
        while True:
            ready, _, _ = select.select([self._listener, self._stop_out], [], [])
            if self._stop_out in ready:
                return
            payload, sender = self._listener.recvfrom(65536)
            self.probes.append(payload)
            for address in self.addresses:
                probe = Probe(payload, sender, address, self._counts[address])
                self._counts[address] += 1
                self._send(probe, address)

    def _send(self, probe, address):
        for part in self._answer(probe):
            if isinstance(part, (int, float)):
                time.sleep(part)
                continue
            # A searcher that is gone answers with ICMP, which is no concern of a camera.
            with contextlib.suppress(OSError):
                self._senders[address].sendto(part, probe.sender)
                self.answered += 1
