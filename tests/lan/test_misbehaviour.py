"""Devices that answer badly cost no good camera."""

import json
from urllib.parse import unquote

from searching import search

OWN = "as the device meant it"

# Port and hardware that a search lists for a device that misbehaves. Whoever answers is listed,
# whatever the answer says; what it lacks stays at the presets.
LISTED = {
    "not-xml": (80, ""),
    "cut-off": (80, ""),
    "oversize": (80, ""),
    "zero-byte": (80, ""),
    "no-xaddrs": (80, OWN),
    "no-scopes": (OWN, ""),
    "several-xaddrs": (OWN, OWN),
    "ipv6-xaddrs": (0, OWN),  # what stands behind the first colon is no number
    "https-xaddrs": (0, OWN),  # as is what stands behind the scheme's
    "line-break-xaddrs": (OWN, OWN),
    "two-probematches": (OWN, OWN),
    "soap-fault": (80, ""),
    "entity-bomb": (80, ""),
    "control-characters": (OWN, "\x1b[31m<script>alert(1)</script>"),
    "duplicate": (OWN, OWN),
    "no-arp": (OWN, OWN),
    "quiet-arp": (OWN, OWN),
    "device-only": (OWN, OWN),
    "bad-utf8": (80, ""),
    "latin-1": (OWN, OWN),
    "utf-16": (80, ""),  # the library reads up to the first zero byte
    "wrong-relates-to": (OWN, OWN),
    "nul-tail": (OWN, OWN),
    "empty-xaddrs": (80, OWN),
    "huge-xaddrs": (80, ""),
    "no-match": (80, ""),
    "same-uuid": (OWN, OWN),
}
WITHOUT_MAC = ("no-arp", "quiet-arp")
UNLISTED = ("silent",)


def simulated_search(network, cameras, kinds, share, seconds=1):
    """A search among cameras of which a share misbehaves in each way; the records and the devices
    by address."""
    devices = network.folder / "devices.json"
    options = [part for kind in kinds for part in ("--misbehave", f"{kind}={share}")]
    simulator = network.simulator("--devices", devices, *options, cameras=cameras)
    result = search(simulator.namespace, simulator.address, seconds)
    described = json.loads(devices.read_text())["devices"]
    return result.by_address, {device["ip"]: device for device in described}


def assert_listed(camera, device, port, hardware):
    assert camera["port"] == (device["port"] if port is OWN else port), device
    expected = device["hardware"] if hardware is OWN else hardware
    assert unquote(camera["hardware"]).startswith(expected), device
    assert bool(camera["hardware"]) == bool(expected), device


def test_every_good_camera_is_found_among_all_kinds_of_bad_ones(network):
    kinds = [*LISTED, *UNLISTED]
    found, devices = simulated_search(network, 200, kinds, "1%")
    seen = {kind for device in devices.values() for kind in device["misbehaviours"]}
    assert seen == set(kinds)
    silent = {ip for ip, device in devices.items() if set(UNLISTED) & set(device["misbehaviours"])}
    assert set(found) == set(devices) - silent
    for ip, camera in found.items():
        [kind] = devices[ip]["misbehaviours"] or [None]
        assert_listed(camera, devices[ip], *LISTED.get(kind, (OWN, OWN)))
        assert camera["mac"] == ("N/A" if kind in WITHOUT_MAC else devices[ip]["mac"])


def test_every_good_camera_is_found_beside_one_that_sends_empty_datagrams(network):
    found, devices = simulated_search(network, 50, ["empty-datagram"], "2%")
    assert sum(bool(device["misbehaviours"]) for device in devices.values()) == 1
    assert set(found) == set(devices)
    for ip, camera in found.items():
        assert_listed(camera, devices[ip], OWN, OWN)
