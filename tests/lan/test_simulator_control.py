"""A run is changed while it lasts: by its scenario's timeline and through its control socket."""

import http.client
import json
import socket
import time

import pytest

from lan import PORT, program
from prober import Prober


class Control(http.client.HTTPConnection):
    """HTTP to a Unix socket."""

    def __init__(self, path):
        super().__init__("lanscout-sim", timeout=5)
        self._path = str(path)

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(5)
        self.sock.connect(self._path)

    def ask(self, method, path, body=None):
        self.request(method, path, None if body is None else json.dumps(body))
        answer = self.getresponse()
        text = answer.read()
        return answer.status, json.loads(text) if text else None


def prober(simulator):
    return Prober(simulator.namespace, "sim0", simulator.address)


def notices(searcher, name):
    """The Hellos or Byes that have passed, as texts."""
    return [rest.decode(errors="replace") for kind, _, _, rest in searcher.frames()
            if kind == 0x0800 and f"discovery/{name}<".encode() in rest]


def wait_for_notice(searcher, name, seconds=3):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        found = notices(searcher, name)
        if found:
            return found
        time.sleep(0.02)
    raise AssertionError(f"no {name} within {seconds} s")


def test_devices_come_change_and_go_through_the_control_socket(network):
    path = network.folder / "control"
    simulator = network.simulator("--control", path, cameras=2)
    control = Control(path)
    with prober(simulator) as searcher:
        status, added = control.ask("POST", "/devices", {"name": "New", "ip": "10.99.5.5"})
        assert status == 201 and added["ip"] == "10.99.5.5"
        [hello] = wait_for_notice(searcher, "Hello")
        assert added["endpoint"] in hello
        searcher.ask()
        assert "10.99.5.5" in {address for address, _ in searcher.replies(3)}

        status, changed = control.ask("PATCH", f"/devices/{added['uuid']}", {"ip": "10.99.5.6"})
        assert status == 200 and changed["ip"] == "10.99.5.6"
        searcher.ask()
        assert "10.99.5.6" in {address for address, _ in searcher.replies(3)}

        assert control.ask("DELETE", f"/devices/{added['uuid']}") == (204, None)
        [bye] = wait_for_notice(searcher, "Bye")[-1:]
        assert added["endpoint"] in bye
        searcher.ask()
        assert len(searcher.replies(3, seconds=1)) == 2
        searcher.ask("10.99.5.6")
        assert searcher.replies(1, seconds=0.7) == []

    status, probes = control.ask("GET", "/probes")
    assert [probe["answers"] for probe in probes["probes"] if probe["to"].endswith(f":{PORT}")][:3] \
        == [3, 3, 2]
    assert control.ask("PATCH", "/devices/nobody", {})[0] == 404
    status, answer = control.ask("PATCH", "/devices/Lobby%202", {"port": 70000})
    assert (status, answer["error"]) == (400, "device: port: 70000 is not 1 to 65535")
    assert oct(path.stat().st_mode)[-3:] == "600"
    simulator.stop()
    assert not path.exists()


def test_second_simulator_does_not_take_the_control_socket_and_a_dead_one_is_replaced(network):
    path = network.folder / "control"
    first = network.simulator("--control", path, cameras=1)
    second = network.start(program("lanscout-sim"), "--control", path, "--seconds", 5)
    assert second.wait(10) == 3
    assert "another simulator has the control socket" in second.text(second.errors)
    first.kill()
    assert path.exists()
    network.simulator("--control", path, cameras=1)
    assert Control(path).ask("GET", "/devices")[0] == 200


@pytest.mark.parametrize("mode", ["namespace", "loopback"])
def test_timeline_is_played(network, mode):
    scenario = network.folder / "scenario.json"
    scenario.write_text(json.dumps({
        "cameras": [{"name": "Front Door", "ip": "10.99.1.20"},
                    {"name": "Late", "ip": "10.99.1.21", "present": False}],
        "timeline": [{"at": 0.5, "device": "Late", "do": "join"},
                     {"at": 1, "device": "Front Door", "do": "leave"},
                     {"at": 1.5, "device": "Late", "do": "rename", "name": "Later"}]}))
    path = network.folder / "control"
    simulator = network.start(program("lanscout-sim"), "--mode", mode, "--scenario", scenario,
                              "--control", path, "--seconds", 30)
    simulator.wait_for("^ready", 20)
    control = Control(path)
    deadline = time.monotonic() + 10
    while True:
        devices = control.ask("GET", "/devices")[1]["devices"]
        state = {device["name"]: device["present"] for device in devices}
        if state == {"Front Door": False, "Later": True}:
            break
        assert time.monotonic() < deadline, state
        time.sleep(0.05)


SERVICE = """
import os, sys, time, urllib.error, urllib.request
ENVELOPE = ('<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"><s:Body><x:%s '
            'xmlns:x="http://www.onvif.org/ver10/device/wsdl"/></s:Body></s:Envelope>')

def ask(operation):
    try:
        with urllib.request.urlopen(sys.argv[1], (ENVELOPE % operation).encode(), 5) as answer:
            return answer.status, answer.read().decode()
    except urllib.error.HTTPError as error:
        return error.code, error.read().decode()

assert ask("GetSystemDateAndTime")[0] == 200
status, text = ask("GetDeviceInformation")
assert status == 400 and "NotAuthorized" in text, text
snapshot = urllib.request.urlopen(sys.argv[1].replace("device_service", "snapshot.jpg"), None, 5)
assert snapshot.read().startswith(bytes((0xFF, 0xD8))), "no JPEG"
"""


@pytest.mark.parametrize("mode, address", [("namespace", "10.99.1.20"), ("loopback", "127.77.1.20")])
def test_camera_has_a_device_service_at_its_port(network, mode, address):
    scenario = network.folder / "scenario.json"
    scenario.write_text(json.dumps({
        "cameras": [{"name": "Gate", "ip": "10.99.1.20", "port": 8080, "user": "admin",
                     "password": "secret"}],
        "upnp": [{"name": "Gate", "ip": "10.99.1.20"}]}))
    simulator = network.start(program("lanscout-sim"), "--mode", mode, "--scenario", scenario,
                              "--seconds", 30, "--", "/usr/bin/python3", "-c", SERVICE,
                              f"http://{address}:8080/onvif/device_service")
    assert simulator.wait(20) == 0, simulator.output()
