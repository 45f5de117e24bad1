"""Beside programs that others wrote: devices that answer other types, and other clients."""

import fcntl
import json
import os
import shutil
import subprocess
from pathlib import Path

import pytest

from camera import Responder, reply
from lan import GROUP, PORT, TOOL_PATH
from sandbox import not_available
from searching import Search, search

SEARCHER = "10.1.0.1"
CAMERAS = [f"10.1.0.{number}" for number in range(10, 40)]
HERE = Path(__file__).parent


@pytest.fixture
def office(network):
    """A switch with a searcher, a host of cameras, and a host for somebody else's program."""
    switch = network.switch()
    searcher, cameras, other = (network.namespace() for _ in range(3))
    network.plug(searcher, switch, f"{SEARCHER}/24")
    network.plug(cameras, switch, "10.1.0.2/24")
    network.plug(other, switch, "10.1.0.3/24")
    for host in (searcher, other):
        host.ip("route", "add", "224.0.0.0/4", "dev", "eth0")
    return searcher, cameras, other


def cameras_on(host, searcher):
    return Responder(host, "eth0", CAMERAS, lambda probe: [reply(probe)]).introduce_to(searcher)


def assert_only_the_cameras(result, host):
    assert sorted(result.addresses) == sorted(CAMERAS)
    assert {camera["mac"] for camera in result.cameras} == {host.mac("eth0")}
    assert {camera["hardware"] for camera in result.cameras} == {"Hand"}


def start_wsdd(host):
    """Debian 12's wsdd: a WS-Discovery target of type wsdp:Device and pub:Computer."""
    if shutil.which("wsdd", path=TOOL_PATH) is None:
        pytest.skip("there is no wsdd; Debian 13 has none")
    wsdd = host.start("wsdd", "--interface", "eth0", "--ipv4only", "--hostname", "other", "-vvv")
    wsdd.wait_for("joined multicast group")
    return wsdd


WSDD_PROBE = """<?xml version="1.0"?><s:Envelope
 xmlns:s="http://www.w3.org/2003/05/soap-envelope"
 xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing"
 xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery"><s:Header>
<a:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</a:Action>
<a:MessageID>urn:uuid:6d0e5ea1-6b9c-4d4b-9f7c-000000000001</a:MessageID>
<a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To></s:Header><s:Body><d:Probe>
<d:Types xmlns:wsdp="http://schemas.xmlsoap.org/ws/2006/02/devprof">wsdp:Device</d:Types>
</d:Probe></s:Body></s:Envelope>"""


def assert_answers_its_own_type(searcher):
    with searcher.socket() as client:
        client.bind((SEARCHER, 0))
        client.settimeout(5)
        client.sendto(WSDD_PROBE.encode(), (GROUP, PORT))
        answer, sender = client.recvfrom(65536)
    assert sender[0] == "10.1.0.3"
    assert b"ProbeMatches" in answer


def test_wsdd_on_another_host_is_not_listed_and_costs_no_camera(office):
    searcher, cameras, other = office
    wsdd = start_wsdd(other)
    assert_answers_its_own_type(searcher)
    with cameras_on(cameras, searcher):
        result = search(searcher, SEARCHER)
    assert wsdd.running()
    assert_only_the_cameras(result, cameras)


def test_wsdd_on_the_searchers_host_holds_its_port(office):
    """It binds the interface's address at 3702, as a search does: who comes second fails."""
    searcher, cameras, _ = office
    wsdd = start_wsdd(searcher)
    with cameras_on(cameras, searcher):
        refused = search(searcher, SEARCHER)
        wsdd.stop()
        result = search(searcher, SEARCHER)
    assert refused.cameras == []
    assert refused.duration < 2
    assert len(refused.logged("Bind socket failed. [98]")) == 1
    assert_only_the_cameras(result, cameras)


@pytest.mark.parametrize("place", ["searcher", "other"])
def test_nmap_probing_at_the_same_time_disturbs_nothing(office, place):
    searcher, cameras, other = office
    host = searcher if place == "searcher" else other
    with cameras_on(cameras, searcher) as responder:
        nmap = host.start("nmap", "-n", "-e", "eth0", "--script", "broadcast-wsdd-discover")
        running = Search(searcher, SEARCHER, 4)
        result = running.result()
        assert nmap.wait(60) == 0
    assert len(responder.probes) > 4, "nmap did not probe: " + nmap.output()
    assert_only_the_cameras(result, cameras)
    assert result.duration < 12


@pytest.fixture(scope="module")
def onvif_client():
    """The npm package onvif in the version that npm/package-lock.json pins, installed once a
    build folder."""
    if shutil.which("npm") is None:
        not_available("npm is not installed")
    folder = Path(os.environ["LANSCOUT_BUILD"], "tests/lan/npm").resolve()
    folder.mkdir(parents=True, exist_ok=True)
    with open(folder / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        for name in ("package.json", "package-lock.json", "probe.js"):
            shutil.copy(HERE / "npm" / name, folder)
        if not (folder / "node_modules/onvif/package.json").exists():
            try:
                done = subprocess.run(
                    ["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund",
                     "--fetch-retries=0"], cwd=folder, stdin=subprocess.DEVNULL,
                    capture_output=True, text=True, timeout=60, check=False)
            except subprocess.TimeoutExpired:
                not_available("npm ci did not end within 60 s")
            if done.returncode != 0:
                not_available("npm ci failed: " + done.stderr[-400:])
    return folder / "probe.js"


def onvif_cameras(client):
    """What the onvif client printed, once it has ended."""
    assert client.wait(30) == 0, client.output()
    found = json.loads(client.lines[-1])
    assert found["errors"] == []
    return found["cameras"]


def test_onvif_client_finds_the_simulators_cameras(network, onvif_client):
    devices = network.folder / "devices.json"
    simulator = network.simulator("--devices", devices, cameras=40)
    client = simulator.namespace.start("node", onvif_client, "sim0", 1500)
    found = onvif_cameras(client)
    described = json.loads(devices.read_text())["devices"]
    assert len(described) == len({camera["endpoint"] for camera in found}) == 40
    assert {(camera["ip"], camera["port"]) for camera in found} \
        == {(device["ip"], device["port"]) for device in described}


@pytest.mark.parametrize("place", ["searcher", "other"])
def test_onvif_client_probing_at_the_same_time_disturbs_nothing(office, onvif_client, place):
    searcher, cameras, other = office
    host = searcher if place == "searcher" else other
    with cameras_on(cameras, searcher) as responder:
        client = host.start("node", onvif_client, "eth0", 3000)
        result = search(searcher, SEARCHER, 1)
        found = onvif_cameras(client)
    assert sorted(camera["ip"] for camera in found) == sorted(CAMERAS)
    assert len(responder.probes) == 3
    assert_only_the_cameras(result, cameras)
