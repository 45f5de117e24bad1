"""A run of the simulator, from outside: how it starts, what it refuses, how it ends."""

import json
import re
import socket

from lan import GROUP, program
from prober import Prober


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
