"""Where the MAC addresses of the records come from, and what they cost."""

import pytest

from camera import Responder, reply
from searching import CountedArping, search

SEARCHER = "10.1.0.1"
CAMERA = "10.1.0.2"
ARPING = f"-c 1 -w 1 {CAMERA}"


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


def search_counted(network, hosts, cameras=(CAMERA,), seconds=1, **options):
    arping = CountedArping(network)
    with Responder(hosts[1], "eth0", cameras, lambda probe: [reply(probe)]):
        result = search(hosts[0], SEARCHER, seconds, prefix=arping.prefix, **options)
    assert sorted(result.addresses) == sorted(cameras)
    return result, arping.runs


def test_camera_that_asked_for_the_searcher_needs_no_arping(network, hosts):
    result, runs = search_counted(network, hosts)
    assert result.cameras[0]["mac"] == hosts[1].mac("eth0")
    assert runs == []


def test_camera_with_a_permanent_entry_needs_no_arping(network, hosts):
    knows_the_searcher(hosts)
    answers_no_arp(hosts)
    hosts[0].ip("neighbour", "replace", CAMERA, "lladdr", "00:0a:ff:01:02:03", "dev", "eth0", "nud",
                "permanent")
    result, runs = search_counted(network, hosts)
    assert result.cameras[0]["mac"] == "00:0A:FF:01:02:03"
    assert runs == []


def test_one_arping_run_is_enough_where_the_kernel_takes_its_answer(network, hosts):
    knows_the_searcher(hosts)
    hosts[0].sysctl("net.ipv4.conf.eth0.arp_accept", 1)
    result, runs = search_counted(network, hosts)
    assert result.cameras[0]["mac"] == hosts[1].mac("eth0")
    assert runs == [ARPING]


def test_answer_to_arping_alone_makes_no_entry_by_default(network, hosts):
    """Linux fills its table from answers that it waits for itself, not from arping's, unless
    arp_accept says so. A camera that had no need to ask for the searcher's address stays N/A."""
    knows_the_searcher(hosts)
    result, runs = search_counted(network, hosts)
    assert result.cameras[0]["mac"] == "N/A"
    assert runs == [ARPING] * 3
    assert result.logged("Failed to update arp table.") == []
    assert result.duration < 6


def test_camera_that_never_answers_arp_costs_three_seconds_and_no_other_camera(network, hosts):
    knows_the_searcher(hosts)
    answers_no_arp(hosts)
    others = [f"10.1.0.{number}" for number in range(3, 23)]
    with Responder(hosts[1], "eth0", others, lambda probe: []) as responder:
        responder.introduce_to(hosts[0])
    result, runs = search_counted(network, hosts, (CAMERA, *others), 4)
    cameras = result.by_address
    assert cameras[CAMERA]["mac"] == "N/A"
    assert {cameras[address]["mac"] for address in others} == {hosts[1].mac("eth0")}
    assert runs == [ARPING] * 3
    assert len(result.logged("Failed to update arp table.")) == 3
    assert 6 <= result.duration < 9


def test_entry_that_failed_runs_no_arping(network, hosts):
    knows_the_searcher(hosts)
    answers_no_arp(hosts)
    with hosts[0].socket() as sender:
        sender.sendto(b"", (CAMERA, 9))
    assert set(hosts[0].neighbours()[CAMERA]["state"]) <= {"INCOMPLETE", "FAILED"}
    result, runs = search_counted(network, hosts)
    assert result.cameras[0]["mac"] == "N/A"
    assert runs == []
    assert result.duration < 5


def test_program_that_refuses_to_run_arping_lists_the_camera_without_it(network, hosts):
    knows_the_searcher(hosts)
    result, runs = search_counted(network, hosts, starts_no_program="true")
    assert result.cameras[0]["mac"] == "N/A"
    assert result.logged("Failed to update arp table.")
    assert runs == []
