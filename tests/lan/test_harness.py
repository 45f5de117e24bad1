"""The harness itself: what every other test here relies on."""

import os
import signal
import subprocess
import sys
from pathlib import Path

import pytest

import lan
from camera import Responder, reply


def test_two_hosts_on_a_switch_reach_each_other(network):
    switch = network.switch()
    one, other = network.namespace(), network.namespace()
    network.plug(one, switch, "10.1.0.1/24")
    network.plug(other, switch, "10.1.0.2/24")
    with other.capture("eth0", "udp port 3702") as capture:
        receiver = other.socket()
        receiver.bind(("10.1.0.2", 3702))
        receiver.settimeout(5)
        sender = one.socket()
        sender.bind(("10.1.0.1", 3702))
        sender.sendto(b"hello", ("10.1.0.2", 3702))
        assert receiver.recvfrom(100) == (b"hello", ("10.1.0.1", 3702))
        receiver.close()
        sender.close()
    [datagram] = capture.datagrams()
    assert (datagram.source, datagram.payload) == ("10.1.0.1", b"hello")
    assert one.neighbours()["10.1.0.2"]["lladdr"].upper() == other.mac("eth0")


def test_responder_answers_for_every_camera(network):
    one, other = network.namespace(), network.namespace()
    network.cable(one, other, "10.1.0.1/24", "10.1.0.2/24")
    cameras = [f"10.1.0.{number}" for number in range(2, 12)]
    with Responder(other, "eth0", cameras, lambda probe: [reply(probe)]):
        searcher = one.socket()
        searcher.bind(("10.1.0.1", 3702))
        searcher.settimeout(5)
        one.ip("route", "add", "default", "dev", "eth0")
        searcher.sendto(b"<MessageID>uuid:7</MessageID>", (lan.GROUP, lan.PORT))
        received = dict(reversed(searcher.recvfrom(4096)) for _ in cameras)
        searcher.close()
    assert sorted(address for address, _ in received) == sorted(cameras)
    assert all(b"<w:RelatesTo>uuid:7</w:RelatesTo>" in text for text in received.values())


def test_program_that_hangs_is_ended_with_what_it_started(network):
    host = network.namespace()
    with pytest.raises(lan.Timeout):
        host.run("sh", "-c", "echo $$; sleep 1000 & sleep 1000", timeout=0.5)
    network.close()
    assert not (lan.NETNS_FOLDER / host.name).exists()
    assert not _sleepers(host.name)


def _sleepers(name):
    listed = subprocess.run(["ip", "netns", "pids", name], capture_output=True, text=True,
                            check=False)
    return listed.stdout.split()


KILLED_RUN = """
import lan, time
network = lan.Lan().__enter__()
host = network.namespace()
sleeper = host.start("sleep", "1000")
print(host.name, sleeper.popen.pid, flush=True)
time.sleep(1000)
"""


@pytest.mark.parametrize("sign", [signal.SIGKILL, signal.SIGTERM])
def test_what_a_killed_run_leaves_is_removed_by_the_next(network, sign):
    del network  # that there is one shows that namespaces can be made
    run = subprocess.Popen([sys.executable, "-c", KILLED_RUN], stdout=subprocess.PIPE, text=True,
                           cwd=Path(__file__).parent)
    name, sleeper = run.stdout.readline().split()
    assert (lan.NETNS_FOLDER / name).exists()
    os.kill(run.pid, sign)
    run.wait(10)
    run.stdout.close()
    lan.wait_until(lambda: not _alive(sleeper), 5, "the program in the namespace ends")
    lan.sweep()
    assert not (lan.NETNS_FOLDER / name).exists()


def _alive(pid):
    try:
        state = Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0]
    except FileNotFoundError:
        return False
    return state != "Z"
