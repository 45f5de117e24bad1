"""The source of whole replies: what the finder's own Probes bring home."""

import pytest

from finding import find
from lan import PORT
from toolrun import simulated


def test_whole_replies(network):
    """What a camera says of itself is there, not only what the library's record holds."""
    host = simulated(network, cameras=20)
    found = find(host)
    assert len(found.by_address) == 20
    for device in found.devices:
        assert device["kind"] == "camera" and device["hardware"] and device["name"], device
        assert "Streaming" in device["profiles"], device
        assert device["uuid"] and device["types"] and device["scopes"] and device["xaddrs"], device
        assert device["reach"] == "local", device
        assert device["page"].startswith("http://" + device["ip"]), device
    assert set(found.of("probes").values()) == {"done"}
