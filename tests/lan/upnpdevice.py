"""UPnP root devices written by hand, for what the devices of others do not do, and UPnP searches.

    with Device(namespace, "10.1.0.2", {"/d.xml": answer(description("Door"))}) as device:
        found = search(searcher, "10.1.0.1")
"""

import contextlib
import json
import re
import select
import socket
import threading

from lan import GROUP, program

SSDP_PORT = 1900  # UPnP Device Architecture 1.0
MAX_AGE = "CACHE-CONTROL: max-age=1800"


def description(name):
    """A device description document."""
    return ('<?xml version="1.0"?><root xmlns="urn:schemas-upnp-org:device-1-0"><device>'
            f'<friendlyName>{name}</friendlyName><manufacturer>Hand</manufacturer>'
            '<modelName>H1</modelName></device></root>').encode()


def answer(body, status="200 OK", headers=None):
    """An HTTP answer as bytes; `headers` None gives the length."""
    if headers is None:
        headers = [f"Content-Length: {len(body)}"]
    lines = [f"HTTP/1.1 {status}", *headers, "Connection: close", "", ""]
    return "\r\n".join(lines).encode() + body


def discovery(kind, location, number=0, age=MAX_AGE):
    """What a root device says of itself; `kind` "HTTP/1.1 200 OK": a search reply, "NOTIFY *
    HTTP/1.1": an advertisement."""
    usn = f"USN: uuid:00000000-0000-4000-8000-{number:012x}::upnp:rootdevice"
    lines = [kind, *([age] if age else []), f"LOCATION: {location}", "SERVER: hand UPnP/1.0 hand/1"]
    if kind.startswith("NOTIFY"):
        lines += [f"HOST: {GROUP}:{SSDP_PORT}", "NT: upnp:rootdevice", "NTS: ssdp:alive", usn]
    else:
        lines += ["EXT:", "ST: upnp:rootdevice", usn]
    return "\r\n".join([*lines, "", ""]).encode()


class Device:
    """Answers searches with one reply for each location, and HTTP requests by their path.

    `pages`: path to bytes that are sent before the connection is closed, or to a function that is
    given the connection. `locations`: None for the pages' own URLs. `replies` False: does not
    answer searches."""

    def __init__(self, namespace, address, pages, locations=None, port=8000, age=MAX_AGE,
                 replies=True):
        self.requests = []  # the text of every HTTP request
        self.searches = []  # the text of every M-SEARCH
        self.pages, self.age, self.replies = pages, age, replies
        self.locations = locations if locations is not None else [
            f"http://{address}:{port}{path}" for path in pages]
        self._address = address
        self._stop_in, self._stop_out = socket.socketpair()
        self._ssdp = namespace.socket()
        self._ssdp.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._ssdp.bind((GROUP, SSDP_PORT))
        self._ssdp.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                              socket.inet_aton(GROUP) + socket.inet_aton(address))
        self._sender = namespace.socket()
        self._sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF,
                                socket.inet_aton(address))
        self._http = namespace.socket(kind=socket.SOCK_STREAM)
        self._http.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._http.bind(("", port))
        self._http.listen(64)
        self._threads = [threading.Thread(target=self._run, daemon=True)]
        self._threads[0].start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self._stop_out.send(b"x")
        for thread in self._threads:
            thread.join(15)
        for open_socket in (self._ssdp, self._sender, self._http, self._stop_in, self._stop_out):
            open_socket.close()

    def advertise(self):
        for number, location in enumerate(self.locations):
            self._sender.sendto(discovery("NOTIFY * HTTP/1.1", location, number, self.age),
                                (GROUP, SSDP_PORT))

    def requested(self, path):
        return [request for request in self.requests if request.split(" ")[1] == path]

    def _run(self):
        while True:
            readable, _, _ = select.select([self._stop_in, self._ssdp, self._http], [], [])
            if self._stop_in in readable:
                return
            if self._ssdp in readable:
                self._reply(*self._ssdp.recvfrom(65536))
            if self._http in readable:
                connection, _ = self._http.accept()
                thread = threading.Thread(target=self._serve, args=(connection,), daemon=True)
                self._threads.append(thread)
                thread.start()

    def _reply(self, message, sender):
        if not message.startswith(b"M-SEARCH"):
            return
        self.searches.append(message.decode())
        if self.replies:
            for number, location in enumerate(self.locations):
                reply = discovery("HTTP/1.1 200 OK", location, number, self.age)
                self._sender.sendto(reply, sender)

    def _serve(self, connection):
        with connection, contextlib.suppress(OSError, IndexError):
            connection.settimeout(10)
            request = b""
            while b"\r\n\r\n" not in request:
                part = connection.recv(65536)
                if not part:
                    return
                request += part
            self.requests.append(request.decode("latin-1"))
            page = self.pages[self.requests[-1].split(" ")[1]]
            if callable(page):
                page(connection)
            else:
                connection.sendall(page)


