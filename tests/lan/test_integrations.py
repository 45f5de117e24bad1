"""The recipes of docs/integrations.md, run as they stand there."""

import csv
import json
import re
import subprocess
from pathlib import Path

import pytest

from broker import Broker, Publishers, camera, until_kept
from lan import program, wait_until
from toolrun import lanscout, simulated

PAGE = (Path(__file__).parents[2] / "docs/integrations.md").read_text(encoding="utf-8")


def recipe(heading, language="sh"):
    """The code below a heading of the page."""
    part = re.split(r"^## ", PAGE, flags=re.MULTILINE)
    text = next(one for one in part if one.startswith(heading + "\n"))
    return re.search(rf"^```{language}\n(.*?)^```", text, re.DOTALL | re.MULTILINE)[1]


@pytest.fixture
def found(network):
    """A folder with a real result, and a camera in it that says hostile things of itself."""
    namespace = simulated(network, "--seed", "3", cameras=5)
    text = lanscout(namespace, "--interface", "sim0", "--json").stdout
    document = json.loads(text)
    assert len(document["devices"]) == 5
    hostile = dict(document["devices"][0], ip="10.99.9.9", mac=None, uuid="x",
                   name='"; rm -rf / #\n- {evil: true}', maker='=1+1,"x"', kind="camera")
    document["devices"].append(hostile)
    folder = network.folder / "recipes"
    folder.mkdir()
    (folder / "cameras.json").write_text(json.dumps(document))
    return folder


def run(folder, text):
    subprocess.run(["bash", "-euo", "pipefail", "-c", text], cwd=folder, check=True, timeout=30)


def test_go2rtc_and_frigate(found):
    run(found, recipe("go2rtc"))
    lines = (found / "go2rtc.yaml").read_text().splitlines()
    assert lines[0] == "streams:" and len(lines) == 7
    names = [re.fullmatch(r'  (camera_[0-9a-z]+): \["onvif://USER:PASSWORD@10\.99\.[0-9.]+:[0-9]+"\]',
                          line)[1] for line in lines[1:]]
    run(found, recipe("Frigate"))
    text = (found / "frigate.yaml").read_text()
    assert re.findall(r"^  (camera_\w+):$", text, re.MULTILINE) == names
    assert "evil" not in text and len(text.splitlines()) == 1 + 5 * 6


def test_netbox(found):
    run(found, recipe("NetBox"))
    with open(found / "netbox.csv", newline="", encoding="utf-8") as file:
        rows = list(csv.DictReader(file))
    assert len(rows) == 6
    assert all(re.fullmatch(r"10\.99\.[0-9.]+/32", row["address"]) for row in rows)
    assert {row["status"] for row in rows} == {"active"}


def test_zabbix(found):
    run(found, recipe("Zabbix"))
    rows = json.loads((found / "zabbix.json").read_text())
    assert len(rows) == 6
    assert all(set(row) == {"{#IP}", "{#MAC}", "{#NAME}", "{#KIND}"} for row in rows)


def test_telegraf(network):
    namespace = simulated(network, "--seed", "3", cameras=3)
    text = recipe("Telegraf").replace("lanscout --watch 60",
                                      f"{program('lanscout')} --watch 2 --timeout 1 -i sim0")
    watch = namespace.start("bash", "-c", text)
    wait_until(lambda: len(watch.lines) >= 3, 30, "three lines")
    for line in watch.lines[:3]:
        assert re.fullmatch(r'lanscout,event=appeared,mac=[0-9A-Fa-f:a-z]+ ip="10\.99\.[0-9.]+",value=1i',
                            line), line


def test_prometheus_file(network):
    namespace = simulated(network, "--seed", "3", cameras=3)
    path = network.folder / "targets.json"
    lanscout(namespace, "--interface", "sim0", "--file-sd", path)
    groups = json.loads(path.read_text())
    assert len(groups) == 3
    for group in groups:
        assert re.fullmatch(r"10\.99\.[0-9.]+:[0-9]+", group["targets"][0])
        assert all(re.fullmatch("__meta_lanscout_[a-z_]+", label) and isinstance(value, str)
                   for label, value in group["labels"].items())
        assert group["labels"]["__meta_lanscout_kind"] == "camera"


def test_bridge_stores_while_the_line_is_down(network):
    centre = Broker(network, tls=False)
    reader, site = centre.host(), centre.host()
    folder = network.folder / "bridge"
    folder.mkdir()
    text = recipe("A bridge at each site", "conf").replace("CENTRE", Broker.ADDRESS)
    (folder / "mosquitto.conf").write_text(text.replace("SITE", "berlin")
                                           + f"user root\npersistence_location {folder}/\n")
    site.start("mosquitto", "-v", "-c", folder / "mosquitto.conf").wait_for("running", 20)

    class Local:
        tls, url, network = False, "mqtt://127.0.0.1", centre.network

    publishers = Publishers(Local, site, ["berlin"])
    publishers.round([camera(1)])
    until_kept(centre, reader, lambda kept: "lanscout/berlin/round" in kept, 30, "the first round")
    site.ip("link", "set", "wan0", "down")
    publishers.round([camera(1, ip="192.168.8.8"), camera(2)])
    site.ip("link", "set", "wan0", "up")
    until_kept(centre, reader, lambda kept: json.loads(kept["lanscout/berlin/round"])["present"] == 2,
               90, "what the bridge has stored")
    kept = centre.kept(reader)
    assert json.loads(kept["lanscout/berlin/device/001bff000001"])["ip"] == "192.168.8.8"
