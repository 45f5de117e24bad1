"""The command on several interfaces, on both ways of searching, and when it is ended."""

import os
import signal
import threading
import time
from pathlib import Path

import pytest

from camera import Responder, reply
from lan import GROUP, PORT, program, wait_until
from toolrun import by_address, check_document, lanscout, result, simulated
from upnpdevice import Device, answer, description

SEARCH = ("--timeout", 4)


def two_networks(network):
    """A searcher on two networks, with neither a default route nor one for multicast, and a host
    on each."""
    searcher, one, other = network.namespace(), network.namespace(), network.namespace()
    network.cable(searcher, one, "10.1.0.1/24", "10.1.0.2/24")
    network.cable(searcher, other, "10.2.0.1/24", "10.2.0.2/24", one_device="eth1")
    return searcher, one, other


def cameras(host, *addresses):
    return Responder(host, "eth0", addresses, lambda probe: [reply(probe)])


def children(pid):
    """The process ids of the searches of a running command."""
    return [int(child) for child in
            Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]


def started(host, *options):
    """A running command with its searches; its own process is a child of nobody in between."""
    process = host.start(program("lanscout"), *options)
    pid = process.popen.pid
    wait_until(lambda: len(children(pid)) >= 1, 10, "the searches run")
    return process, pid


def test_every_interface_is_searched(network):
    searcher, one, other = two_networks(network)
    with cameras(one, "10.1.0.2"), cameras(other, "10.2.0.2"):
        found = by_address(result(searcher, *SEARCH))
    assert set(found) == {"10.1.0.2", "10.2.0.2"}
    assert found["10.2.0.2"]["seenVia"] == [{"interface": "eth1", "address": "10.2.0.1"}]


def test_named_interface_alone_is_searched(network):
    searcher, one, other = two_networks(network)
    with cameras(one, "10.1.0.2"), cameras(other, "10.2.0.2"):
        assert set(by_address(result(searcher, "--interface", "eth1", *SEARCH))) == {"10.2.0.2"}
        assert set(by_address(result(searcher, "--address", "10.1.0.1", *SEARCH))) == {"10.1.0.2"}


def test_device_seen_through_two_interfaces_is_one_line(network):
    switch, searcher, camera = network.switch(), network.namespace(), network.namespace()
    network.plug(searcher, switch, "10.1.0.1/24")
    network.plug(searcher, switch, "10.1.0.3/24", device="eth1")
    network.plug(camera, switch, "10.1.0.2/24")
    with cameras(camera, "10.1.0.2"):
        document = result(searcher, *SEARCH)
    [device] = document["devices"]
    assert {via["interface"] for via in device["seenVia"]} == {"eth0", "eth1"}


# libupnp 1.8 sends its search by the route for multicast, whatever address it was given.
def test_upnp_devices_of_both_interfaces_are_found_without_any_route(network):
    searcher, one, other = two_networks(network)
    with Device(one, "10.1.0.2", {"/d.xml": answer(description("First"))}), \
            Device(other, "10.2.0.2", {"/d.xml": answer(description("Second"))}):
        found = by_address(result(searcher, "--only", "upnp", *SEARCH))
    assert {ip: device["name"] for ip, device in found.items()} == {
        "10.1.0.2": "First", "10.2.0.2": "Second"}
    assert all(device["mac"] for device in found.values())


def test_upnp_device_of_the_second_interface_is_found_beside_a_default_route(network):
    searcher, _, other = two_networks(network)
    searcher.ip("route", "add", "default", "via", "10.1.0.2")
    with Device(other, "10.2.0.2", {"/d.xml": answer(description("Second"))}):
        found = by_address(result(searcher, "--only", "upnp", *SEARCH))
    assert found["10.2.0.2"]["name"] == "Second"


def test_upnp_search_takes_another_port_where_its_own_is_taken(network):
    searcher, one, _ = two_networks(network)
    holder = searcher.socket(kind=1)
    holder.bind(("0.0.0.0", 49152))
    holder.listen()
    with holder, Device(one, "10.1.0.2", {"/d.xml": answer(description("First"))}):
        found = by_address(result(searcher, "--only", "upnp", "--interface", "eth0", *SEARCH))
    assert found["10.1.0.2"]["name"] == "First"