class Search:
    """A search that runs. The address is the searcher's own. libupnp counts whole seconds of the
    clock, so a cycle may be up to one shorter than it was asked for."""

    def __init__(self, host, address, seconds=4, **options):
        command = [program("upnpprobe"), address, "--seconds", seconds]
        for name, value in options.items():
            command += ["--" + name.replace("_", "-"), value]
        self._limit = seconds + 30
        self.process = host.start(*command)

    def wait_for_event(self, name, seconds=20):
        return json.loads(self.process.wait_for(f'"event":"{name}"', seconds))

    def result(self):
        status = self.process.wait(self._limit)
        assert status == 0, self.process.output()
        return Result([json.loads(line) for line in self.process.lines])


class Result:
    """What the probe told, by kind."""

    def __init__(self, events):
        self.events = events

    def of(self, kind):
        return [event for event in self.events if event["event"] == kind]

    def one(self, kind):
        events = self.of(kind)
        assert len(events) == 1, f"{len(events)} events {kind}: {self.events}"
        return events[0]

    @property
    def devices(self):
        """The devices by location; one that is told twice is a failure of the search."""
        devices = {device["location"]: device for device in self.of("device")}
        assert len(devices) == len(self.of("device")), f"a device twice: {self.events}"
        return devices

    def assert_nothing_left(self):
        before, after = self.of("left")
        assert (after["threads"], after["descriptors"]) == (
            before["threads"], before["descriptors"])


def search(host, address, seconds=4, **options):
    """One search, from start to end."""
    return Search(host, address, seconds, **options).result()


def host_on(network, switch, address, device="eth0"):
    """A host on a switch that can send multicasts.

    libupnp up to 1.8 sends its search by the route to the group, whatever interface it was given,
    and releases from 1.14 on cannot start before the interface's IPv6 address has settled."""
    host = network.namespace()
    with contextlib.suppress(FileNotFoundError):  # a kernel without IPv6
        host.sysctl("net.ipv6.conf.default.accept_dad", 0)
    network.plug(host, switch, f"{address}/24", device)
    host.ip("route", "add", "239.0.0.0/8", "dev", device)
    _know(host, GROUP, "01:00:5e:7f:ff:fa", device)  # RFC 1112, 6.4
    return host


def _know(host, address, mac, device="eth0"):
    host.ip("neighbour", "replace", address, "lladdr", mac, "dev", device, "nud", "permanent")


def acquaint(hosts):
    """Gives hosts, by address, permanent neighbour entries for each other. The neighbour table is
    the kernel's, whatever the namespace, and other programs may have filled it: permanent entries
    are not counted against its limit."""
    for host in hosts.values():
        for address, other in hosts.items():
            if other is not host:
                _know(host, address, other.mac("eth0"))


def search_messages(datagrams):
    """The M-SEARCH datagrams among those of a capture, as (seconds, MX)."""
    return [(datagram.seconds, int(re.search(rb"(?m)^MX: *(\d+)", datagram.payload)[1]))
            for datagram in datagrams
            if datagram.destination == GROUP and datagram.payload.startswith(b"M-SEARCH")]
