"""Networks of their own for tests: namespaces, cables, switches, captures and cameras.

    with lan.Lan() as network:
        searcher, camera = network.namespace(), network.namespace()
        network.cable(searcher, camera, "10.1.0.1/24", "10.1.0.2/24")
        ...

Everything that a Lan made goes when it closes, also when the test failed. What a killed test run
leaves behind is removed by the next one: the names of namespaces end in the process id of their
maker.
"""

import contextlib
import ctypes
import itertools
import json
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
from functools import partial
from pathlib import Path

GROUP = "239.255.255.250"
PORT = 3702  # WS-Discovery
NETNS_FOLDER = Path("/run/netns")
CLONE_NEWNET = 0x40000000
NAME_PATTERN = re.compile(r"^ls\d{4,}-(\d+)$")
DAEMONS = Path(__file__).resolve().parents[2] / "build/daemons/bin"  # see scripts/daemons
TOOL_PATH = f"{DAEMONS}:{os.environ.get('PATH', '')}:/usr/sbin:/sbin"

_libc = ctypes.CDLL(None, use_errno=True)
_numbers = itertools.count(1)


class Unavailable(Exception):
    """This machine or this user cannot make network namespaces; the text says why."""


class Timeout(AssertionError):
    """Something that a test waited for did not happen in time."""


def program(name):
    """Path of a program that the build made, e.g. "lanscout-sim"."""
    build = os.environ.get("LANSCOUT_BUILD")
    if not build:
        raise AssertionError("LANSCOUT_BUILD is not set: run the test with ctest, or set it to the "
                             "build folder")
    for folder in (f"tools/{name}", "tests/lan"):
        path = Path(build, folder, name).resolve()
        if path.is_file():
            return str(path)
    raise AssertionError(f"{name} is not in {build}")


def wait_until(condition, seconds, what, pause=0.02):
    """Waits until condition() is true and returns what it answered."""
    deadline = time.monotonic() + seconds
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise Timeout(f"{what}: not within {seconds} s")
        time.sleep(pause)


def new_name():
    """A namespace name that tells its maker, so that a later run can remove it."""
    return f"ls{next(_numbers):04d}-{os.getpid()}"


def _ip(*arguments, before=(), timeout=20):
    environment = dict(os.environ, PATH=TOOL_PATH, LC_ALL="C")
    done = subprocess.run([*before, "ip", *arguments], capture_output=True, text=True,
                          timeout=timeout, env=environment, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"ip {' '.join(arguments)}: {done.stderr.strip()}")
    return done.stdout


def _kill(pids):
    for pid in pids:
        with contextlib.suppress(ProcessLookupError):
            os.kill(pid, signal.SIGKILL)


def _delete(name):
    """Removes a namespace of ours, and first what still runs in it: it would keep it alive."""
    with contextlib.suppress(RuntimeError):
        _kill(int(pid) for pid in _ip("netns", "pids", name).split())
    with contextlib.suppress(RuntimeError):
        _ip("netns", "delete", name)


def sweep():
    """Removes the namespaces of runs whose process is gone."""
    if not NETNS_FOLDER.is_dir():
        return
    for path in NETNS_FOLDER.iterdir():
        match = NAME_PATTERN.match(path.name)
        if match and not Path(f"/proc/{match[1]}").exists():
            _delete(path.name)


class Process:
    """A program that runs beside the test; what it prints is kept and can be waited for."""

    def __init__(self, command, name):
        self.name = name
        self.lines, self.errors = [], []
        self._changed = threading.Condition()
        # A program must not outlive a test run that was killed: the kernel sees to it.
        self.popen = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", "--", *command], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True,
            env=dict(os.environ, PATH=TOOL_PATH), text=True, errors="replace")
        self._readers = [
            threading.Thread(target=self._read, args=(self.popen.stdout, self.lines), daemon=True),
            threading.Thread(target=self._read, args=(self.popen.stderr, self.errors), daemon=True)]
        for reader in self._readers:
            reader.start()

    def _read(self, stream, lines):
        for line in stream:
            with self._changed:
                lines.append(line.rstrip("\n"))
                self._changed.notify_all()

    def wait_for(self, pattern, seconds=10):
        """Waits for a line on either output in which `pattern` is found; returns that line."""
        expression = re.compile(pattern)

        def found():
            return next((line for line in [*self.lines, *self.errors] if expression.search(line)),
                        None)

        deadline = time.monotonic() + seconds
        with self._changed:
            while not found():
                left = deadline - time.monotonic()
                if left <= 0 or not (self.running() or any(r.is_alive() for r in self._readers)):
                    raise Timeout(f"{self.name}: no line /{pattern}/ within {seconds} s\n"
                                  + self.output())
                self._changed.wait(min(left, 0.2))
            return found()

    def running(self):
        return self.popen.poll() is None

    @staticmethod
    def text(lines):
        return "".join(line + "\n" for line in lines)

    def output(self):
        return "\n".join(["standard output:", *self.lines[-40:], "standard error:",
                          *self.errors[-40:]])

    def wait(self, seconds):
        """Waits for the end and returns the exit status."""
        try:
            status = self.popen.wait(seconds)
        except subprocess.TimeoutExpired:
            raise Timeout(f"{self.name}: still running after {seconds} s\n"
                          + self.output()) from None
        for reader in self._readers:
            reader.join(5)
        return status

    def stop(self, sign=signal.SIGINT, seconds=10):
        """Ends it as a person at a terminal would; returns the exit status."""
        if self.running():
            self.popen.send_signal(sign)
        return self.wait(seconds)

    def kill(self):
        """Ends it and everything that it started."""
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.popen.pid, signal.SIGKILL)
        self.popen.wait(10)
        for reader in self._readers:
            reader.join(5)


