"""Many sites, one broker, one list: the real mosquitto, with TLS, passwords and rights."""

import json
import os
import signal
import socket
import threading
import time
from pathlib import Path

import jsonschema
import pytest

from broker import Broker, Publishers, camera, read_sites, until_kept
from lan import program, wait_until
from toolrun import lanscout


def listed(broker, reader):
    """The devices that --sites lists, none too."""
    done = reader.run(program("lanscout"), "--json", "--sites", broker.url,
                      *broker.options("reader"), check=False, timeout=60)
    return json.loads(done.stdout)["devices"]


def site_names(count):
    return [f"site-{number:03d}" for number in range(count)]


@pytest.mark.ctest(timeout=400, cost=300, lock="large")
def test_late_reader_gets_each_camera_of_twenty_sites(network):
    """All sites have the same private addresses, ids and MAC addresses."""
    names = site_names(20)
    broker = Broker(network, names)
    watches = []
    for name in names:
        site = network.simulator("--seed", "7", cameras=50, seconds=400).namespace
        broker.host(site)
        watches.append(site.start(
            program("lanscout"), "--interface", "sim0", "--only", "onvif", "--timeout", 5,
            "--watch", 20, "--jsonl", "--site", name, "--mqtt", broker.url, *broker.options(name)))
    reader = broker.host()

    wait_until(lambda: len(listed(broker, reader)) == 1000, 240, "1000 devices", pause=3)
    devices = listed(broker, reader)
    assert {device["site"] for device in devices} == set(names)
    assert len({(device["site"], device["ip"]) for device in devices}) == 1000
    assert len({device["ip"] for device in devices}) == 50
    for watch in watches:
        watch.popen.send_signal(signal.SIGINT)
    for watch in watches:
        watch.wait(30)
    report = read_sites(broker, reader)
    assert len(report["devices"]) == 1000
    offline = [problem["what"] for problem in report["problems"] if "offline" in problem["what"]]
    assert len(offline) == 20


def test_killed_site_is_offline(network):
    broker = Broker(network, ["berlin"])
    reader = broker.host()
    site = Publishers(broker, broker.host(), ["berlin"])
    site.round([camera(1)])
    until_kept(broker, reader, lambda kept: kept["lanscout/berlin/status"] == "online", 20, "online")
    site.process.kill()
    until_kept(broker, reader, lambda kept: kept["lanscout/berlin/status"] == "offline", 30,
               "offline within one and a half keep-alives")
    report = read_sites(broker, reader)
    assert [device["ip"] for device in report["devices"]] == ["192.168.0.2"]
    assert any(problem["what"].startswith("site berlin is offline")
               for problem in report["problems"])


def test_site_whose_line_is_cut_is_offline(network):
    broker = Broker(network, ["berlin"])
    reader, host = broker.host(), broker.host()
    site = Publishers(broker, host, ["berlin"])
    site.round([camera(1)])
    until_kept(broker, reader, lambda kept: kept["lanscout/berlin/status"] == "online", 20, "online")
    host.ip("link", "set", "wan0", "down")
    began = time.monotonic()
    until_kept(broker, reader, lambda kept: kept["lanscout/berlin/status"] == "offline", 40,
               "offline")
    assert time.monotonic() - began < 38, "20 seconds, half as many, and mosquitto's look at it"


def test_watch_that_ends_at_once_has_published(network):
    broker = Broker(network, ["berlin"])
    site = Publishers(broker, broker.host(), ["berlin"])
    site.round([camera(1)])
    assert site.end() == 0
    kept = broker.kept(broker.host())
    assert kept["lanscout/berlin/status"] == "offline"
    assert json.loads(kept["lanscout/berlin/round"])["present"] == 1


