"""The sources of MAC addresses: the kernel's neighbour table, which needs no privilege, and the
frames that replies come in, which need CAP_NET_RAW."""

import contextlib
from pathlib import Path

import pytest

from camera import Responder, reply
from toolrun import by_address, result, simulated
from upnpdevice import Device, answer, description

SEARCHER = "10.1.0.1"
CAMERA = "10.1.0.2"
LIMIT = int(Path("/proc/sys/net/ipv4/neigh/default/gc_thresh3").read_text())

# Root, but for the right to open packet sockets.
NO_FRAMES = ("setpriv", "--bounding-set", "-net_raw", "--")


@pytest.fixture
def hosts(network):
    searcher, cameras = network.namespace(), network.namespace()
    network.cable(searcher, cameras, f"{SEARCHER}/24", f"{CAMERA}/24")
    return searcher, cameras


def knows_the_searcher(hosts):
    """The cameras' host sends without asking for the searcher's address first."""
    searcher, cameras = hosts
    cameras.ip("neighbour", "replace", SEARCHER, "lladdr", searcher.mac("eth0"), "dev", "eth0",
               "nud", "permanent")


def answers_no_arp(hosts):
    hosts[1].sysctl("net.ipv4.conf.all.arp_ignore", 8)


def texts(document):
    return [problem["what"] + " | " + problem["remedy"] for problem in document["problems"]]


def answering(host, *, endpoint=None, addresses=(CAMERA,)):
    def make(probe):
        text = reply(probe)
        if endpoint:
            text = text.replace(f"urn:uuid:{probe.camera}".encode(), endpoint.encode())
        return [text]

    return Responder(host, "eth0", addresses, make)


def test_neighbour_table_tells_the_mac_address_without_privilege(hosts):
    searcher, other = hosts
    with Device(other, CAMERA, {"/d.xml": answer(description("Door"))}):
        found = by_address(result(searcher, "--only", "upnp", "--timeout", 3, prefix=NO_FRAMES))
    assert found[CAMERA]["mac"] == other.mac("eth0")


def test_permanent_entry_is_told(hosts):
    searcher, other = hosts
    knows_the_searcher(hosts)
    answers_no_arp(hosts)
    searcher.ip("neighbour", "replace", CAMERA, "lladdr", "00:0a:ff:01:02:03", "dev", "eth0", "nud",
                "permanent")
    with answering(other):
        found = by_address(result(searcher, "--only", "onvif", "--timeout", 2, prefix=NO_FRAMES))
    assert found[CAMERA]["mac"] == "00:0A:FF:01:02:03"


def test_camera_that_never_does_arp_has_no_mac_address_without_frames(hosts):
    searcher, other = hosts
    knows_the_searcher(hosts)
    answers_no_arp(hosts)
    with answering(other):
        found = by_address(result(searcher, "--only", "onvif", "--timeout", 2, prefix=NO_FRAMES))
    assert found[CAMERA]["mac"] is None


def test_frame_of_a_reply_tells_the_mac_address(hosts):
    searcher, other = hosts
    knows_the_searcher(hosts)
    answers_no_arp(hosts)
    with answering(other):
        found = by_address(result(searcher, "--only", "onvif", "--timeout", 2))
    assert found[CAMERA]["mac"] == other.mac("eth0")


def test_two_cameras_at_one_address_are_told_apart(network):
    switch, searcher = network.switch(), network.namespace()
    network.plug(searcher, switch, f"{SEARCHER}/24")
    cameras = [network.namespace(), network.namespace()]
    with contextlib.ExitStack() as stack:
        for number, camera in enumerate(cameras):
            network.plug(camera, switch, f"{CAMERA}/24")
            knows_the_searcher((searcher, camera))
            stack.enter_context(answering(camera, endpoint=f"urn:uuid:camera-{number}"))
        document = result(searcher, "--only", "onvif", "--timeout", 3)
    macs = {camera.mac("eth0") for camera in cameras}
    assert {device["mac"] for device in document["devices"]} == macs
    assert {device["uuid"]: device["mac"] for device in document["devices"]} == {
        f"urn:uuid:camera-{number}": camera.mac("eth0") for number, camera in enumerate(cameras)}
    assert all(device["sharedAddress"] for device in document["devices"])
    [problem] = [text for text in texts(document) if CAMERA in text]
    assert all(mac in problem for mac in macs)


def test_camera_of_another_subnet_is_foreign_and_the_way_to_it_is_told(network):
    searcher = simulated(network, "--foreign", 1, cameras=2)
    document = result(searcher, "--only", "onvif", "--timeout", 3)
    foreign = by_address(document)["192.168.77.10"]
    assert foreign["reach"] == "foreign"
    assert foreign["mac"]
    assert by_address(document)["10.99.0.10"]["reach"] == "local"
    command = "ip address add 192.168.77.2/24 dev sim0"
    [asked] = [text for text in texts(document) if "192.168.77.0/24 is on this wire" in text]
    assert foreign["mac"] in asked
    assert command in asked
    [answered] = [text for text in texts(document) if "192.168.77.10 has an address" in text]
    assert command in answered


def test_camera_of_another_subnet_is_told_without_privilege(network):
    searcher = simulated(network, "--foreign", 1, cameras=2)
    document = result(searcher, "--only", "onvif", "--timeout", 3, prefix=NO_FRAMES)
    assert by_address(document)["192.168.77.10"]["reach"] == "foreign"
    [told] = [text for text in texts(document) if "192.168.77.0/24" in text]
    assert "ip address add 192.168.77.2/24 dev sim0" in told


def test_reply_that_the_kernel_drops_is_told(network):
    searcher = simulated(network, "--foreign", 1, cameras=1)
    searcher.sysctl("net.ipv4.conf.sim0.rp_filter", 1)
    document = result(searcher, "--only", "onvif", "--timeout", 3, status=1)
    assert document["devices"] == []
    [told] = [text for text in texts(document) if "rp_filter" in text]
    assert "192.168.77.10" in told
    assert "net.ipv4.conf.sim0.rp_filter=0" in told


@pytest.mark.ctest(alone=True)
def test_neighbour_table_that_overflows_costs_root_no_mac_address(network):
    count = LIMIT * 5 // 4
    searcher = simulated(network, "--max-delay", 500, cameras=count)
    devices = result(searcher, "--only", "onvif", "--timeout", 5)["devices"]
    assert len(devices) == count
    assert [device["ip"] for device in devices if not device["mac"]] == []
