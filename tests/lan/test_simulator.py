"""A run of the simulator, from outside: how it starts, what it refuses, how it ends."""

import json
import os
import re
import signal
import socket
import time

import pytest

from lan import GROUP, program
from prober import Prober, probe_text
from sandbox import not_available


def scenario(network, **members):
    path = network.folder / "scenario.json"
    path.write_text(json.dumps(members))
    return path


def uuid_of(text):
    return re.search("urn:uuid:([0-9a-f-]{36})</[A-Za-z:]*Address>", text)[1]


def prober(simulator):
    return Prober(simulator.namespace, "sim0", simulator.address)


def test_taken_name_of_a_namespace_is_an_error(network):
    taken = network.namespace()
    simulator = network.start(program("lanscout-sim"), "--netns", taken.name, "--seconds", 5)
    assert simulator.wait(10) == 3
    assert f"the network namespace {taken.name} is there already" in simulator.text(
        simulator.errors)
    assert not simulator.lines  # it never got ready


def test_taken_name_of_a_device_is_an_error(network):
    simulator = network.start(program("lanscout-sim"), "--tap", "lo", "--seconds", 5)
    assert simulator.wait(10) == 3
    assert "cannot make the device lo" in simulator.text(simulator.errors)
    assert not simulator.lines


SHARED = "10.99.1.5"
TWINS = [{"name": name, "ip": SHARED, "mac": mac, "uuid": uuid} for name, mac, uuid in (
    ("One", "02:4C:00:00:00:01", "11111111-1111-4111-8111-111111111111"),
    ("Two", "02:4C:00:00:00:02", "22222222-2222-4222-8222-222222222222"))]


def test_two_cameras_at_one_address_answer_each_with_its_own_mac(network):
    simulator = network.simulator("--scenario", scenario(network, cameras=TWINS))
    with prober(simulator) as searcher:
        searcher.ask()
        replies = searcher.replies(2)
        senders = {mac for kind, mac, _, rest in searcher.frames()
                   if kind == 0x0800 and rest[9] == 17 and b"ProbeMatches" in rest}
    assert [address for address, _ in replies] == [SHARED, SHARED]
    assert {uuid_of(text) for _, text in replies} == {twin["uuid"] for twin in TWINS}
    assert senders == {twin["mac"] for twin in TWINS}


def test_question_to_a_shared_address_goes_to_the_camera_with_that_mac(network):
    simulator = network.simulator("--scenario", scenario(network, cameras=TWINS))
    with prober(simulator) as searcher:
        for twin in TWINS:
            simulator.namespace.ip("neighbour", "replace", SHARED, "lladdr", twin["mac"], "dev",
                                   "sim0", "nud", "permanent")
            searcher.ask(SHARED)
            [(_, text)] = searcher.replies(1)
            assert uuid_of(text) == twin["uuid"]


def test_cameras_of_a_foreign_subnet_ask_for_the_searcher_and_reply(network):
    simulator = network.simulator("--foreign", 2, cameras=3)
    simulator.namespace.sysctl("net.ipv4.conf.all.rp_filter", 0)
    simulator.namespace.sysctl("net.ipv4.conf.sim0.rp_filter", 0)
    with prober(simulator) as searcher:
        searcher.ask()
        replies = searcher.replies(3)
        asked = {(asker, target) for _, asker, target in searcher.arp_requests()}
    foreign = {"192.168.77.10", "192.168.77.11"}
    assert {address for address, _ in replies} == {"10.99.0.10", *foreign}
    assert {(address, simulator.address) for address in foreign} <= asked


def test_quiet_cameras_are_learnt_only_when_they_are_asked(network):
    simulator = network.simulator("--misbehave", "quiet-arp=100%", cameras=5)
    with prober(simulator) as searcher:
        searcher.ask()
        replies = searcher.replies(5)
        assert len(replies) == 5
        assert searcher.arp_requests() == []
        assert simulator.namespace.neighbours("sim0").keys() <= {GROUP}
        searcher.ask(replies[0][0])
        assert len(searcher.replies(1)) == 1
    assert simulator.namespace.neighbours("sim0").keys() - {GROUP} == {replies[0][0]}


GROUP6 = "ff02::c"


def prober6(simulator):
    return Prober(simulator.namespace, "sim0", "::", socket.AF_INET6)


def test_cameras_answer_on_ipv6_and_become_neighbours(network):
    simulator = network.simulator("--ipv6", "also", cameras=3)
    with prober6(simulator) as searcher:
        searcher.ask(GROUP6)
        replies = searcher.replies(3)
    expected = {f"fe80::4c:aff:fe63:{number}": f"02:4c:0a:63:00:0{number}" for number in "abc"}
    assert {address.partition("%")[0] for address, _ in replies} == set(expected)
    assert all(f"http://[{address.partition('%')[0]}]" in text for address, text in replies)
    neighbours = simulator.namespace.ip("-6", "neighbour", "show", "dev", "sim0", "nud", "all")
    assert expected.items() <= {entry["dst"]: entry.get("lladdr") for entry in neighbours}.items()


