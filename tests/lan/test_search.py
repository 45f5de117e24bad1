"""What a search finds on small networks, from real sockets."""

import pytest

from camera import Responder, reply
from lan import wait_until
from searching import Search, search

SEARCHER = "10.1.0.1"


@pytest.fixture
def hosts(network):
    """A searcher at 10.1.0.1 and a host for cameras on the other end of its cable."""
    searcher, cameras = network.namespace(), network.namespace()
    network.cable(searcher, cameras, f"{SEARCHER}/24")
    return searcher, cameras


def test_record_has_what_the_camera_said(hosts):
    searcher, cameras = hosts

    def answer(probe):
        return [reply(probe, f"http://{probe.camera}:8080/onvif/device_service",
                      "onvif://www.onvif.org/name/Gate onvif://www.onvif.org/hardware/IPC%20100"
                      " onvif://www.onvif.org/location/yard")]

    with Responder(cameras, "eth0", ["10.1.0.2"], answer):
        result = search(searcher, SEARCHER)
    [camera] = result.cameras
    assert camera["protocol"] == "ONVIF"
    assert camera["ip"] == "10.1.0.2"
    assert camera["port"] == 8080
    assert camera["hardware"] == "IPC 100"
    assert camera["mac"] == cameras.mac("eth0")
    assert len(result.logged("Camera found: IP: [10.1.0.2], port: [8080], hardware: [IPC 100]")) == 1
    assert len(result.logged("Total camera found: 1")) == 1


def test_nothing_is_left_behind_by_a_search(hosts):
    searcher, cameras = hosts
    with Responder(cameras, "eth0", ["10.1.0.2"], lambda probe: [reply(probe)]):
        result = search(searcher, SEARCHER)
    assert len(result.cameras) == 1
    [before], [after] = result.of("left", when="before"), result.of("left", when="after")
    assert after["threads"] == before["threads"] == 1
    assert after["descriptors"] == before["descriptors"]


def test_empty_datagram_in_the_midst_costs_no_camera(hosts):
    searcher, cameras = hosts
    early, late = "10.1.0.2", "10.1.0.3"

    def answer(probe):
        if probe.number > 0:
            return []
        if probe.camera == early:
            return [reply(probe), b""]
        return [0.2, reply(probe)]

    with Responder(cameras, "eth0", [early, late], answer) as responder:
        result = search(searcher, SEARCHER)
    assert sorted(result.addresses) == [early, late]
    # The empty datagram ended the first receive at once, so a second pair went out.
    assert len(responder.probes) == 4
    assert 3 <= result.duration < 6


# Senders put what they like between service addresses, also line breaks.
XADDRS = {
    "10.1.0.2": ("http://10.1.0.2:8080/onvif\nhttp://192.168.0.2:9000/onvif", 8080),
    "10.1.0.3": ("\r\n\thttp://10.1.0.3:8081/onvif\r\n\thttp://192.168.0.3:9000/onvif\r\n", 8081),
    # Without a port in the first one, the first colon is that of the second one's scheme, with
    # nothing between it and the slash.
    "10.1.0.4": ("http://10.1.0.4\nhttp://192.168.0.4:9000/onvif", 0),
    "10.1.0.5": ("http://10.1.0.5/onvif\nhttp://192.168.0.5:9000/onvif", 80),
}


def test_service_addresses_on_lines_of_their_own(hosts):
    searcher, cameras = hosts
    with Responder(cameras, "eth0", XADDRS, lambda probe: [reply(probe, XADDRS[probe.camera][0])]):
        result = search(searcher, SEARCHER)
    assert {camera["ip"]: camera["port"] for camera in result.cameras} \
        == {address: port for address, (_, port) in XADDRS.items()}


def test_order_is_that_of_the_address_text_within_a_cycle(hosts):
    searcher, cameras = hosts
    # In order of arrival; the last answers only what the second cycle asks.
    arrivals = ["10.1.0.3", "10.1.0.100", "10.1.0.20", "10.1.0.12"]
    second_cycle = "10.1.0.11"

    def answer(probe):
        if probe.camera == second_cycle:
            return [reply(probe)] if probe.number >= 2 else []
        return [reply(probe)]

    with Responder(cameras, "eth0", [*arrivals, second_cycle], answer):
        result = search(searcher, SEARCHER, 4)
    assert result.addresses == ["10.1.0.100", "10.1.0.12", "10.1.0.20", "10.1.0.3", second_cycle]


def test_silent_network_ends_after_the_duration_and_one_receive(hosts):
    searcher, cameras = hosts
    with Responder(cameras, "eth0", ["10.1.0.2"], lambda probe: []) as responder:
        result = search(searcher, SEARCHER, 4)
    assert result.cameras == []
    assert len(responder.probes) == 4
    assert 6 <= result.duration < 8
    assert len(result.logged("Total camera found: 0")) == 1


