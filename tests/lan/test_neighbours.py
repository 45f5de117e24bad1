"""The kernel's neighbour table at its limit. The limit is the kernel's, whatever the namespace, so
these tests run alone."""

from pathlib import Path

import pytest

from camera import Responder, reply
from crowd import Crowd
from searching import CountedArping, Search, search

SEARCHER = "10.1.0.1"
LIMIT = int(Path("/proc/sys/net/ipv4/neigh/default/gc_thresh3").read_text())


@pytest.mark.ctest(alone=True)
def test_cameras_beyond_the_table_are_found_when_it_has_room_again(network, real_time):
    """The kernel does not answer a request for the searcher's address while it has no room for
    who asks, so such a camera cannot answer the Probe. Entries make room when they are 5 seconds
    old: a search of 10 seconds gets to the rest, and knows every MAC address, for it lists nobody
    who is not in the table."""
    searcher, cameras = network.namespace(), network.namespace()
    network.cable(searcher, cameras, f"{SEARCHER}/16")
    arping = CountedArping(network, real=False)
    with Crowd(cameras, "eth0", SEARCHER, LIMIT * 3 // 2) as crowd:
        running = Search(searcher, SEARCHER, 10, prefix=[*real_time, *arping.prefix])
        running.wait_for_event("count")
        assert crowd.resolved <= LIMIT
        result = running.result()
    found = result.by_address
    hosts = {host.address: host for host in crowd.hosts.values()}
    first_cycle_end = result.of("count")[0]["seconds"] + 1.5
    first_cycle = [event["count"] for event in result.of("count")
                   if event["seconds"] < first_cycle_end][-1]
    print(f"\n{first_cycle} found in the first cycle, {len(found)} of {len(hosts)} in the end, "
          f"{len(arping.runs)} arping runs, {result.duration:.1f} s")
    assert LIMIT // 2 < first_cycle <= LIMIT
    assert set(found) == set(hosts)
    wrong = {ip for ip, camera in found.items() if camera["mac"] != hosts[ip].mac_text}
    assert len(wrong) <= len(hosts) // 20
    assert all(found[ip]["mac"] == "N/A" for ip in wrong)


@pytest.mark.ctest(alone=True)
def test_table_that_another_namespace_filled_swallows_the_probes(network):
    """A multicast needs an entry too. Without room for one the kernel drops the datagram and
    reports it as sent, so the search cannot know."""
    searcher, cameras, other = (network.namespace() for _ in range(3))
    network.cable(searcher, cameras, f"{SEARCHER}/24")
    network.cable(other, cameras, "10.9.0.1/16", None, "full0", "eth1")
    with Responder(cameras, "eth0", ["10.1.0.2"], lambda probe: [reply(probe)]) as responder:
        other.batch([f"neighbour replace 10.9.{1 + number // 200}.{1 + number % 200} lladdr "
                     "02:00:00:00:00:01 dev full0 nud stale" for number in range(LIMIT + 100)],
                    go_on=True)
        swallowed = search(searcher, SEARCHER)
        assert responder.probes == []
        assert searcher.udp_count("SndbufErrors") == 2
        other.ip("link", "delete", "full0")
        result = search(searcher, SEARCHER)
    assert len(swallowed.log) == len(swallowed.logged("Total camera found: 0")) == 1
    assert result.addresses == ["10.1.0.2"]
    assert result.cameras[0]["mac"] == cameras.mac("eth0")