def test_cameras_on_ipv6_alone_are_asked_one_by_one_and_echo(network):
    simulator = network.simulator("--ipv6", "only", cameras=2)
    with prober(simulator) as searcher:
        searcher.ask()
        assert searcher.replies(1, seconds=0.7) == []
    with prober6(simulator) as searcher:
        searcher.ask("fe80::4c:aff:fe63:b")
        [(address, _)] = searcher.replies(1)
    assert address.startswith("fe80::4c:aff:fe63:b")
    echo = simulator.namespace.socket(socket.AF_INET6, socket.SOCK_RAW, socket.IPPROTO_ICMPV6)
    with simulator.namespace.entered():
        scope = socket.if_nametoindex("sim0")
    with echo:
        echo.settimeout(5)
        echo.sendto(b"\x80\0\0\0\0\x07\0\x09ping", ("fe80::4c:aff:fe63:a", 0, 0, scope))
        answer = b""
        while not answer.endswith(b"\0\x07\0\x09ping") or answer[0] != 129:
            answer = echo.recv(1000)


def test_camera_without_arp_is_heard_and_cannot_be_asked(network):
    simulator = network.simulator("--ipv6", "also", "--misbehave", "no-arp=100%", cameras=1)
    with prober(simulator) as searcher, prober6(simulator) as searcher6:
        searcher.ask()
        searcher6.ask(GROUP6)
        assert len(searcher.replies(1)) == 1
        assert len(searcher6.replies(1)) == 1
        searcher.ask("10.99.0.10")
        searcher6.ask("fe80::4c:aff:fe63:a")
        assert searcher.replies(1, seconds=0.7) == []
        assert searcher6.replies(1, seconds=0.1) == []
    assert "lladdr" not in simulator.namespace.neighbours("sim0")["10.99.0.10"]


def test_quiet_camera_on_ipv6_does_not_ask(network):
    simulator = network.simulator("--ipv6", "only", "--misbehave", "quiet-arp=100%", cameras=2)
    with prober6(simulator) as searcher:
        searcher.ask(GROUP6)
        assert len(searcher.replies(2)) == 2
        asked = [rest for kind, mac, _, rest in searcher.frames()
                 if kind == 0x86DD and rest[6] == 58 and rest[40] == 135 and mac[:5] == "02:4C"]
    assert asked == []


def test_oversize_reply_comes_whole_over_ipv6(network):
    simulator = network.simulator("--ipv6", "only", "--misbehave", "oversize=100%", cameras=1)
    with prober6(simulator) as searcher:
        searcher.ask(GROUP6)
        [(_, text)] = searcher.replies(1)
    assert len(text) >= 6000 and text.rstrip().endswith("Envelope>")


def simulate(network, *arguments):
    """Starts the simulator as a user does; what it does ends with it."""
    return network.start(program("lanscout-sim"), *arguments)


def outcome(network, *arguments, seconds=20):
    simulator = simulate(network, *arguments)
    return simulator.wait(seconds), simulator


@pytest.mark.parametrize("mode", ["namespace", "loopback"])
def test_exit_status_is_the_commands(network, mode):
    def status(*arguments):
        return outcome(network, "--mode", mode, "--cameras", 1, *arguments)[0]

    assert status("--", "sh", "-c", "exit 7") == 7
    assert status("--", "sh", "-c", "kill -KILL $$") == 128 + signal.SIGKILL
    assert status("--", "true") == 0


def test_time_that_is_up_is_told_from_a_command_that_ended(network):
    begin = time.monotonic()
    assert outcome(network, "--seconds", 0.3, "--", "sleep", "50")[0] == 124
    assert time.monotonic() - begin < 3
    assert outcome(network, "--seconds", 0.3, "--", "sh", "-c", "sleep 1; exit 1")[0] == 124
    ends_well = "trap 'exit 0' TERM; while :; do sleep 0.05; done"
    assert outcome(network, "--seconds", 0.3, "--", "sh", "-c", ends_well)[0] == 124
    assert outcome(network, "--seconds", 0.1)[0] == 0  # nothing was cut short


def test_command_that_will_not_end_is_killed(network):
    stays = "trap '' TERM; while :; do sleep 0.05; done"
    begin = time.monotonic()
    assert outcome(network, "--seconds", 0.2, "--", "sh", "-c", stays)[0] == 124
    assert 3 < time.monotonic() - begin < 8


