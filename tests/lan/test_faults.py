"""Searches on real sockets while what they need is missing, refused or taken away."""

import pytest

from camera import Responder, reply
from sandbox import own_mounts
from searching import Search, search

SEARCHER = "10.1.0.1"
CAMERA = "10.1.0.2"


@pytest.fixture
def hosts(network):
    searcher, cameras = network.namespace(), network.namespace()
    network.cable(searcher, cameras, f"{SEARCHER}/24", f"{CAMERA}/24")
    return searcher, cameras


def nothing_is_left(result):
    before, after = result.of("left")
    assert (before["threads"], before["children"]) == (1, False)
    assert (after["threads"], after["children"]) == (1, False)
    assert after["descriptors"] == before["descriptors"]


def found_by_arping_alone(hosts):
    """The searcher learns the camera's MAC from what arping asks for, and from nothing else."""
    searcher, cameras = hosts
    searcher.sysctl("net.ipv4.conf.eth0.arp_accept", 1)
    cameras.ip("neighbour", "replace", SEARCHER, "lladdr", searcher.mac("eth0"), "dev", "eth0",
               "nud", "permanent")


def instead_of_arping(network, script, mode=0o755):
    """A prefix for searches that find this script at /usr/bin/arping."""
    path = network.folder / "arping"
    path.write_text(script)
    path.chmod(mode)
    return [*own_mounts(), "sh", "-c", 'mount --bind "$0" /usr/bin/arping && exec "$@"', path]


def without_arping(network):
    """A prefix for searches that find nothing at /usr/bin/arping: a folder of links to all the
    other programs lies over /usr/bin."""
    script = ('mkdir "$0/all" "$0/some" && mount --bind /usr/bin "$0/all" && '
              'ln -s "$0"/all/* "$0/some" && rm "$0/some/arping" && '
              'mount --bind "$0/some" /usr/bin && exec "$@"')
    return [*own_mounts(), "sh", "-c", script, network.folder]


FAULTS = {
    "missing": without_arping,
    "not permitted": lambda network: instead_of_arping(network, "#!/bin/sh\n", 0o644),
    "not a program": lambda network: instead_of_arping(network, "\x7fELF"),
    "failing": lambda network: instead_of_arping(network, "#!/bin/sh\nexit 1\n"),
    "killed": lambda network: instead_of_arping(network, "#!/bin/sh\nkill -SEGV $$\n"),
}


@pytest.mark.parametrize("fault", FAULTS.values(), ids=FAULTS)
def test_arping_that_does_not_work_costs_the_mac_alone(network, hosts, fault):
    found_by_arping_alone(hosts)
    with Responder(hosts[1], "eth0", [CAMERA], lambda probe: [reply(probe)]):
        result = search(hosts[0], SEARCHER, 0, prefix=fault(network))
    assert [(camera["ip"], camera["mac"]) for camera in result.cameras] == [(CAMERA, "N/A")]
    assert result.cameras[0]["hardware"] == "Hand"
    assert result.logged("Failed to update arp table.")
    nothing_is_left(result)


@pytest.mark.ctest(cost=20)
def test_arping_that_hangs_is_ended_and_costs_the_mac_alone(network, hosts):
    found_by_arping_alone(hosts)
    prefix = instead_of_arping(network, "#!/bin/sh\nexec sleep 1000\n")
    with Responder(hosts[1], "eth0", [CAMERA], lambda probe: [reply(probe)]):
        result = search(hosts[0], SEARCHER, 0, prefix=prefix)
    assert [(camera["ip"], camera["mac"]) for camera in result.cameras] == [(CAMERA, "N/A")]
    # A query that fails for another reason than a missing entry is not followed by a run.
    runs = len(result.logged("Failed to update arp table."))
    assert 1 <= runs <= 3
    assert 3 + 5 * runs - 1 <= result.duration < 3 + 5 * runs + 5
    nothing_is_left(result)


def test_interface_that_is_renumbered_leaves_what_was_found(hosts):
    searcher, cameras = hosts
    with Responder(cameras, "eth0", [CAMERA], lambda probe: [reply(probe)]):
        running = Search(searcher, SEARCHER, 30)
        running.wait_for_event("count")
        searcher.ip("address", "delete", f"{SEARCHER}/24", "dev", "eth0")
        searcher.ip("address", "add", "10.2.0.1/24", "dev", "eth0")
        result = running.result()
    assert result.addresses == [CAMERA]
    # The kernel sends nothing from an address that it no longer has.
    assert len(result.logged("Send probe message failed. [")) == 1
    assert result.duration < 15
    nothing_is_left(result)
