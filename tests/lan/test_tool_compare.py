"""An earlier result against now, and the command as a watchman."""

import signal
import time

from camera import Responder, reply
from lan import program
from toolrun import check_document, check_line, lanscout

SEARCH = ("--only", "onvif", "--timeout", 4)


class Cameras:
    """A searcher and cameras of which any can be silent or of other hardware. They share one MAC
    address, as cameras behind a repeater do."""

    def __init__(self, network, addresses):
        self.searcher, self.host = network.namespace(), network.namespace()
        network.cable(self.searcher, self.host, "10.1.0.1/24", "10.1.0.200/24")
        self.silent, self.hardware = set(), {}
        self.responder = Responder(self.host, "eth0", addresses, self._answer)

    def _answer(self, probe):
        if probe.camera in self.silent:
            return []
        name = self.hardware.get(probe.camera, "IPC")
        return [reply(probe, scopes=f"onvif://www.onvif.org/hardware/{name}")]


def earlier(network, cameras):
    """A file with the present result."""
    path = network.folder / "earlier.json"
    path.write_text(lanscout(cameras.searcher, "--json", *SEARCH).stdout)
    return path


def test_same_network_is_the_same(network):
    cameras = Cameras(network, ["10.1.0.2", "10.1.0.3"])
    with cameras.responder:
        path = earlier(network, cameras)
        done = lanscout(cameras.searcher, "--compare", path, *SEARCH)
    assert done.stdout == ""
    assert "The same as before" in done.stderr


def test_missing_and_changed_are_told_with_a_status_of_their_own(network):
    cameras = Cameras(network, ["10.1.0.2", "10.1.0.3", "10.1.0.4"])
    with cameras.responder:
        path = earlier(network, cameras)
        cameras.silent, cameras.hardware = {"10.1.0.3"}, {"10.1.0.4": "Other"}
        done = lanscout(cameras.searcher, "--compare", path, *SEARCH, status=4)
        document = check_document(
            lanscout(cameras.searcher, "--json", "--compare", path, *SEARCH, status=4).stdout)
        quiet = lanscout(cameras.searcher, "--quiet", "--compare", path, *SEARCH, status=4)
    lines = {line.split("\t")[0]: line.split("\t") for line in done.stdout.splitlines()}
    assert set(lines) == {"missing", "changed"}
    assert lines["missing"][1] == "10.1.0.3"
    assert lines["changed"][1] == "10.1.0.4"
    assert lines["changed"][4] == "hardware: IPC -> Other"
    assert document["compare"]["same"] is False
    assert [device["ip"] for device in document["compare"]["missing"]] == ["10.1.0.3"]
    assert quiet.stderr == ""


def test_new_is_told(network):
    cameras = Cameras(network, ["10.1.0.2", "10.1.0.3"])
    with cameras.responder:
        cameras.silent = {"10.1.0.2"}
        path = earlier(network, cameras)
        cameras.silent = set()
        done = lanscout(cameras.searcher, "--compare", path, *SEARCH, status=4)
    assert [line.split("\t")[:2] for line in done.stdout.splitlines()] == [["new", "10.1.0.2"]]


def test_without_a_search_there_is_no_comparison(network):
    cameras = Cameras(network, ["10.1.0.2"])
    with cameras.responder:
        path = earlier(network, cameras)
    lanscout(cameras.searcher, "--compare", path, "--interface", "eth9", status=3)


def test_document_of_a_comparison_can_be_compared_again(network):
    cameras = Cameras(network, ["10.1.0.2"])
    with cameras.responder:
        path = earlier(network, cameras)
        text = lanscout(cameras.searcher, "--json", "--compare", path, *SEARCH).stdout
        path.write_text(text)
        lanscout(cameras.searcher, "--compare", path, *SEARCH)


def test_watch_reports_what_comes_goes_and_changes(network):
    cameras = Cameras(network, ["10.1.0.2", "10.1.0.3"])
    cameras.silent = {"10.1.0.3"}
    with cameras.responder:
        watch = cameras.searcher.start(program("lanscout"), "--watch", 1, "--jsonl", "--only",
                                       "onvif", "--timeout", 2)
        assert '"10.1.0.2"' in watch.wait_for('"appeared"', 20)
        cameras.hardware = {"10.1.0.3": "Hand"}
        cameras.silent = set()
        watch.wait_for('"appeared".*"10.1.0.3"', 20)
        cameras.silent = {"10.1.0.2"}
        watch.wait_for('"gone".*"10.1.0.2"', 30)
        cameras.hardware = {"10.1.0.3": "Other"}
        watch.wait_for('"changed".*"10.1.0.3"', 20)
        assert watch.stop(signal.SIGINT) == 0
    events = [check_line(line) for line in watch.lines]
    assert [event["event"] for event in events] == ["appeared", "appeared", "gone", "changed"]
    assert events[2]["lastSeen"] < events[2]["time"]
    assert events[3]["changes"] == [{"field": "hardware", "before": "Hand", "after": "Other"}]


def test_watch_that_never_could_search_says_so_once(network):
    host = network.namespace()
    watch = host.start(program("lanscout"), "--watch", 1, "--interface", "eth9")
    watch.wait_for("no such interface", 10)
    time.sleep(2.5)  # two rounds more
    assert watch.stop(signal.SIGINT) == 3
    assert len(watch.errors) == 1