def test_told_to_end_it_has_the_commands_own_status(network):
    for command, expected in (("trap 'exit 5' TERM; echo up; while :; do sleep 0.05; done", 5),
                              ("echo up; exec sleep 50", 128 + signal.SIGTERM)):
        simulator = simulate(network, "--cameras", 1, "--", "sh", "-c", command)
        simulator.wait_for("^up$")
        assert simulator.stop(signal.SIGTERM) == expected


def test_devices_answer_a_command_that_is_ending(network):
    probe = ("trap 'python3 -c \"$ASK\"; exit $?' TERM; echo up; while :; do sleep 0.05; done")
    ask = ("import socket,os;s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM);s.settimeout(2);"
           "s.sendto(bytes.fromhex(os.environ['TEXT']),('239.255.255.250',3702));"
           "print('heard',len(s.recv(9999)))")
    os.environ["ASK"], os.environ["TEXT"] = ask, probe_text().hex()
    try:
        simulator = simulate(network, "--cameras", 1, "--max-delay", 20, "--", "sh", "-c", probe)
        simulator.wait_for("^up$")
        assert simulator.stop(signal.SIGTERM) == 0
    finally:
        del os.environ["ASK"], os.environ["TEXT"]
    assert simulator.lines[-1].startswith("heard ")


@pytest.mark.parametrize("option", ["--stats", "--devices", "--capture"])
def test_file_that_cannot_be_written_is_an_error_before_the_start(network, option):
    status, simulator = outcome(network, option, "/nowhere/file", "--", "echo", "ran")
    assert status == 3
    assert "/nowhere/file" in simulator.text(simulator.errors)
    assert simulator.lines == []


@pytest.mark.parametrize("option", ["--stats", "--capture"])
def test_full_disk_is_no_success(network, option):
    status, simulator = outcome(network, "--cameras", 5, option, "/dev/full", "--", "true")
    assert status == 3
    assert "No space left on device" in simulator.text(simulator.errors)
    assert outcome(network, "--cameras", 5, option, "/dev/full", "--", "false")[0] == 1


def test_devices_on_standard_output_are_nothing_but_json(network):
    status, simulator = outcome(network, "--cameras", 2, "--devices", "-", "--seconds", 0.1)
    assert status == 0
    assert len(json.loads(simulator.text(simulator.lines))["devices"]) == 2
    assert any(line.startswith("ready: ") for line in simulator.errors)


def test_ready_line_goes_where_it_is_wanted(network):
    path = network.folder / "ready"
    status, simulator = outcome(
        network, *("--cameras", 2, "--seconds", 0.1, "--ready-fd", 9), seconds=5)
    assert status == 2  # not open
    shell = network.start("sh", "-c", f'exec "$0" --cameras 2 --seconds 0.1 --ready-fd 9 9>{path}',
                          program("lanscout-sim"))
    assert shell.wait(5) == 0
    assert path.read_text().startswith("ready: 2 cameras")
    assert shell.lines == []


@pytest.mark.parametrize("mode", ["namespace", "loopback"])
def test_what_listens_nowhere_is_refused_at_once(network, mode):
    devices = {"cameras": [{"name": "Pure", "ip": "10.99.1.1"}],
               "upnp": [{"name": "One", "ip": "10.99.1.2", "port": 8001},
                        {"name": "Two", "ip": "10.99.1.3", "port": 8002}]}
    simulator = simulate(network, "--mode", mode, "--scenario", scenario(network, **devices), "--",
                         "/usr/bin/python3", "-c", REFUSALS)
    assert simulator.wait(20) == 0, simulator.output()


REFUSALS = """
import errno, os, socket, time
net = os.environ["LANSCOUT_SIM_ADDRESS"].rsplit(".", 2)[0] + ".1."

def tcp(host, port):
    with socket.socket() as it:
        it.settimeout(3)
        return it.connect_ex((net + host, port))

def udp(host, port):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as it:
        it.settimeout(3)
        it.connect((net + host, port))
        it.send(b"x")
        try:
            it.recv(10)
        except OSError as error:
            return error.errno
    return 0

begin = time.monotonic()
for host in "123":
    for port in (1, 81, 554, 65535):
        assert tcp(host, port) == errno.ECONNREFUSED, (host, port)
        assert udp(host, port) == errno.ECONNREFUSED, (host, port)
assert tcp("2", 8001) == 0
assert tcp("3", 8002) == 0
assert tcp("2", 8002) == errno.ECONNREFUSED
assert tcp("3", 8001) == errno.ECONNREFUSED
assert udp("1", 1900) == errno.ECONNREFUSED
assert udp("2", 3702) == errno.ECONNREFUSED
assert time.monotonic() - begin < 2, "they waited for a timeout"
"""


def test_datagram_over_ipv6_is_refused_at_a_port_where_nothing_listens(network):
    simulator = network.simulator("--ipv6", "only", cameras=1)
    with prober6(simulator) as searcher:
        searcher.socket.connect(("fe80::4c:aff:fe63:a", 4000, *searcher.scope))
        searcher.socket.settimeout(5)
        searcher.socket.send(b"x")
        with pytest.raises(ConnectionRefusedError):
            searcher.socket.recv(10)


