"""What leaves the searcher, from captures on the other end of the cable."""

import re

import pytest

from camera import Responder, reply
from lan import GROUP, PORT
from searching import search

SEARCHER = "10.1.0.1"


@pytest.fixture
def hosts(network):
    searcher, cameras = network.namespace(), network.namespace()
    network.cable(searcher, cameras, f"{SEARCHER}/24")
    return searcher, cameras


def captured_search(hosts, answer, seconds):
    """Everything that the searcher sent over IPv4, but for ARP."""
    searcher, cameras = hosts
    with cameras.capture("eth0", "ip") as capture, \
            Responder(cameras, "eth0", ["10.1.0.2"], answer):
        result = search(searcher, SEARCHER, seconds)
    frames = [frame for _, frame in capture.packets() if frame[26:30] == bytes([10, 1, 0, 1])]
    return result, frames, [sent for sent in capture.datagrams() if sent.source == SEARCHER]


@pytest.mark.parametrize("answer", [lambda probe: [], lambda probe: [reply(probe)]],
                         ids=["silent", "answering"])
def test_two_probes_a_cycle_and_nothing_else(hosts, answer):
    _, frames, sent = captured_search(hosts, answer, 4)
    assert len(frames) == len(sent) == 4
    assert [len(datagram.payload) for datagram in sent] == [853, 837, 853, 837]
    for datagram in sent:
        assert (datagram.source, datagram.source_port) == (SEARCHER, PORT)
        assert (datagram.destination, datagram.destination_port) == (GROUP, PORT)
    assert sent[1].seconds - sent[0].seconds < 1
    assert 2.9 < sent[2].seconds - sent[0].seconds < 5


def test_probes_are_well_formed_and_ask_for_both_types(hosts):
    _, _, sent = captured_search(hosts, lambda probe: [], 1)
    types = []
    for number, datagram in enumerate(sent):
        file = hosts[0].network.folder / f"probe-{number}.xml"
        file.write_bytes(datagram.payload)
        hosts[0].run("xmllint", "--noout", "--nonet", file)
        wanted = hosts[0].run("xmllint", "--nonet", "--xpath",
                              "string(//*[local-name()='Probe' and namespace-uri()="
                              "'http://schemas.xmlsoap.org/ws/2005/04/discovery']"
                              "/*[local-name()='Types'])", file)
        types.append(wanted.stdout.strip())
    assert types == ["dn:NetworkVideoTransmitter", "tds:Device"]


def test_every_probe_has_an_id_of_its_own(hosts):
    _, _, sent = captured_search(hosts, lambda probe: [], 4)
    ids = [re.search(rb">uuid:([0-9a-f-]{36})</wsa:MessageID>", datagram.payload)[1]
           for datagram in sent]
    assert len(set(ids)) == 4
    form = rb"[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"
    assert all(re.fullmatch(form, text) for text in ids)


def test_probes_stay_on_the_link(hosts):
    """A time to live of 1, the kernel's for multicasts, and no fragments."""
    _, frames, sent = captured_search(hosts, lambda probe: [], 1)
    assert len(sent) == 2
    assert {frame[22] for frame in frames} == {1}
    assert {frame[0:6] for frame in frames} == {bytes.fromhex("01005e7ffffa")}


@pytest.fixture
def crossing(network):
    """A searcher with two interfaces, a camera behind each, the multicast route on the second."""
    searcher, first, second = (network.namespace() for _ in range(3))
    network.cable(searcher, first, f"{SEARCHER}/24", one_device="eth0")
    network.cable(searcher, second, "10.2.0.1/24", one_device="eth1")
    searcher.ip("route", "add", "224.0.0.0/4", "dev", "eth1")
    searcher.ip("route", "add", "default", "dev", "eth1")
    return searcher, first, second


def test_probes_leave_by_the_interface_of_the_address_not_by_the_multicast_route(crossing):
    """For a multicast from a socket that is bound to an address, and without a multicast
    interface set, Linux takes the device that carries the address and does not ask the routes."""
    searcher, first, second = crossing
    with Responder(first, "eth0", ["10.1.0.2"], lambda probe: [reply(probe)]) as on_first, \
            Responder(second, "eth0", ["10.2.0.2"], lambda probe: [reply(probe)]) as on_second, \
            second.capture("eth0", "udp port 3702") as capture:
        # The route does lead to the second interface, for a socket without an address.
        with searcher.socket() as unbound:
            unbound.sendto(b"unbound", (GROUP, PORT))
        result = search(searcher, SEARCHER)
    assert [len(payload) for payload in on_first.probes] == [853, 837]
    assert on_second.probes == [b"unbound"]
    assert [sent.payload for sent in capture.datagrams() if sent.source == "10.2.0.1"] == [b"unbound"]
    assert result.addresses == ["10.1.0.2"]
    assert result.cameras[0]["mac"] == first.mac("eth0")


def test_each_interface_has_a_search_of_its_own(crossing):
    searcher, first, second = crossing
    with Responder(first, "eth0", ["10.1.0.2"], lambda probe: [reply(probe)]), \
            Responder(second, "eth0", ["10.2.0.2"], lambda probe: [reply(probe)]):
        assert search(searcher, "10.2.0.1").addresses == ["10.2.0.2"]
