"""Floods: what a sender who does not stop costs a search, in the default and the bounded build."""

import contextlib
import json

import pytest

from camera import Responder, reply
from lan import program
from searching import CountedArping, Search

SEARCHER = "10.1.0.1"
CAMERAS = [f"10.1.0.{last}" for last in range(200, 220)]
FORGED = 65_000
DRIVERS = {"bounded": "searchdriver-bounded", "default": "searchdriver-unbounded"}
EITHER = pytest.mark.parametrize("driver", DRIVERS.values(), ids=DRIVERS)


@pytest.fixture
def hosts(network):
    """A searcher, a host of twenty cameras, and a host that floods."""
    searcher, cameras, flooding = (network.namespace() for _ in range(3))
    switch = network.switch()
    network.plug(searcher, switch, f"{SEARCHER}/8")
    network.plug(cameras, switch, "10.1.0.2/8")
    network.plug(flooding, switch, "10.1.0.3/8")
    # While nobody listens, the kernel would ask for each forged sender's address in order to
    # complain to it, and fill the neighbour table, which is one for all tests on this machine.
    searcher.ip("rule", "add", "pref", 10, "ipproto", "1", "blackhole")
    return searcher, cameras, flooding


@contextlib.contextmanager
def twenty_cameras(hosts):
    responder = Responder(hosts[1], "eth0", CAMERAS, lambda probe: [reply(probe)])
    with responder.introduce_to(hosts[0]):
        yield


def flood(hosts, *options, seconds, sender="10.1.0.3"):
    """Starts a flood; it goes on for so many seconds at most."""
    return hosts[2].start(program("flooder"), "--to-mac", hosts[0].mac("eth0"), "--to", SEARCHER,
                          "--from", sender, "--seconds", seconds, *options)


def search(hosts, driver, seconds=1, prefix=(), limit=60):
    """One search with every camera found, each once, and nothing left behind."""
    result = Search(hosts[0], SEARCHER, seconds, driver=driver, prefix=prefix, level=1).result(limit)
    assert set(CAMERAS) <= set(result.by_address)
    before, after = result.of("left")
    assert after["threads"] == before["threads"]
    assert after["descriptors"] == before["descriptors"]
    return result, after["peakKilobytes"]


@pytest.fixture
def payload(network):
    path = network.folder / "payload"
    path.write_bytes(b"<Envelope><ProbeMatches/></Envelope>" + b" " * 1000)
    return path


@pytest.mark.ctest(cost=60)
def test_bounded_build_lists_every_camera_in_time_among_forged_senders(hosts, network, payload):
    # arping answers for nobody and takes its time, as it does for senders who do not exist.
    arping = CountedArping(network)
    with twenty_cameras(hosts):
        sender = flood(hosts, "--senders", FORGED, "--per-second", 20_000, "--payload", payload,
                       seconds=8, sender="10.2.0.1")
        result, peak = search(hosts, DRIVERS["bounded"], prefix=arping.prefix)
        sender.wait(20)
    assert result.duration < 1 + 30 + 12
    assert len(result.cameras) > 1_000
    assert 0 < peak < 400 * 1024
    print(f"{len(result.cameras)} listed, {peak} KiB, {result.duration:.1f} s, {len(arping.runs)} arping runs")
    assert arping.runs


@pytest.mark.ctest(cost=20)
def test_default_build_ends_when_the_flood_does_where_arping_is_quick(hosts, network, payload):
    arping = CountedArping(network, real=False)
    with twenty_cameras(hosts):
        sender = flood(hosts, "--senders", 300, "--per-second", 2_000, "--payload", payload,
                       seconds=6, sender="10.2.0.1")
        result, _ = search(hosts, DRIVERS["default"], prefix=arping.prefix)
        sender.wait(20)
    assert 5 < result.duration < 25
    assert len(result.cameras) == 300 + len(CAMERAS)


@EITHER
def test_one_sender_at_line_rate_costs_no_camera(hosts, driver, payload):
    with twenty_cameras(hosts):
        sender = flood(hosts, "--payload", payload, seconds=4)
        result, peak = search(hosts, driver, seconds=10)  # cycles also after the flood
        sender.wait(20)
    assert result.duration < 20
    assert 0 < peak < 50 * 1024


@EITHER
def test_datagrams_of_every_size_cost_no_camera(hosts, driver):
    with twenty_cameras(hosts):
        sender = flood(hosts, "--every-size", "--count", 1_472, "--per-second", 1_000, seconds=4)
        search(hosts, driver, seconds=8)
        sender.wait(20)


@EITHER
def test_fragments_whose_last_one_never_comes_cost_no_camera(hosts, network, driver):
    large = network.folder / "large"
    large.write_bytes(b"x" * 4_000)
    with twenty_cameras(hosts):
        sender = flood(hosts, "--fragments", "--payload", large, "--per-second", 2_000, seconds=4)
        search(hosts, driver, seconds=8)
        sender.wait(20)


@pytest.mark.ctest(cost=20)
def test_command_ends_in_time_under_a_flood(hosts, payload):
    """The library lists nobody before three seconds without a datagram; the command does."""
    with twenty_cameras(hosts):
        sender = flood(hosts, "--senders", 300, "--per-second", 500, "--payload", payload,
                       seconds=30, sender="10.2.0.1")
        command = hosts[0].start(program("lanscout"), "--address", SEARCHER, "--only", "onvif",
                                 "--timeout", 2, "--max-time", 8, "--jsonl")
        assert command.wait(15) == 0
        assert "unexpectedly" not in command.text(command.errors)
        events = [json.loads(line) for line in command.lines]
        found = {event["device"]["ip"] for event in events if event["event"] == "found"}
        assert set(CAMERAS) <= found
        sender.stop()