def as_nobody(network, tun_mode, *arguments):
    """The simulator as an unprivileged user, on a machine whose tun device has that mode."""
    script = ("mount -t tmpfs none /dev/net && mknod /dev/net/tun c 10 200 && "
              f"chmod {tun_mode} /dev/net/tun && "
              'exec setpriv --reuid 65534 --regid 65534 --clear-groups "$0" "$@"')
    return network.start("unshare", "--mount", "--net", "sh", "-c", script,
                         program("lanscout-sim"), *arguments)


IDENTITY = "id -u; readlink /proc/self/ns/net; ls /sys/class/net >/dev/null; cat /proc/net/dev"


def test_unprivileged_user_gets_namespace_mode(network):
    simulator = as_nobody(network, 666, "--cameras", 3, "--", "sh", "-c", IDENTITY)
    if any("user namespace" in line for line in simulator.errors):
        not_available("this machine allows no user namespaces")
    assert simulator.wait(20) == 0, simulator.output()
    assert simulator.lines[0] == "65534"
    assert any("mode namespace" in line for line in simulator.errors)
    assert any(line.strip().startswith("sim0:") for line in simulator.lines)
    assert simulator.lines[1] != os.readlink("/proc/self/ns/net")


def test_unprivileged_user_without_tun_gets_a_loopback_of_its_own(network):
    ask = ("import socket,os;s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM);s.settimeout(5);"
           f"s.sendto({probe_text()!r},('239.255.255.250',3702));print(s.recvfrom(9999)[1][0])")
    simulator = as_nobody(network, 600, "--cameras", 1, "--", "/usr/bin/python3", "-c", ask)
    assert simulator.wait(20) == 0, simulator.output()
    assert simulator.lines == ["127.77.1.1"]
    said = simulator.text(simulator.errors)
    assert "using loopback mode; namespace mode is unavailable: cannot open /dev/net/tun: " \
           "Permission denied; this user may not use it" in said


def test_unprivileged_user_cannot_name_a_namespace(network):
    simulator = as_nobody(network, 666, "--cameras", 1, "--netns", "lab")
    assert simulator.wait(20) == 3
    assert "takes root" in simulator.text(simulator.errors)


def test_unprivileged_user_is_nobody_else_but_root_on_request(network):
    simulator = as_nobody(network, 666, "--cameras", 1, "--user", "root", "--", "id", "-u")
    assert simulator.wait(20) == 0, simulator.output()
    assert simulator.lines == ["0"]
    simulator = as_nobody(network, 666, "--cameras", 1, "--user", "daemon", "--", "id", "-u")
    assert simulator.wait(20) == 3
    assert "it takes root to run the command as daemon" in simulator.text(simulator.errors)


def test_command_runs_as_the_user_that_is_named_or_ran_sudo(network):
    status, simulator = outcome(network, "--cameras", 1, "--user", "nobody", "--", "sh", "-c",
                                "id -un; echo $HOME $USER")
    assert status == 0
    assert simulator.lines[0] == "nobody" and simulator.lines[1].endswith(" nobody")
    sudo = network.start("env", "SUDO_UID=65534", program("lanscout-sim"), "--cameras", 1, "--",
                         "id", "-u")
    assert sudo.wait(20) == 0
    assert sudo.lines == ["65534"]
    assert outcome(network, "--user", "nobody-at-all", "--", "true")[0] == 2


def test_device_joins_a_bridge_and_searchers_of_it_find_the_cameras(network):
    switch, host = network.switch(), network.namespace()
    network.plug(host, switch, "10.99.0.1/16")
    switch.ip("address", "add", "10.99.0.2/16", "dev", "br0")
    switch.ip("link", "set", "br0", "mtu", "1500")
    simulator = switch.start(program("lanscout-sim"), "--bridge", "br0", "--cameras", 3, "--upnp", 2)
    simulator.wait_for("^ready: .* search from 10.99.0.2 .sim0 in bridge br0.")
    host.ip("route", "add", "224.0.0.0/4", "dev", "eth0")
    with Prober(host, "eth0", "10.99.0.1") as searcher:
        searcher.ask()
        assert len(searcher.replies(3)) == 3
    with host.entered(), socket.socket() as connection:
        connection.settimeout(5)
        connection.connect(("10.99.0.10", 49152))
        connection.sendall(b"GET /description.xml HTTP/1.0\r\n\r\n")
        assert connection.recv(100).startswith(b"HTTP/1.")
    assert simulator.stop() == 0
    with pytest.raises(RuntimeError):
        switch.ip("link", "show", "dev", "sim0")
