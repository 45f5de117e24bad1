"""The source of whole replies: what the finder's own Probes bring home, whatever the network is
like."""

import re
import shutil
import threading
import time

import pytest

from camera import Responder, reply
from finding import Finding, find
from lan import GROUP, PORT, TOOL_PATH, program
from toolrun import simulated

NETWORK = "10.1.0"


def cabled(network):
    """A searcher and a host with cameras on one cable."""
    searcher, host = network.namespace(), network.namespace()
    network.cable(searcher, host, f"{NETWORK}.1/24", f"{NETWORK}.2/24")
    return searcher, host


def one_camera(host, answer, *addresses):
    return Responder(host, "eth0", addresses or [f"{NETWORK}.2"], answer)


def test_whole_replies(network):
    """What a camera says of itself is there, not only what the library's record holds."""
    host = simulated(network, cameras=20)
    found = find(host)
    assert len(found.by_address) == 20
    for device in found.devices:
        assert device["kind"] == "camera" and device["hardware"] and device["name"], device
        assert "Streaming" in device["profiles"], device
        assert device["uuid"] and device["types"] and device["scopes"] and device["xaddrs"], device
        assert device["reach"] == "local", device
        assert device["page"].startswith("http://" + device["ip"]), device
    assert set(found.of("probes").values()) == {"done"}


def test_probes_on_the_wire(network):
    """Both types, each twice 50 to 250 ms apart with one MessageID, new ids after 2 s; one line."""
    searcher, host = cabled(network)
    with host.capture("eth0", f"udp dst port {PORT}") as capture:
        find(searcher, "--source-port", 40000, seconds=3)
    sent = {}
    for datagram in capture.datagrams():
        if datagram.source_port == 40000:
            assert datagram.destination == GROUP and b"\n" not in datagram.payload
            [number] = re.findall(rb"MessageID>urn:uuid:([0-9a-f-]{36})<", datagram.payload)
            [types] = re.findall(rb"Types>([^<]+)<", datagram.payload)
            sent.setdefault((number, types), []).append(datagram.seconds)
    assert sorted(types for _, types in sent) == [
        b"dn:NetworkVideoTransmitter"] * 2 + [b"tds:Device"] * 2
    for times in sent.values():
        assert len(times) == 2 and 0.045 < times[1] - times[0] < 0.5, times
    starts = sorted(times[0] for times in sent.values())
    assert 1.9 < starts[2] - starts[0] < 2.5, starts


def test_port_taken_by_another_socket(network):
    host = simulated(network, cameras=20)
    with host.socket() as holder:
        holder.bind(("0.0.0.0", PORT))
        found = find(host)
    assert len(found.by_address) == 20
    assert set(found.of("camerasearch").values()) == {"failed"}
    assert found.report["complete"]
    problems = [one for one in found.problems if "taken by" in one["what"]]
    assert len(problems) == 1, found.problems
    [problem] = problems
    assert not problem["error"] and "searching beside it" in problem["what"]


def test_port_taken_by_wsdd(network):
    if shutil.which("wsdd", path=TOOL_PATH) is None:
        pytest.skip("there is no wsdd; Debian 13 has none")
    host = simulated(network, cameras=20)
    wsdd = host.start("wsdd", "--interface", "sim0", "--ipv4only", "--hostname", "other", "-vvv")
    wsdd.wait_for("joined multicast group", 20)
    found = find(host)
    cameras = [device for device in found.devices if device["kind"] == "camera"]
    assert len(cameras) == 20
    assert found.report["complete"]


def test_source_port_taken_is_that_targets_failure(network):
    searcher, host = cabled(network)
    other = network.namespace()
    network.cable(searcher, other, "10.2.0.1/24", "10.2.0.2/24", one_device="eth1")
    with searcher.socket() as holder, one_camera(host, lambda probe: [reply(probe)]), \
            Responder(other, "eth0", ["10.2.0.2"], lambda probe: [reply(probe)]):
        holder.bind(("10.2.0.1", 40000))
        found = find(searcher, "--source-port", 40000)
    assert found.of("probes") == {"10.1.0.1": "done", "10.2.0.1": "failed"}
    assert f"{NETWORK}.2" in found.by_address
    assert any("UDP port 40000" in one["what"] for one in found.problems)


def test_multicast_route_on_another_card(network):
    searcher, host = cabled(network)
    other = network.namespace()
    network.cable(searcher, other, "10.2.0.1/24", "10.2.0.2/24", one_device="eth1")
    searcher.ip("route", "add", "224.0.0.0/4", "dev", "eth1")
    searcher.ip("route", "add", "default", "via", "10.2.0.2")
    with one_camera(host, lambda probe: [reply(probe)]):
        found = find(searcher)
    assert set(found.by_address) == {f"{NETWORK}.2"}
    assert set(found.of("probes").values()) == {"done"}


def test_interface_that_is_down_fails_alone(network):
    searcher, host = cabled(network)
    searcher.ip("address", "add", "10.9.0.1/24", "dev", "lo")
    with one_camera(host, lambda probe: [reply(probe)]):
        found = find(searcher, "--address", f"{NETWORK}.1", "--address", "10.9.0.1")
    assert f"{NETWORK}.2" in found.by_address


@pytest.mark.ctest(cost=20)
def test_lost_probes_and_replies(network):
    host = simulated(network, "--loss", 5, cameras=200)
    assert len(find(host, seconds=5).by_address) == 200