def test_broker_that_was_killed_has_everything_again(network):
    """Killed before it has written anything to its disk: all that it kept is lost."""
    names = site_names(5)
    broker = Broker(network, names)
    reader = broker.host()
    sites = [Publishers(broker, broker.host(), [name]) for name in names]
    for site in sites:
        site.round([camera(number) for number in range(40)])
    wait_until(lambda: len(listed(broker, reader)) == 200, 30, "200 devices",
               pause=0.5)
    broker.process.kill()
    broker.start()
    wait_until(lambda: len(listed(broker, reader)) == 200, 60,
               "200 devices again", pause=0.5)
    assert len([topic for topic in broker.kept(reader) if "/device/" in topic]) == 200


def test_truth_after_an_outage(network):
    """Cameras move, leave, come and are forgotten while the broker is away."""
    broker = Broker(network, ["berlin"])
    reader = broker.host()
    site = Publishers(broker, broker.host(), ["berlin"])
    before = [camera(number) for number in range(30)]
    site.round(before)
    until_kept(broker, reader, lambda kept: len(kept) == 33, 20, "30 devices")
    topics = set(broker.kept(reader))
    broker.process.stop(signal.SIGTERM)
    began = time.monotonic()
    for step in range(20):
        site.round([camera(0, ip=f"192.168.9.{step}"), camera(1, gone=True),
                    *[camera(number) for number in range(3, 30)], camera(100 + step)], seconds=2)
    assert time.monotonic() - began < 10, "a broker that is away costs no round anything"
    broker.start()
    until_kept(broker, reader,
               lambda kept: json.loads(kept["lanscout/berlin/round"])["present"] == 29
               and kept["lanscout/berlin/status"] == "online", 60, "the last round")
    kept = broker.kept(reader)
    first = "lanscout/berlin/device/001bff000000"
    assert first in topics and json.loads(kept[first])["ip"] == "192.168.9.19"
    assert json.loads(kept["lanscout/berlin/device/001bff000001"])["state"] == "gone"
    assert "lanscout/berlin/device/001bff000002" not in kept, "forgotten"
    assert {device["mac"] for device in listed(broker, reader)} == {
        camera(number)["device"]["mac"] for number in [0, *range(3, 30), 119]}


@pytest.mark.ctest(timeout=240, cost=100, lock="large")
def test_three_hundred_sites_are_online_in_thirty_seconds(network):
    names = site_names(300)
    broker = Broker(network, tls=False)
    reader, host = broker.host(), broker.host()
    sites = Publishers(broker, host, names)
    began = time.monotonic()
    sites.round([camera(number) for number in range(3)])

    def online(kept):
        return sum(kept[f"lanscout/{name}/status"] == "online" for name in names) == 300

    until_kept(broker, reader, online, 30, "300 sites online")
    print(f"300 sites online after {time.monotonic() - began:.1f} s")
    report = read_sites(broker, reader)
    assert len(report["devices"]) == 900


def check_told_once(network, broker, credentials, expected, seconds=12):
    """A watch that cannot publish says why, once, and searches on."""
    host = broker.host(network.simulator(cameras=2).namespace)
    watch = host.start(program("lanscout"), "--interface", "sim0", "--only", "onvif", "--timeout",
                       1, "--watch", 2, "--jsonl", "--site", "berlin", *credentials)
    watch.wait_for(expected, 20)
    time.sleep(seconds)  # many attempts
    assert watch.running()
    told = [line for line in [*watch.lines, *watch.errors] if "mqtt" in line]
    assert len(told) == 1, told
    assert any('"appeared"' in line for line in watch.lines)
    watch.stop()


def test_wrong_password_is_told_once(network):
    broker = Broker(network, ["berlin"])
    check_told_once(network, broker, [
        "--mqtt", broker.url, "--mqtt-cafile", broker.folder / "ca.pem", "--mqtt-credentials",
        broker.credentials("berlin", "wrong")], "refuses the user name or the password")


def test_broker_that_another_authority_vouches_for_is_not_trusted(network):
    broker = Broker(network, ["berlin"])
    other = network.folder / "other"
    other.mkdir()
    network.start("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                  "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj", "/CN=other",
                  "-keyout", other / "ca.key", "-out", other / "ca.pem").wait(20)
    check_told_once(network, broker, [
        "--mqtt", broker.url, "--mqtt-cafile", other / "ca.pem", "--mqtt-credentials",
        broker.credentials("berlin")], "no TLS connection to .*certificate verify failed")


