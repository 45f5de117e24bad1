"""Senders that do not stop: what holds a search, and what bounds a build with LANSCOUT_BOUNDED.

Both builds are tested, however this tree is configured."""

import contextlib
import threading
import time

import pytest

from camera import Responder, reply
from lan import PORT
from searching import Search

SEARCHER = "10.1.0.1"
DRIVERS = {"bounded": "searchdriver-bounded", "default": "searchdriver-unbounded"}
GRACE = 30  # seconds beyond a search's time after which a bounded build's receive ends


@pytest.fixture
def hosts(network):
    searcher, sender = network.namespace(), network.namespace()
    network.cable(searcher, sender, f"{SEARCHER}/24", "10.1.0.2/24")
    return searcher, sender


@contextlib.contextmanager
def flood(host, payload, interval, seconds):
    """Datagrams to the searcher's port, from before the search starts, for so many seconds."""
    stop = threading.Event()
    end = time.monotonic() + seconds
    sender = host.socket()
    sender.bind(("10.1.0.2", 0))

    def send():
        while time.monotonic() < end and not stop.wait(interval):
            with contextlib.suppress(OSError):  # nobody listens before the search does, and after
                sender.sendto(payload, (SEARCHER, PORT))

    thread = threading.Thread(target=send, daemon=True)
    thread.start()
    try:
        yield
    finally:
        stop.set()
        thread.join(10)
        sender.close()


def test_default_build_receives_until_a_flood_ends(hosts):
    searcher, sender = hosts
    with flood(sender, b"not for you", 1, 9):
        result = Search(searcher, SEARCHER, 1, driver=DRIVERS["default"]).result()
    assert 10 <= result.duration < 16
    assert result.addresses == ["10.1.0.2"]


@pytest.mark.ctest(cost=40)
def test_bounded_build_ends_while_a_flood_goes_on(hosts):
    searcher, sender = hosts
    with flood(sender, b"not for you", 1, 60):
        result = Search(searcher, SEARCHER, 1, driver=DRIVERS["bounded"]).result()
    assert 1 + GRACE - 2 <= result.duration < 1 + GRACE + 8
    assert result.addresses == ["10.1.0.2"]


def empty_datagrams(hosts, driver):
    """Pairs of Probes in a search of 2 seconds while 200 empty datagrams a second arrive, and the
    least seconds between two pairs."""
    searcher, sender = hosts
    with sender.capture("eth0", "udp dst port 3702 and dst host 239.255.255.250") as capture, \
            flood(sender, b"", 0.005, 6):
        result = Search(searcher, SEARCHER, 2, driver=driver).result()
    starts = [probe.seconds for probe in capture.datagrams() if len(probe.payload) == 853]
    assert len(capture.datagrams()) == 2 * len(starts)
    return result, len(starts), min(later - first for first, later in zip(starts, starts[1:]))


def test_default_build_probes_as_often_as_empty_datagrams_come(hosts):
    result, pairs, least = empty_datagrams(hosts, DRIVERS["default"])
    assert pairs > 50
    assert least < 0.05
    assert result.cameras == []


def test_bounded_build_keeps_pairs_of_probes_apart(hosts):
    result, pairs, least = empty_datagrams(hosts, DRIVERS["bounded"])
    assert 5 <= pairs <= 31
    assert least > 0.095
    assert result.cameras == []


@pytest.mark.parametrize("driver", DRIVERS.values(), ids=DRIVERS)
def test_both_builds_list_the_same(hosts, driver):
    searcher, sender = hosts
    cameras = ["10.1.0.3", "10.1.0.10"]
    responder = Responder(sender, "eth0", cameras, lambda probe: [reply(probe)])
    with responder.introduce_to(searcher):
        result = Search(searcher, SEARCHER, 1, driver=driver).result()
    assert result.addresses == ["10.1.0.10", "10.1.0.3"]
    assert {camera["hardware"] for camera in result.cameras} == {"Hand"}
    assert {camera["mac"] for camera in result.cameras} == {sender.mac("eth0")}