def test_late_starter(network):
    searcher, host = cabled(network)
    process = searcher.start(program("finddriver"), "--seconds", 4)
    process.wait_for('"started"')
    time.sleep(1)  # the Probes of the start have passed
    with one_camera(host, lambda probe: [reply(probe)]):
        assert process.wait(20) == 0
    assert set(Finding(process.lines).by_address) == {f"{NETWORK}.2"}


def test_duplicate_copies_are_one_device(network):
    host = simulated(network, "--misbehave", "duplicate=100%", cameras=20)
    assert len(find(host).by_address) == 20


def recorder(probe):
    """A reply with three ProbeMatch elements, as recorders have them."""
    text = reply(probe).decode()
    start, end = text.index("<d:ProbeMatch>"), text.index("</d:ProbeMatches>")
    match = text[start:end]
    matches = "".join(match.replace("urn:uuid:", f"urn:uuid:channel-{number}-").replace(
        "hardware/Hand", f"hardware/Channel{number}") for number in range(3))
    return (text[:start] + matches + text[end:]).encode()


def test_each_match_of_a_recorder_is_a_device(network):
    searcher, host = cabled(network)
    with one_camera(host, lambda probe: [recorder(probe)]):
        devices = find(searcher).devices
    assert {device["hardware"] for device in devices} == {"Channel0", "Channel1", "Channel2"}
    assert {device["ip"] for device in devices} == {f"{NETWORK}.2"}


def test_sender_of_an_empty_answer_is_listed(network):
    searcher, host = cabled(network)

    def empty(probe):
        text = reply(probe)
        return [text[:text.index(b"<d:ProbeMatch>")] + text[text.index(b"</d:ProbeMatches>"):]]

    with one_camera(host, empty), searcher.socket() as holder:
        holder.bind(("0.0.0.0", PORT))  # so that the camera search does not list it
        [device] = find(searcher).devices
    assert device["ip"] == f"{NETWORK}.2" and device["kind"] == "unknown"


def test_failure_words_of_a_camera_are_its_hardware(network):
    searcher, host = cabled(network)
    scopes = "onvif://www.onvif.org/hardware/Send%20probe%20message%20failed.%20[101]"
    with one_camera(host, lambda probe: [reply(probe, scopes=scopes)]):
        found = find(searcher)
    assert found.by_address[f"{NETWORK}.2"]["hardware"] == "Send probe message failed. [101]"
    assert not [one for one in found.problems if one["error"]], found.problems
    assert found.report["complete"]


def test_large_reply_is_whole(network):
    searcher, host = cabled(network)
    scopes = " ".join([f"onvif://www.onvif.org/type/{'x' * 400}{i}" for i in range(60)]
                      + ["onvif://www.onvif.org/name/Last"])
    long = "<!--" + "x" * 30000 + "-->"
    with one_camera(host, lambda probe: [reply(probe, scopes=scopes, extra=long)]):
        [device] = find(searcher).devices
    assert device["mac"] and device["uuid"] and len(device["scopes"]) >= 32


def test_foreign_subnet(network):
    host = simulated(network, "--foreign", 3, cameras=10)
    reach = sorted(device["reach"] for device in find(host).devices)
    assert reach == ["foreign"] * 3 + ["local"] * 7


@pytest.mark.parametrize("mode, options", [("only", []), ("also", ["--ipv6"])])
def test_ipv6(network, mode, options):
    host = simulated(network, "--ipv6", mode, cameras=10)
    devices = find(host, *options).devices
    assert len(devices) == 10
    for device in devices:
        [address] = device["ipv6"]
        assert address.startswith("fe80:") and address.endswith("%sim0"), device
        assert device["ip"] is None


def test_ipv4_and_ipv6_are_one_device(network):
    host = simulated(network, "--ipv6", "also", cameras=10)
    devices = find(host).devices
    assert len(devices) == 10
    assert all(device["ip"] and device["ipv6"] for device in devices)
    assert all(not device["ipv6"] for device in find(host, "--ipv4").devices)


@pytest.mark.ctest(alone=True)
def test_cameras_that_did_not_ask_are_asked(network):
    """The kernel has no entry for a camera that had one for the searcher already."""
    host = simulated(network, "--misbehave", "quiet-arp=100%", cameras=100)
    found = find(host, seconds=3)
    assert len(found.by_address) == 100
    assert all(device["mac"] for device in found.devices)


def test_forged_senders_are_bounded(network):
    """A flood of replies from everywhere neither ends the search nor hides the camera."""
    searcher, host = cabled(network)
    stop = threading.Event()

    def flood(to):
        with host.socket() as sender:
            text = b"<Envelope><Body><ProbeMatches/></Body></Envelope>"
            while not stop.is_set():
                sender.sendto(text, to)
                sender.sendto(str(time.monotonic()).encode() + text, to)

    started = []

    def answer(probe):
        if not started:
            started.append(threading.Thread(target=flood, args=(probe.sender,), daemon=True))
            started[0].start()
        return [reply(probe)]

    with one_camera(host, answer, f"{NETWORK}.7"):
        try:
            begin = time.monotonic()
            found = find(searcher, seconds=3)
            assert time.monotonic() - begin < 6
        finally:
            stop.set()
    assert f"{NETWORK}.7" in {device["ip"] for device in found.devices}