def test_broker_that_answers_garbage_is_told_once(network):
    broker = Broker(network, tls=False)
    with broker.namespace.socket(kind=socket.SOCK_STREAM) as listener:
        listener.bind((Broker.ADDRESS, 1999))
        listener.listen(16)

        def answer():
            while True:
                try:
                    client, _ = listener.accept()
                except OSError:
                    return
                with client:
                    client.recv(100)
                    client.sendall(b"HTTP/1.1 400 Bad Request\r\n\r\n" + os.urandom(5000))

        threading.Thread(target=answer, daemon=True).start()
        check_told_once(network, broker, ["--mqtt", f"mqtt://{Broker.ADDRESS}:1999"],
                        "not MQTT|closed the connection|refuses")


def test_password_stands_in_no_process_title(network):
    broker = Broker(network, ["berlin"])
    host = broker.host(network.simulator(cameras=1).namespace)
    watch = host.start(program("lanscout"), "--interface", "sim0", "--timeout", 1, "--watch", 5,
                       "--jsonl", "--site", "berlin", "--mqtt", broker.url,
                       *broker.options("berlin"))
    until_kept(broker, broker.host(), lambda kept: kept["lanscout/berlin/status"] == "online", 20,
               "online")
    titles = []
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            if os.getsid(int(folder.name)) == watch.popen.pid:
                titles.append((folder / "cmdline").read_bytes()
                              + (folder / "environ").read_bytes())
        except OSError:
            pass
    assert len(titles) >= 2, "the watch and the process that publishes"
    assert not any(b"secret word" in title for title in titles)
    watch.stop()


def test_credentials_that_others_may_read_are_wrong_use(network):
    broker = Broker(network, ["berlin"])
    path = broker.credentials("berlin")
    path.chmod(0o644)
    done = lanscout(broker.host(), "--sites", broker.url, "--mqtt-credentials", path, status=2)
    assert "chmod 600" in done.stderr


def test_site_that_lies_harms_only_itself(network):
    broker = Broker(network, tls=False)
    reader = broker.host()
    honest = Publishers(broker, broker.host(), ["berlin"])
    honest.round([camera(1)])
    until_kept(broker, reader, lambda kept: "lanscout/berlin/round" in kept, 20, "a round")
    payload = dict(camera(2)["device"], state="present", site="berlin",
                   name="\x1b[31m<script>alert(1)</script>", page="javascript:alert(1)")
    broker.publish(reader, "lanscout/evil/device/1", json.dumps(payload))
    broker.publish(reader, "lanscout/evil/device/2", "[" * 50000)
    broker.publish(reader, "lanscout/evil/device/3", '{"ip": "1.2.3.4"}')
    broker.publish(reader, "lanscout/evil/round", '{"finished": 7, "present": 1e99}')
    broker.publish(reader, "lanscout/evil/status", "x" * 100000)
    broker.publish(reader, "lanscout/e\u202evil/status", "online")
    report = read_sites(broker, reader)
    assert {(device["site"], device["mac"]) for device in report["devices"]} == {
        ("berlin", camera(1)["device"]["mac"]), ("evil", camera(2)["device"]["mac"])}
    assert any("site evil has published 3 messages that cannot be read" in problem["what"]
               for problem in report["problems"])
    table = lanscout(reader, "--sites", broker.url, "--table").stdout
    assert "\x1b" not in table and "SITE" in table


def test_user_may_write_its_own_topics_only(network):
    """The rights are the broker's; the publisher of another site's topics gets nowhere."""
    broker = Broker(network, ["berlin", "paris"])
    reader = broker.host()
    thief = Publishers(broker, broker.host(), ["berlin"], user="paris")
    thief.round([camera(1)])
    honest = Publishers(broker, broker.host(), ["paris"])
    honest.round([camera(2)])
    until_kept(broker, reader, lambda kept: "lanscout/paris/round" in kept, 20, "paris")
    assert not any(topic.startswith("lanscout/berlin/") for topic in broker.kept(reader))


