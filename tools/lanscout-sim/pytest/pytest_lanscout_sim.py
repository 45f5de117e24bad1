"""A network of simulated cameras and UPnP devices for tests.

    def test_my_search(camera_network):
        network = camera_network(cameras=5, misbehave={"not-xml": 1})
        found = network.run("my-search", "--json", network.address)
        assert {camera["ip"] for camera in network.good()} <= set(addresses_in(found.stdout))

The program lanscout-sim is found in PATH, or named by LANSCOUT_SIM or --lanscout-sim.
"""

import http.client
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import time
from pathlib import Path

import pytest

READY_SECONDS = 30


def pytest_addoption(parser):
    parser.addoption("--lanscout-sim", metavar="FILE", default=None,
                     help="the program lanscout-sim (LANSCOUT_SIM, or the one in PATH)")


class _UnixConnection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("lanscout-sim", timeout=10)
        self._path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self._path)


class ControlError(Exception):
    """The simulator refused a request; the text says why."""


class CameraNetwork:
    """One run of the simulator. Use it with `with`, or get it from the fixture."""

    def __init__(self, cameras=None, upnp=0, misbehave=None, scenario=None, mode="auto",
                 program=None, options=()):
        self._folder = tempfile.TemporaryDirectory(prefix="lanscout-sim-")
        folder = Path(self._folder.name)
        self._control = str(folder / "control")
        command = [program or os.environ.get("LANSCOUT_SIM") or shutil.which("lanscout-sim")
                   or "lanscout-sim", "--mode", mode, "--control", self._control]
        if cameras is not None:
            command += ["--cameras", str(cameras)]
        if upnp:
            command += ["--upnp", str(upnp)]
        if scenario is not None:
            if not isinstance(scenario, (str, os.PathLike)):
                path = folder / "scenario.json"
                path.write_text(json.dumps(scenario))
                scenario = path
            command += ["--scenario", os.fspath(scenario)]
        for kind, share in (misbehave or {}).items():
            command += ["--misbehave", f"{kind}={share}"]
        self._errors = open(folder / "errors", "w+", encoding="utf-8", errors="replace")
        self._process = subprocess.Popen(
            [*command, *map(str, options)], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=self._errors, text=True)
        try:
            self.ready_line = self._wait_until_ready()
        except BaseException:
            self.close()
            raise
        self.devices = self.ask("GET", "/devices")["devices"]

    def _wait_until_ready(self):
        deadline = time.monotonic() + READY_SECONDS
        stdout = self._process.stdout
        while time.monotonic() < deadline:
            if select.select([stdout], [], [], 0.1)[0]:
                line = stdout.readline()
                if line.startswith("ready"):
                    return line.strip()
                if not line:
                    break
        self._errors.seek(0)
        raise RuntimeError("lanscout-sim did not get ready: " + self._errors.read().strip())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends the run; whatever it made is gone then."""
        if self._process.poll() is None:
            self._process.send_signal(signal.SIGTERM)
            try:
                self._process.wait(10)
            except subprocess.TimeoutExpired:
                self._process.kill()
                self._process.wait()
        self._process.stdout.close()
        self._errors.close()
        self._folder.cleanup()

    @property
    def address(self):
        """The address to search from."""
        return self.ready_line.split("search from ")[1].split(" ")[0]

    @property
    def mode(self):
        """namespace or loopback"""
        return self.ready_line.split("mode ")[1].split(",")[0]

    def enter(self):
        """The words before a command that runs it inside the network; none on loopback."""
        if "enter it with: " not in self.ready_line:
            return []
        words = self.ready_line.split("enter it with: ")[1].rstrip(")").split()
        return [*words, "--"]

    def run(self, *command, timeout=60, **options):
        """Runs a program inside the network, as subprocess.run does."""
        environment = dict(os.environ, LANSCOUT_SIM_ADDRESS=self.address)
        return subprocess.run([*self.enter(), *map(str, command)], timeout=timeout, text=True,
                              capture_output=True, check=False,
                              **{"env": environment, **options})

    def good(self):
        """The devices that every searcher should find: those that do not misbehave."""
        return [device for device in self.devices
                if not device["misbehaviours"] and device["present"] and not device["muted"]]

    def ask(self, method, path, body=None):
        """One request to the run; what it answered. ControlError when it is refused."""
        connection = _UnixConnection(self._control)
        try:
            connection.request(method, path, None if body is None else json.dumps(body))
            answer = connection.getresponse()
            text = answer.read().decode()
        finally:
            connection.close()
        if answer.status >= 400:
            raise ControlError(json.loads(text)["error"])
        return json.loads(text) if text else None

    def probes(self):
        """What the searchers asked, and what became of it: the oldest first."""
        return self.ask("GET", "/probes")["probes"]

    def add(self, **device):
        """One more device, that says Hello; its truth."""
        return self.ask("POST", "/devices", device)

    def change(self, uuid, **members):
        return self.ask("PATCH", f"/devices/{uuid}", members)

    def leave(self, uuid):
        self.ask("DELETE", f"/devices/{uuid}")


@pytest.fixture
def camera_network(request):
    """Makes networks that end with the test: camera_network(cameras=5, misbehave={...}, ...)."""
    networks = []

    def make(**arguments):
        arguments.setdefault("program", request.config.getoption("--lanscout-sim"))
        networks.append(CameraNetwork(**arguments))
        return networks[-1]

    yield make
    for network in reversed(networks):
        network.close()
