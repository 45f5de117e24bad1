"""Forty devices that answer, beside hosts that would keep the fetching threads from them."""

import threading
import time

import pytest

from lan import GROUP
from upnpdevice import SSDP_PORT, Device, acquaint, answer, description, discovery, host_on, search

SEARCHER, OTHER, HANGING = "10.62.0.1", "10.62.0.2", "10.62.0.3"
GOOD = [f"10.62.0.{number}" for number in range(20, 60)]
DEAD = [f"10.62.0.{number}" for number in range(200, 210)]


@pytest.fixture
def hosts(network):
    """The searcher, the good devices' host, and the attacker's."""
    switch = network.switch()
    addresses = (SEARCHER, OTHER, HANGING)
    found = [host_on(network, switch, address) for address in addresses]
    acquaint(dict(zip(addresses, found)))
    for address in GOOD:
        found[1].ip("address", "add", f"{address}/24", "dev", "eth0")
    return found


def forty_devices(host):
    """All at one server, each with an address of its own."""
    pages = {f"/{address}": answer(description(address)) for address in GOOD}
    return Device(host, OTHER, pages, [f"http://{address}:8000/{address}" for address in GOOD])


def names(found):
    return sorted(device["friendlyName"] for device in found.devices.values())


def hang(connection):
    """Says nothing for longer than any client waits."""
    connection.settimeout(20)
    connection.recv(1)


def test_host_that_hangs_under_many_locations_costs_no_other_device(hosts):
    searcher, other, attacker = hosts
    with Device(attacker, HANGING, {f"/{number}": hang for number in range(48)}), \
            forty_devices(other):
        found = search(searcher, SEARCHER, 5)
    assert names(found) == sorted(GOOD)
    # Those that were asked before the host was refused take the time that a request has.
    assert found.one("stopped")["seconds"] < 5 + 5 + 3


@pytest.mark.parametrize("rate", (20, 200))
def test_advertisements_of_dead_addresses_cost_no_other_device(hosts, rate):
    searcher, other, attacker = hosts
    stop = threading.Event()

    def advertise():
        with attacker.socket() as sender:
            for number in range(100_000):
                location = f"http://{DEAD[number % len(DEAD)]}:8000/{number}"
                sender.sendto(discovery("NOTIFY * HTTP/1.1", location, number), (GROUP, SSDP_PORT))
                if stop.wait(1 / rate):
                    return

    thread = threading.Thread(target=advertise)
    thread.start()
    try:
        time.sleep(0.5)
        with forty_devices(other):
            found = search(searcher, SEARCHER, 5)
    finally:
        stop.set()
        thread.join()
    assert names(found) == sorted(GOOD)