class Namespace:
    """One host of a test network."""

    def __init__(self, network, name):
        self.network = network
        self.name = name

    def command(self, *command):
        # Not "ip netns exec": that mounts a /sys, which the root of a mere chroot does not let it.
        return ["nsenter", f"--net={NETNS_FOLDER / self.name}", "--", *map(str, command)]

    def ip(self, *arguments):
        """Runs ip(8) in here; returns what it printed, decoded from JSON where there is any."""
        text = _ip("-json", *map(str, arguments), before=self.command())
        return json.loads(text) if text.strip() else []

    def batch(self, lines, go_on=False):
        """Runs many ip(8) commands at once, for hundreds of addresses; `go_on` past refused ones."""
        with tempfile.NamedTemporaryFile("w", prefix="lan-batch-") as file:
            file.write("\n".join(lines) + "\n")
            file.flush()
            command = ["-batch", file.name]
            if not go_on:
                _ip(*command, before=self.command(), timeout=60)
                return
            with contextlib.suppress(RuntimeError):
                _ip("-force", *command, before=self.command(), timeout=60)

    def run(self, *command, timeout=20, check=True):
        """Runs a program in here to its end, bounded in time; returns subprocess's record."""
        process = self.start(*command)
        status = process.wait(timeout)
        done = subprocess.CompletedProcess(command, status, process.text(process.lines),
                                           process.text(process.errors))
        if check and status != 0:
            raise AssertionError(f"{command} ended with {status}\n{process.output()}")
        return done

    def start(self, *command):
        """Starts a program in here that runs beside the test (see Process)."""
        return self.network.start(*self.command(*command))

    @contextlib.contextmanager
    def entered(self):
        """The calling thread is in here meanwhile; sockets made meanwhile stay in here."""
        home = os.open("/proc/thread-self/ns/net", os.O_RDONLY | os.O_CLOEXEC)
        there = os.open(NETNS_FOLDER / self.name, os.O_RDONLY | os.O_CLOEXEC)
        try:
            _set_namespace(there)
            try:
                yield
            finally:
                _set_namespace(home)
        finally:
            os.close(there)
            os.close(home)

    def socket(self, family=socket.AF_INET, kind=socket.SOCK_DGRAM, protocol=0):
        with self.entered():
            return socket.socket(family, kind, protocol)

    def sysctl(self, key, value):
        with self.entered():
            Path("/proc/sys", key.replace(".", "/")).write_text(str(value))

    def neighbours(self, device=None):
        """The neighbour table's IPv4 entries as {address: {"lladdr", "state", ...}}."""
        selection = ["dev", device] if device else []
        entries = self.ip("-4", "neighbour", "show", *selection, "nud", "all")
        return {entry["dst"]: entry for entry in entries}

    def mac(self, device):
        return self.ip("link", "show", "dev", device)[0]["address"].upper()

    def udp_count(self, name):
        """One of the kernel's UDP counters in here, by its name in /proc/net/snmp."""
        with self.entered():
            lines = Path("/proc/thread-self/net/snmp").read_text().splitlines()
        rows = [line.split()[1:] for line in lines if line.startswith("Udp:")]
        return int(dict(zip(*rows))[name])

    def is_up(self, device):
        return self.ip("link", "show", "dev", device)[0]["operstate"] == "UP"

    def capture(self, device, expression=""):
        """Captures what passes `device`, from the moment this returns. See Capture."""
        return Capture(self, device, expression)


def _set_namespace(descriptor):
    if _libc.setns(descriptor, CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "setns")


class Datagram:
    """One UDP datagram as it was on the wire."""

    def __init__(self, seconds, source, source_port, destination, destination_port, payload):
        self.seconds = seconds
        self.source, self.source_port = source, source_port
        self.destination, self.destination_port = destination, destination_port
        self.payload = payload

    def __repr__(self):
        return (f"{self.seconds:.6f} {self.source}:{self.source_port} > {self.destination}:"
                f"{self.destination_port} {len(self.payload)} bytes")


