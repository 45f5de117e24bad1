"""The simulator answers as a strict device does, and says why it does not answer."""

import json
import re
import struct

import pytest

from lan import GROUP
from prober import Prober, probe_text

SSDP = 1900
SEARCH = ("M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\n"
          "MX: 1\r\nST: upnp:rootdevice\r\n\r\n")


def counts_at_the_end(simulator, path):
    simulator.stop()
    return json.loads(path.read_text())["counts"]


def prober(simulator):
    return Prober(simulator.namespace, "sim0", simulator.address)


def test_probe_in_fragments_is_answered(network):
    simulator = network.simulator(cameras=2)
    padded = probe_text() + b"<!--" + b"x" * 4000 + b"-->"
    with prober(simulator) as searcher:
        searcher.ask(text=padded)
        replies = searcher.replies(2)
        fragments = [rest for kind, _, _, rest in searcher.frames()
                     if kind == 0x0800 and struct.unpack_from("!H", rest, 6)[0] & 0x3FFF]
    assert len(replies) == 2
    assert len(fragments) == 4, "the Probe of some 4,500 bytes was to leave in fragments"


@pytest.mark.parametrize("lenient", [False, True])
def test_wrong_probes_are_counted_by_reason_and_a_lenient_simulator_answers(network, lenient):
    stats = network.folder / "stats.json"
    simulator = network.simulator("--stats", stats, *(["--lenient"] if lenient else []), cameras=1)
    good = probe_text().decode()
    wrong = {
        "wrongAction": good.replace("discovery/Probe<", "discovery/Hello<"),
        "wrongTo": good.replace("urn:schemas-xmlsoap-org:ws:2005:04:discovery", "urn:somebody"),
        "soap11": good.replace("http://www.w3.org/2003/05/soap-envelope",
                               "http://schemas.xmlsoap.org/soap/envelope/"),
        "noTo": re.sub("<a:To>.*</a:To>", "", good),
    }
    with prober(simulator) as searcher:
        for text in wrong.values():
            searcher.ask(text=text.encode())
        searcher.ask()  # the good one shows that the others had their chance
        replies = searcher.replies(5 if lenient else 1)
        assert len(replies) == (5 if lenient else 1)
        if not lenient:
            simulator.wait_for("nobody answers a Probe from 10.99.0.1 port .*: wrongAction")
    counts = counts_at_the_end(simulator, stats)
    assert counts["refused"] == ({} if lenient else dict.fromkeys(wrong, 1))


def test_copies_of_a_probe_are_answered_once(network):
    stats = network.folder / "stats.json"
    simulator = network.simulator("--stats", stats, cameras=3)
    copy = probe_text()
    with prober(simulator) as searcher:
        for _ in range(3):
            searcher.ask(text=copy)
        searcher.ask()
        replies = searcher.replies(7, seconds=1.5)
    assert len(replies) == 6
    assert counts_at_the_end(simulator, stats)["refused"] == {"repeated": 2}
    assert "nobody answers" not in simulator.output()


def test_resolve_is_answered_by_the_device_it_names(network):
    devices = network.folder / "devices.json"
    simulator = network.simulator("--devices", devices, cameras=3)
    camera = json.loads(devices.read_text())["devices"][1]
    text = re.sub("<Probe .*/>", '<Resolve xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery">'
                  f"<a:EndpointReference><a:Address>{camera['endpoint']}</a:Address>"
                  "</a:EndpointReference></Resolve>",
                  probe_text().decode().replace("discovery/Probe<", "discovery/Resolve<"))
    with prober(simulator) as searcher:
        searcher.ask(text=text.encode())
        replies = searcher.replies(2, seconds=1)
    assert [address for address, _ in replies] == [camera["ip"]]
    assert "ResolveMatches" in replies[0][1]


def test_search_without_mx_or_host_is_not_answered(network):
    stats = network.folder / "stats.json"
    simulator = network.simulator("--upnp", 2, "--stats", stats, cameras=0)
    with prober(simulator) as searcher:
        searcher.ask(GROUP, SEARCH.replace("MX: 1\r\n", "").encode(), SSDP)
        searcher.ask(GROUP, SEARCH.replace("MX: 1", "MX: soon").encode(), SSDP)
        searcher.ask(GROUP, re.sub("HOST.*\r\n", "", SEARCH).encode(), SSDP)
        searcher.ask(GROUP, SEARCH.encode(), SSDP)
        assert len(searcher.replies(3, seconds=2)) == 2
    refused = counts_at_the_end(simulator, stats)["searchesRefused"]
    assert {reason: refused.get(reason) for reason in ("noWait", "wrongWait", "noHost")} \
        == {"noWait": 1, "wrongWait": 1, "noHost": 1}


def test_two_runs_of_one_seed_are_the_same_and_another_seed_is_not(network):
    def run(seed):
        devices = network.folder / "devices.json"
        simulator = network.simulator("--seed", seed, "--loss", 30, "--devices", devices,
                                      cameras=60)
        answers = []
        with prober(simulator) as searcher:
            for _ in range(2):
                searcher.ask()
                answers.append(sorted((address, re.sub("urn:uuid:[0-9a-f-]*</[A-Za-z:]*RelatesTo",
                                                       "", text))
                                      for address, text in searcher.replies(60, seconds=1.2)))
        simulator.stop()
        return answers, devices.read_text()

    first = run(5)
    assert run(5) == first
    assert 20 < len(first[0][0]) < 40
    assert run(6) != first
