"""Cameras that no multicast reaches, asked one by one."""

import ipaddress

import pytest

from camerasite import Site
from finding import find
from lan import wait_until

SITE = "10.20.0.0/24"


def routed(network, subnet=SITE, masquerade=False):
    """A searcher and a site with a router between them, which may hide the searcher."""
    searcher, router, host = network.namespace(), network.namespace(), network.namespace()
    network.cable(searcher, router, "10.1.0.2/24", "10.1.0.1/24")
    network.cable(router, host, "172.16.0.1/30", "172.16.0.2/30", one_device="eth1")
    router.sysctl("net.ipv4.ip_forward", 1)
    router.ip("route", "add", subnet, "via", "172.16.0.2")
    searcher.ip("route", "add", "default", "via", "10.1.0.1")
    host.ip("route", "add", "default", "via", "172.16.0.1")
    if masquerade:
        router.run("nft", "add table ip nat; add chain ip nat post { type nat hook postrouting "
                          "priority srcnat; }; add rule ip nat post oifname eth1 masquerade")
    return searcher, host


def hosts(subnet, count):
    return [str(address) for address in list(ipaddress.ip_network(subnet).hosts())[:count]]


def test_subnet_behind_a_router(network):
    searcher, host = routed(network)
    cameras = hosts(SITE, 40)
    with Site(host, SITE, cameras) as site:
        found = find(searcher, "--to", SITE, seconds=4)
    assert set(found.by_address) == set(cameras)
    assert {device["reach"] for device in found.devices} == {"routed"}
    assert {device["mac"] for device in found.devices} == {None}
    assert found.of("probes") == {None: "done"} or found.of("probes") == {"": "done"}
    assert "10.20.0.0" not in site.asked and "10.20.0.255" not in site.asked
    # Who has answered is not asked again; who has not, three times, the last two in both ways.
    assert {site.asked[camera] for camera in cameras} == {1}
    assert {count for address, count in site.asked.items() if address not in cameras} == {5}


@pytest.mark.ctest(cost=10)
def test_full_subnet_behind_nat_with_loss(network):
    searcher, host = routed(network, masquerade=True)
    cameras = hosts(SITE, 254)
    with Site(host, SITE, cameras, loss=0.05) as site:
        found = find(searcher, "--to", SITE, seconds=4)
    assert set(found.by_address) == set(cameras)
    assert site.senders == {"172.16.0.1"}  # the router's: the searcher is hidden


def test_only_what_was_named_is_asked(network):
    searcher, host = routed(network)
    with Site(host, SITE, hosts(SITE, 254)) as site, \
            host.capture("eth0", "udp") as capture:
        found = find(searcher, "--to", "10.20.0.5-10.20.0.9", "--to", "10.20.0.77", seconds=2)
    expected = {f"10.20.0.{number}" for number in (5, 6, 7, 8, 9, 77)}
    assert set(found.by_address) == expected == set(site.asked)
    assert {sent.destination for sent in capture.datagrams() if sent.destination_port == 3702
            } == expected


def test_interface_is_searched_beside_it_when_named(network):
    searcher, host = routed(network)
    with Site(host, SITE, hosts(SITE, 3)):
        found = find(searcher, "--to", SITE, "--interface", "eth0", seconds=2)
    assert len(found.by_address) == 3
    assert found.of("probes")["10.1.0.2"] == "done"


def test_own_subnet_is_local(network):
    searcher, host = network.namespace(), network.namespace()
    network.cable(searcher, host, "10.1.0.1/24", "10.1.0.2/24")
    with Site(host, "10.1.0.8/29", ["10.1.0.10"]):
        [device] = find(searcher, "--to", "10.1.0.0/28", seconds=2).devices
    assert device["ip"] == "10.1.0.10" and device["reach"] == "local"
    assert device["seenVia"] == [{"interface": "eth0", "address": "10.1.0.1"}]


def test_no_route_is_said(network):
    searcher = network.namespace()
    found = find(searcher, "--to", SITE, seconds=1)
    [problem] = [one for one in found.problems if "cannot be asked" in one["what"]]
    assert problem["error"] and "254 of 254" in problem["what"] and "no route" in problem["what"]
    assert not found.report["complete"]


@pytest.mark.ctest(cost=25)
def test_sixteen_bits_in_time(network):
    """65,534 addresses within 20 s at 5,000 a second."""
    subnet = "10.20.0.0/16"
    searcher, host = routed(network, subnet)
    cameras = [f"10.20.{i % 256}.{i // 256 + 7}" for i in range(300)]
    with Site(host, subnet, cameras) as site:
        found = find(searcher, "--to", subnet, "--rate", 5000, seconds=20)
        wait_until(lambda: len(site.asked) >= 65000, 1, "nearly all were asked")
    assert set(found.by_address) == set(cameras)