class Capture:
    """tcpdump on one device. Use it with `with`; afterwards `datagrams()` reads what it saw."""

    def __init__(self, namespace, device, expression):
        self.path = namespace.network.folder / f"capture-{next(_numbers)}.pcap"
        self._process = namespace.start("tcpdump", "-i", device, "-n", "-U", "-Z", "root",
                                        "--immediate-mode", "-s", "0", "-B", "16384",
                                        "-w", self.path, *expression.split())
        self._process.wait_for("listening on")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        if self._process.running():
            self._process.stop()

    def packets(self):
        """All captured frames as (seconds, bytes)."""
        data = self.path.read_bytes()
        order = "<" if data[:4] == b"\xd4\xc3\xb2\xa1" else ">"
        position = 24
        while position + 16 <= len(data):
            seconds, micros, length, _ = struct.unpack_from(order + "IIII", data, position)
            position += 16
            yield seconds + micros / 1e6, data[position:position + length]
            position += length

    def datagrams(self):
        """The UDP datagrams over IPv4 among them that were not fragmented."""
        return [parsed for seconds, frame in self.packets()
                if (parsed := _parse_udp(seconds, frame)) is not None]


def _parse_udp(seconds, frame):
    if frame[12:14] != b"\x08\x00" or frame[23] != socket.IPPROTO_UDP:
        return None
    if struct.unpack_from("!H", frame, 20)[0] & 0x3FFF:
        return None
    udp = 14 + (frame[14] & 15) * 4
    source_port, destination_port, length = struct.unpack_from("!HHH", frame, udp)
    return Datagram(seconds, socket.inet_ntoa(frame[26:30]), source_port,
                    socket.inet_ntoa(frame[30:34]), destination_port, frame[udp + 8:udp + length])


class Lan:
    """One test's network: owns its namespaces, programs and files."""

    def __init__(self):
        self._namespaces = []
        self._processes = []
        self._closers = []
        self._folder = None

    def __enter__(self):
        if os.geteuid() != 0:
            raise Unavailable("network namespaces need root")
        if shutil.which("ip", path=TOOL_PATH) is None:
            raise Unavailable("the program ip (package iproute2) is not installed")
        sweep()
        _delete(self.namespace().name)
        self._namespaces.clear()
        return self

    def __exit__(self, *_):
        self.close()

    @property
    def folder(self):
        """A folder for this test's files."""
        if self._folder is None:
            self._folder = Path(tempfile.mkdtemp(prefix="lanscout-lan-"))
        return self._folder

    def close(self):
        for closer in reversed(self._closers):
            closer()
        for process in self._processes:
            process.kill()
        for namespace in self._namespaces:
            _delete(namespace.name)
        if self._folder is not None:
            shutil.rmtree(self._folder, ignore_errors=True)
        self._closers, self._processes, self._namespaces, self._folder = [], [], [], None

    def at_end(self, closer):
        """closer() is called when the network closes, before anything is taken away."""
        self._closers.append(closer)

    def start(self, *command):
        """Starts a program outside of any namespace of ours; ended when the network closes."""
        process = Process([str(part) for part in command], Path(str(command[0])).name)
        self._processes.append(process)
        return process

    def namespace(self):
        """A new host with nothing but its loopback."""
        name = new_name()
        try:
            _ip("netns", "add", name)
        except RuntimeError as error:
            raise Unavailable(str(error)) from error
        namespace = self.adopt(name)
        namespace.ip("link", "set", "lo", "up")
        return namespace

    def adopt(self, name):
        """A namespace that a program makes, or made, under a name from new_name()."""
        namespace = Namespace(self, name)
        self._namespaces.append(namespace)
        return namespace

    def cable(self, one, other, one_address=None, other_address=None, one_device="eth0",
              other_device="eth0"):
        """Connects two namespaces; addresses like "10.1.0.1/24". Both devices are up after it."""
        one.ip("link", "add", one_device, "type", "veth", "peer", "name", other_device, "netns",
               other.name)
        for namespace, device, address in ((one, one_device, one_address),
                                           (other, other_device, other_address)):
            if address:
                namespace.ip("address", "add", address, "dev", device)
            namespace.ip("link", "set", device, "up")
        # Until the kernel has seen the carrier, a device takes datagrams and drops them.
        for namespace, device in ((one, one_device), (other, other_device)):
            wait_until(partial(namespace.is_up, device), 10, f"{device} is up", pause=0.005)

    def switch(self):
        """A namespace that holds a bridge, br0; plug() connects hosts to it."""
        namespace = self.namespace()
        # Without snooping the bridge floods multicasts, as a plain switch does.
        namespace.ip("link", "add", "br0", "type", "bridge", "mcast_snooping", "0",
                     "forward_delay", "0")
        namespace.ip("link", "set", "br0", "up")
        return namespace

    def plug(self, host, switch, address=None, device="eth0"):
        """Connects a host's new device to a switch; returns the switch's side's name."""
        port = f"port{next(_numbers)}"
        self.cable(host, switch, address, None, device, port)
        switch.ip("link", "set", port, "master", "br0")
        return port

    def simulator(self, *options, cameras=None, seconds=120, address="10.99.0.1", bits=16):
        """Starts the camera simulator in a namespace of its own and waits until it is ready."""
        namespace = self.adopt(new_name())
        command = [program("lanscout-sim"), "--mode", "namespace", "--netns", namespace.name,
                   "--network", f"{address}/{bits}", "--seconds", seconds]
        if cameras is not None:
            command += ["--cameras", cameras]
        simulator = self.start(*command, *options)
        simulator.wait_for("^ready", 30)
        simulator.namespace = namespace
        simulator.address = address
        return simulator