# What https://www.home-assistant.io/integrations/binary_sensor.mqtt/ says of these members.
TEXT = {"type": "string", "minLength": 1}
HOME_ASSISTANT = {
    "type": "object",
    "properties": {
        "name": {"type": ["string", "null"]}, "unique_id": TEXT,
        "device_class": {"const": "connectivity"}, "state_topic": TEXT, "value_template": TEXT,
        "availability_topic": TEXT, "payload_available": TEXT, "payload_not_available": TEXT,
        "device": {
            "type": "object",
            "properties": {
                "identifiers": {"type": "array", "items": TEXT, "minItems": 1},
                "connections": {"type": "array", "items": {
                    "type": "array", "prefixItems": [{"const": "mac"}, TEXT], "minItems": 2,
                    "maxItems": 2}},
                "name": TEXT, "manufacturer": TEXT, "model": TEXT, "serial_number": TEXT,
                "sw_version": TEXT,
                "configuration_url": {"type": "string", "pattern": "^https?://"}},
            "required": ["identifiers", "name"], "additionalProperties": False}},
    "required": ["unique_id", "state_topic", "device", "availability_topic"],
    "additionalProperties": False}


def test_home_assistant_is_told_what_it_understands(network):
    broker = Broker(network, ["berlin"])
    reader = broker.host()
    site = Publishers(broker, broker.host(), ["berlin"], HOMEASSISTANT="1")
    site.round([camera(1), camera(2)])
    topic = "homeassistant/binary_sensor/lanscout_001bff000001/config"
    wait_until(lambda: len(broker.kept(reader, "homeassistant/#")) == 2, 20, "two sensors",
               pause=0.3)
    for text in broker.kept(reader, "homeassistant/#").values():
        config = json.loads(text)
        jsonschema.Draft202012Validator(HOME_ASSISTANT).validate(config)
        assert config["state_topic"] in broker.kept(reader)
    site.round([camera(2)])
    wait_until(lambda: topic not in broker.kept(reader, "homeassistant/#"), 20, "one is forgotten",
               pause=0.3)


def test_watch_of_sites_tells_what_comes_and_moves(network):
    broker = Broker(network, tls=False)
    reader = broker.host()
    site = Publishers(broker, broker.host(), ["berlin"])
    site.round([camera(1)])
    until_kept(broker, reader, lambda kept: "lanscout/berlin/round" in kept, 20, "a round")
    watch = reader.start(program("lanscout"), "--sites", broker.url, "--watch", 1, "--jsonl")
    assert json.loads(watch.wait_for('"appeared"', 20))["device"]["site"] == "berlin"
    site.round([camera(1, ip="192.168.7.7"), camera(2)])
    assert json.loads(watch.wait_for('"moved"', 20))["device"]["ip"] == "192.168.7.7"
    watch.stop()


def test_publisher_has_no_errors_under_valgrind(network):
    broker = Broker(network, ["berlin"])
    reader = broker.host()
    log = network.folder / "valgrind"
    site = Publishers(broker, broker.host(), ["berlin"], prefix=[
        "valgrind", "--quiet", "--error-exitcode=9", "--leak-check=no", f"--log-file={log}.%p"])
    site.round([camera(number) for number in range(5)])
    until_kept(broker, reader, lambda kept: "lanscout/berlin/round" in kept, 60, "a round")
    broker.process.kill()
    site.round([camera(number) for number in range(3)])
    broker.start()
    until_kept(broker, reader, lambda kept: len(kept) == 6, 60, "three devices")
    assert site.end(60) == 0
    logs = list(network.folder.glob("valgrind.*"))
    assert len(logs) == 2 and all(one.read_text() == "" for one in logs), \
        [one.read_text() for one in logs]
