"""Searches with the driver (searchdriver.cpp) and what came of them."""

import json
import shutil

from lan import program
from sandbox import own_mounts


class Search:
    """A search that runs. The address is the searcher's own."""

    def __init__(self, host, address, seconds=1, driver="searchdriver", prefix=(), **options):
        self._limit = seconds
        command = [*prefix, program(driver), address, "--seconds", seconds]
        for name, value in options.items():
            command += [f"--{name.replace('_', '-')}", value]
        self.process = host.start(*command)

    def wait_for_event(self, name, seconds=30):
        """Waits until the driver tells of an event."""
        return json.loads(self.process.wait_for(f'"event":"{name}"', seconds))

    def result(self, seconds=60):
        """Waits for the end. `seconds` bounds it beyond the search's own duration."""
        status = self.process.wait(self._limit + seconds)
        assert status == 0, self.process.output()
        return Result([json.loads(line) for line in self.process.lines])


class Result:
    """What the driver told, by kind."""

    def __init__(self, events):
        self.events = events
        self.log = [event["text"] for event in self.of("log")]

    def of(self, kind, **fields):
        return [event for event in self.events if event["event"] == kind
                and all(event.get(name) == value for name, value in fields.items())]

    @property
    def cameras(self):
        """The records of the last search on the first object, in the list's order."""
        last = max(event["search"] for event in self.of("started"))
        return self.of("camera", object=0, search=last)

    @property
    def by_address(self):
        """The same by address; an address that is listed twice is a failure of the search."""
        cameras = {camera["ip"]: camera for camera in self.cameras}
        assert len(cameras) == len(self.cameras), "an address is listed twice"
        return cameras

    @property
    def addresses(self):
        return [camera["ip"] for camera in self.cameras]

    @property
    def duration(self):
        """Seconds from the first start to the last end of a search."""
        return self.of("ended")[-1]["seconds"] - self.of("started")[0]["seconds"]

    def logged(self, text):
        return [line for line in self.log if text in line]


def search(host, address, seconds=1, **options):
    """One search, from start to end."""
    return Search(host, address, seconds, **options).result()


class CountedArping:
    """Has searches run arping through a script that notes each run. The script lies over
    /usr/bin/arping for the search alone. Unless `real`, it sends nothing and succeeds."""

    def __init__(self, network, real=True):
        self._notes = network.folder / "arping-runs"
        self._notes.touch()
        itself = network.folder / "arping-itself"
        shutil.copy("/usr/bin/arping", itself)
        script = network.folder / "arping"
        last = f'exec {itself} "$@"' if real else ""
        script.write_text(f'#!/bin/sh\necho "$*" >> {self._notes}\n{last}\n')
        script.chmod(0o755)
        self.prefix = [*own_mounts(), "sh", "-c",
                       'mount --bind "$0" /usr/bin/arping && exec "$@"', script]

    @property
    def runs(self):
        """The command lines of all runs so far."""
        return self._notes.read_text().splitlines()