def test_both_ways_make_one_line(network):
    searcher, one, _ = two_networks(network)
    text = description("<![CDATA[<b>Gate</b>]]>").replace(
        b"<modelName>", b"<deviceType>urn:schemas-upnp-org:device:DigitalSecurityCamera:1"
        b"</deviceType><presentationURL>/ui</presentationURL><modelName>")
    with cameras(one, "10.1.0.2"), Device(one, "10.1.0.2", {"/d.xml": answer(text)}):
        [device] = result(searcher, *SEARCH)["devices"]
    assert device["protocols"] == ["onvif", "upnp"]
    assert (device["name"], device["maker"], device["model"]) == ("<b>Gate</b>", "Hand", "H1")
    assert (device["port"], device["hardware"]) == (80, "Hand")
    assert device["page"] == "http://10.1.0.2:8000/ui"
    assert device["kind"] == "camera"


@pytest.mark.parametrize("sign", [signal.SIGINT, signal.SIGTERM])
def test_interrupted_command_prints_what_was_found_and_ends_at_once(network, sign):
    host = simulated(network, cameras=20)
    process, pid = started(host, "--json", "--timeout", 60)
    searches = children(pid)
    time.sleep(6)  # the first results come after three quiet seconds
    begin = time.monotonic()
    assert process.stop(sign) == 0
    assert time.monotonic() - begin < 2
    document = check_document(process.text(process.lines))
    assert len(document["devices"]) == 20
    assert {search["outcome"] for search in document["searches"]} == {"interrupted"}
    assert not any(Path(f"/proc/{search}").exists() for search in searches)


def test_killed_command_leaves_no_search_behind(network):
    searcher, _, _ = two_networks(network)
    process, pid = started(searcher, "--timeout", 60)
    wait_until(lambda: len(children(pid)) >= 4, 10, "the searches run")
    searches = children(pid)
    os.kill(pid, signal.SIGKILL)
    process.wait(10)
    wait_until(lambda: not any(Path(f"/proc/{search}").exists() for search in searches), 5,
               "the searches are gone")


def test_search_that_dies_is_named_and_leaves_the_others_alone(network):
    searcher, one, other = two_networks(network)
    with cameras(one, "10.1.0.2"), cameras(other, "10.2.0.2"):
        process, pid = started(searcher, "--json", "--only", "onvif", "--timeout", 5)
        wait_until(lambda: len(children(pid)) >= 2, 10, "two searches run")
        os.kill(min(children(pid)), signal.SIGSEGV)
        assert process.wait(30) == 0
    document = check_document(process.text(process.lines))
    assert set(by_address(document)) == {"10.1.0.2", "10.2.0.2"}
    outcomes = {(search["source"], search["outcome"]) for search in document["searches"]}
    assert {("probes", "failed"), ("camerasearch", "done")} <= outcomes
    assert "was ended by signal 11" in process.text(process.errors)


def test_flood_does_not_keep_the_command(network):
    searcher, one, other = two_networks(network)

    ended = threading.Event()

    def endless(probe):
        while not ended.is_set():
            yield reply(probe)
            yield 0.1

    with Responder(one, "eth0", ["10.1.0.2"], endless), cameras(other, "10.2.0.2"):
        begin = time.monotonic()
        document = result(searcher, "--only", "onvif", "--timeout", 2)
        seconds = time.monotonic() - begin
        ended.set()
    assert seconds < 4
    assert "10.2.0.2" in by_address(document)
    assert {search["outcome"] for search in document["searches"]} == {"done"}


def test_reader_that_goes_away_ends_the_command(network):
    host = simulated(network, cameras=20)
    begin = time.monotonic()
    done = host.run("sh", "-c", '"$0" --plain --timeout 60 | head -n 1', program("lanscout"),
                    timeout=50)
    assert len(done.stdout.splitlines()) == 1
    assert time.monotonic() - begin < 40


def test_loopback_network_needs_no_interface_of_its_own(network):
    host = network.namespace()
    simulator = host.start(program("lanscout-sim"), "--mode", "loopback", "--cameras", 5,
                           "--seconds", 60)
    simulator.wait_for("^ready", 30)
    document = result(host, "--address", "127.77.0.1", "--only", "onvif", *SEARCH)
    assert len(document["devices"]) == 5


def test_probes_of_the_command_leave_from_the_named_address(network):
    searcher, one, _ = two_networks(network)
    with one.capture("eth0", f"udp dst port {PORT}") as capture:
        lanscout(searcher, "--interface", "eth0", "--only", "onvif", "--timeout", 1, status=1)
        time.sleep(0.5)
    probes = [sent for sent in capture.datagrams() if sent.destination == GROUP]
    assert {sent.source for sent in probes} == {"10.1.0.1"}
    assert [sent.source_port for sent in probes].count(PORT) >= 2
