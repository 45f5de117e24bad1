"""Searches with the finder (finddriver.cpp) and what came of them."""

import json

from lan import program


class Finding:
    """What the driver told of one search."""

    def __init__(self, lines):
        self.events = [json.loads(line) for line in lines]
        self.report = self.events[-1]["report"]
        self.devices = self.report["devices"]
        self.problems = [event for event in self.events if event["event"] == "problem"]
        self.processor_seconds = self.events[-1]["processorSeconds"]

    @property
    def by_address(self):
        """The devices by IPv4 address; an address that is listed twice is a failure."""
        devices = {device["ip"]: device for device in self.devices}
        assert len(devices) == len(self.devices), "an address is listed twice"
        return devices

    def of(self, source):
        """The outcomes of a source, by the address that was searched from."""
        return {search["address"]: search["outcome"] for search in self.report["searches"]
                if search["source"] == source}

    def first_seen(self):
        """Seconds from the start to each device's first event, sorted."""
        return sorted(event["seconds"] for event in self.events if event["event"] == "found")


def find(host, *options, seconds=2, timeout=60, prefix=()):
    """One search from a namespace, from start to end. It says nothing about UPnP."""
    done = host.run(*prefix, program("finddriver"), "--seconds", seconds, *options, check=False,
                    timeout=timeout)
    assert done.returncode == 0, (done.returncode, done.stdout[-2000:], done.stderr)
    return Finding(done.stdout.splitlines())
