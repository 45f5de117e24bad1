"""The UPnP search beside searches of others, on devices that no one here wrote."""

import re

import pytest

from upnpdevice import Search, acquaint, host_on, search

SEARCHER = "10.61.0.1"
MEDIA, RENDERER, GATEWAY = "10.61.0.2", "10.61.0.3", "10.61.0.4"


def start_media_server(network, host):
    """minidlna, which has a UPnP stack of its own."""
    folder = network.folder / "media"
    for name in ("files", "db", "log"):
        (folder / name).mkdir(parents=True)
    settings = folder / "minidlna.conf"
    settings.write_text(f"port=8200\nnetwork_interface=eth0\nfriendly_name=Media of a test\n"
                        f"media_dir={folder}/files\ndb_dir={folder}/db\nlog_dir={folder}/log\n"
                        "inotify=no\n")
    host.start("minidlnad", "-d", "-f", settings, "-P", folder / "pid").wait_for(
        "(?i)HTTP listening|Sending ssdp:alive", 20)
    return f"http://{MEDIA}:8200/rootDesc.xml"


def start_renderer(host):
    """gmediarender, on libupnp."""
    process = host.start("gmediarender", "-I", "eth0", "-f", "Renderer of a test", "-p", 49494,
                         "-u", "11111111-2222-4333-8444-555555555555",
                         "--gstout-audiosink=fakesink", "--gstout-videosink=fakesink",
                         "--logfile", "stdout")
    # "Registered IP=10.1.0.3 port=49494" on Debian 12, "Registered IPv4 10.1.0.3:49494" on 13
    port = re.search(r"(?:port=|:)(\d+)$", process.wait_for("Registered IP(=|v4)", 40))[1]
    process.wait_for("Ready for rendering", 20)
    return f"http://{RENDERER}:{port}/description.xml"


def start_gateway(network, host):
    """miniupnpd, an internet gateway device; with it a second network on its other side."""
    network.cable(host, network.namespace(), "203.0.113.7/24", None, "wan0")
    process = host.start("miniupnpd", "-d", "-i", "wan0", "-a", "eth0", "-p", 5000, "-P",
                         network.folder / "gateway.pid", "-z", "Gateway of a test", "-f",
                         "/dev/null")
    process.wait_for("(?i)listening on port 5000", 20)
    return process, f"http://{GATEWAY}:5000/rootDesc.xml"


def gssdp_discover(host):
    """What the GUPnP tools find."""
    done = host.run("gssdp-discover", "-i", "eth0", "-t", "upnp:rootdevice", "--timeout=4")
    return set(re.findall(r"Location: (\S+)", done.stdout))


def upnpc(host):
    """What miniupnpc's client finds: gateways, or else every root device."""
    done = host.run("upnpc", "-m", SEARCHER, "-s", check=False, timeout=40)
    return set(re.findall(r"desc: (\S+)", done.stdout))


@pytest.mark.ctest(timeout=180)
def test_finds_what_other_control_points_find(network):
    switch = network.switch()
    hosts = {address: host_on(network, switch, address)
             for address in (SEARCHER, MEDIA, RENDERER, GATEWAY)}
    acquaint(hosts)
    searcher = hosts[SEARCHER]
    media = start_media_server(network, hosts[MEDIA])
    renderer = start_renderer(hosts[RENDERER])
    gateway_process, gateway = start_gateway(network, hosts[GATEWAY])

    running = Search(searcher, SEARCHER, 5)
    witnessed = gssdp_discover(searcher)
    found = running.result()
    assert witnessed == {media, renderer, gateway}
    assert set(found.devices) == witnessed
    assert {device["friendlyName"] for device in found.devices.values()} == {
        "Media of a test", "Renderer of a test", "Gateway of a test"}
    assert {(device["host"], device["port"]) for device in found.devices.values()} == {
        (MEDIA, 8200), (RENDERER, 49494), (GATEWAY, 5000)}
    assert upnpc(searcher) == {gateway}

    gateway_process.stop()
    assert upnpc(searcher) == {media, renderer}
    assert set(search(searcher, SEARCHER, 4).devices) == {media, renderer}