def test_second_search_keeps_the_first_ones_records_and_adds_new_ones(hosts):
    searcher, cameras = hosts

    def answer(probe):
        if probe.camera == "10.1.0.10":
            return [reply(probe)] if probe.number >= 2 else []
        return [reply(probe, scopes=f"onvif://www.onvif.org/hardware/Probe{probe.number}")]

    with Responder(cameras, "eth0", ["10.1.0.10", "10.1.0.20"], answer):
        result = search(searcher, SEARCHER, 1, searches=2)
    first, second = (result.of("camera", search=number) for number in (0, 1))
    assert [(camera["ip"], camera["hardware"]) for camera in first] == [("10.1.0.20", "Probe0")]
    assert [(camera["ip"], camera["hardware"]) for camera in second] == \
        [("10.1.0.20", "Probe0"), ("10.1.0.10", "Hand")]
    assert len(result.logged("Total camera found: 2")) == 1


def test_second_object_on_the_same_address_fails_at_the_bind(hosts):
    searcher, cameras = hosts
    with Responder(cameras, "eth0", ["10.1.0.2"], lambda probe: [reply(probe)]):
        result = search(searcher, SEARCHER, 1, objects=2)
    assert [event["result"] for event in result.of("started")] == [0, 0]
    assert len(result.logged("Bind socket failed. [98]")) == 1  # EADDRINUSE
    assert len(result.logged("SetupSocketParam failed.")) == 1
    found = [len(result.of("camera", object=number)) for number in (0, 1)]
    assert sorted(found) == [0, 1]
    loser = found.index(0)
    [total] = result.logged("Total camera found: 0")
    assert total
    ended = result.of("ended", object=loser)[0]["seconds"]
    started = result.of("started", object=loser)[0]["seconds"]
    if loser == 1:  # it is watched first
        assert ended - started < 2


def test_address_can_be_searched_again_after_the_first_object_ended(hosts):
    searcher, cameras = hosts
    with Responder(cameras, "eth0", ["10.1.0.2"], lambda probe: [reply(probe)]):
        for _ in range(2):
            assert search(searcher, SEARCHER, 0).addresses == ["10.1.0.2"]


def test_threads_that_read_all_the_while_see_whole_records(hosts):
    searcher, cameras = hosts
    addresses = [f"10.1.0.{number}" for number in range(2, 32)]
    responder = Responder(cameras, "eth0", addresses, lambda probe: [reply(probe)])
    with responder.introduce_to(searcher):
        result = search(searcher, SEARCHER, 1, pollers=8)
    assert sorted(result.addresses) == sorted(addresses)
    [polled] = result.of("polled")
    assert polled["faults"] == []
    assert polled["rounds"] > 100


def test_interface_that_goes_down_leaves_what_was_found(hosts):
    searcher, cameras = hosts
    with Responder(cameras, "eth0", ["10.1.0.2"], lambda probe: [reply(probe)]) as responder:
        running = Search(searcher, SEARCHER, 4)
        wait_until(lambda: responder.answered >= 2, 10, "the first cycle's replies")
        searcher.ip("link", "set", "eth0", "down")
        result = running.result()
    assert result.addresses == ["10.1.0.2"]
    assert len(responder.probes) == 2
    # The kernel takes datagrams for a device that is down and drops them without an error, so the
    # search goes on, hearing nothing, until its time is up.
    assert result.logged("Send probe message failed") == []
    assert 6 <= result.duration < 8


def test_interface_that_comes_back_is_searched_on(hosts):
    searcher, cameras = hosts

    def answer(probe):
        return [reply(probe)] if probe.camera == "10.1.0.2" or probe.number >= 2 else []

    with Responder(cameras, "eth0", ["10.1.0.2", "10.1.0.3"], answer) as responder:
        running = Search(searcher, SEARCHER, 4)
        wait_until(lambda: responder.answered >= 2, 10, "the first cycle's replies")
        searcher.ip("link", "set", "eth0", "down")
        searcher.ip("link", "set", "eth0", "up")
        result = running.result()
    assert sorted(result.addresses) == ["10.1.0.2", "10.1.0.3"]
    assert len(responder.probes) == 4


def test_interface_that_is_taken_away_ends_the_search_at_once(hosts):
    searcher, cameras = hosts
    with Responder(cameras, "eth0", ["10.1.0.2"], lambda probe: [reply(probe)]):
        running = Search(searcher, SEARCHER, 30)
        running.wait_for_event("count")
        searcher.ip("link", "delete", "eth0")
        result = running.result()
    assert result.addresses == ["10.1.0.2"]
    assert len(result.logged("Send probe message failed. [101]")) == 1  # ENETUNREACH
    assert len(result.logged("Total camera found: 1")) == 1
    assert result.duration < 15
