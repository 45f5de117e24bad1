"""What the command writes, and its exit status."""

import csv
import json

import jsonschema
import pytest

from camera import Responder, reply
from toolrun import SCHEMA, by_address, check_document, check_line, lanscout, result, simulated

ODD = ("--misbehave", "control-characters=10%", "--misbehave", "no-scopes=10%", "--misbehave",
       "not-xml=10%", "--misbehave", "no-arp=5%")
HEADING = ["ip", "port", "hardware", "mac", "maker", "kind", "protocols", "name", "model", "page",
           "seenVia", "location", "serial", "firmware", "reach", "sharedAddress", "otherIps",
           "ipv6", "uuid", "udn", "macMaker", "claimedMac", "profiles", "xaddrs", "deviceType",
           "firstSeen", "lastSeen", "site"]


def camera_network(network, answer=lambda probe: [reply(probe)]):
    """A searcher at 10.1.0.1 and a camera at 10.1.0.2, not yet answering."""
    searcher, camera = network.namespace(), network.namespace()
    network.cable(searcher, camera, "10.1.0.1/24", "10.1.0.2/24")
    return searcher, Responder(camera, "eth0", ["10.1.0.2"], answer)


def test_schema_is_one_and_refuses_what_it_should():
    jsonschema.Draft202012Validator.check_schema(SCHEMA)
    for wrong in ({}, {"devices": []}, []):
        with pytest.raises(jsonschema.ValidationError):
            check_document(json.dumps(wrong))
    with pytest.raises(jsonschema.ValidationError):
        check_line('{"event": "found"}')


def test_json_document_holds_to_the_schema(network):
    host = simulated(network, *ODD, cameras=60)
    document = result(host, "--timeout", 4, timeout=90)
    assert document["complete"] is True
    assert len(document["devices"]) == 60
    assert {search["protocol"] for search in document["searches"]} == {"onvif", "upnp"}
    kinds = [device["kind"] for device in document["devices"]]
    assert kinds.count("camera") >= 40


def test_jsonl_lines_hold_to_the_schema(network):
    host = simulated(network, cameras=10)
    done = lanscout(host, "--jsonl", "--timeout", 4)
    lines = [check_line(line) for line in done.stdout.splitlines()]
    assert [line["event"] for line in lines].count("found") == 10
    assert lines[-1]["event"] == "end"
    assert lines[-1]["search"]["complete"] is True


def test_csv_is_what_a_spreadsheet_reads(network):
    searcher, camera = camera_network(network, lambda probe: [
        reply(probe, scopes="onvif://www.onvif.org/hardware/=1%2B1,%22x%22")])
    with camera:
        text = lanscout(searcher, "--csv", "--timeout", 4).stdout
    rows = list(csv.reader(text.splitlines(), strict=True))
    assert rows[0] == HEADING
    assert [row[:3] for row in rows[1:]] == [["10.1.0.2", "80", "'=1+1,\"x\""]]


def test_plain_lines_have_their_fields(network):
    host = simulated(network, *ODD, cameras=30)
    text = lanscout(host, "--timeout", 4, timeout=90).stdout
    assert len(text.splitlines()) == 30
    for line in text.splitlines():
        fields = line.split("\t")
        assert len(fields) == len(HEADING)
        assert all(fields)
        assert all(character.isprintable() for field in fields for character in field)


def test_sorted_lines_are_in_order(network):
    host = simulated(network, cameras=30)
    text = lanscout(host, "--plain", "--sort", "hardware", "--timeout", 4).stdout
    names = [line.split("\t")[2] for line in text.splitlines()]
    assert len(names) == 30
    assert names == sorted(names)


def test_camera_that_answers_as_a_video_transmitter_is_one(network):
    searcher, camera = camera_network(network)
    with camera:
        device = by_address(result(searcher, "--timeout", 4))["10.1.0.2"]
    assert device["kind"] == "camera"
    assert device["hardware"] == "Hand"
    assert device["protocols"] == ["onvif"]
    assert device["mac"]
    assert device["seenVia"] == [{"interface": "eth0", "address": "10.1.0.1"}]


def test_printer_is_no_camera(network):
    printer = ('<e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope" '
               'xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery" '
               'xmlns:p="http://schemas.xmlsoap.org/ws/2006/02/devprof" '
               'xmlns:w="http://schemas.microsoft.com/windows/2006/08/wdp/print"><e:Body>'
               '<d:ProbeMatches><d:ProbeMatch><d:Types>p:Device w:PrintDeviceType</d:Types>'
               '</d:ProbeMatch></d:ProbeMatches></e:Body></e:Envelope>')
    searcher, camera = camera_network(network, lambda _: [printer.encode()])
    with camera:
        assert by_address(result(searcher, "--timeout", 4))["10.1.0.2"]["kind"] == "other"


def test_nothing_found_is_status_one(network):
    searcher, _ = camera_network(network)
    done = lanscout(searcher, "--timeout", 1, status=1)
    assert done.stdout == ""
    assert result(searcher, "--timeout", 1, status=1)["devices"] == []


@pytest.mark.parametrize("options", [
    ["--timeout", "0"], ["--timeout", "soon"], ["--sort", "colour"], ["--json", "--csv"],
    ["--address", "camera.local"], ["--only", "both"], ["--watch", "--json"],
    ["--watch", "--compare", "x"], ["--quiet", "--verbose"], ["--nonsense"], ["nonsense"],
    ["--compare", "/nonexistent"], ["--compare", "/dev/null"], ["--html", "/nonexistent/x.html"],
    ["--html", "/"]])
def test_wrong_use_is_status_two(network, options):
    done = lanscout(network.namespace(), *options, status=2)
    assert done.stdout == ""
    assert done.stderr.startswith("lanscout: ")


def test_help_and_version_are_answered(network):
    host = network.namespace()
    assert "Examples:" in lanscout(host, "--help").stdout
    assert lanscout(host, "--version").stdout.startswith("lanscout ")


def test_machine_without_a_usable_interface_is_status_three(network):
    done = lanscout(network.namespace(), status=3)
    assert "no usable interface" in done.stderr


def test_unknown_interface_is_status_three_and_named(network):
    done = lanscout(network.namespace(), "--interface", "eth9", status=3)
    assert done.stderr == "lanscout: eth9: no such interface. This machine has: lo\n"


def test_interface_that_is_down_comes_with_the_command(network):
    searcher, _ = camera_network(network)
    searcher.ip("link", "set", "eth0", "down")
    done = lanscout(searcher, "--interface", "eth0", status=3)
    assert "ip link set dev eth0 up" in done.stderr


def test_address_of_nobody_is_status_three(network):
    done = lanscout(network.namespace(), "--address", "192.0.2.1", status=3)
    assert "no interface of this machine has that address" in done.stderr


def test_port_that_is_taken_costs_no_camera(network):
    searcher, camera = camera_network(network)
    holder = searcher.start("/usr/bin/python3", "-c",
                            "import socket,time;s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM);"
                            "s.bind(('10.1.0.1',3702));print('bound',flush=True);time.sleep(60)")
    holder.wait_for("bound")
    with camera:
        done = lanscout(searcher, "--json", "--only", "onvif", "--timeout", 2)
    document = check_document(done.stdout)
    assert set(by_address(document)) == {"10.1.0.2"}
    assert document["complete"] is True
    assert "python3" in done.stderr


def test_upnp_port_that_is_not_shared_comes_with_the_process(network):
    searcher, _ = camera_network(network)
    holder = searcher.start("/usr/bin/python3", "-c",
                            "import socket,time;s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM);"
                            "s.bind(('10.1.0.1',1900));print('bound',flush=True);time.sleep(60)")
    holder.wait_for("bound")
    done = lanscout(searcher, "--only", "upnp", status=3)
    assert "eth0 (10.1.0.1) upnp: UDP port 1900 is taken by python3" in done.stderr


def test_quiet_says_nothing_but_the_result(network):
    searcher, camera = camera_network(network)
    with camera:
        done = lanscout(searcher, "--quiet", "--table", "--timeout", 4)
    assert done.stderr == ""
    assert len(done.stdout.splitlines()) == 2


def test_verbose_shows_the_librarys_lines_by_level(network):
    searcher, camera = camera_network(network)
    with camera:
        plain = lanscout(searcher, "--timeout", 4).stderr
        some = lanscout(searcher, "-v", "--timeout", 4).stderr
        all_of_them = lanscout(searcher, "-vv", "--timeout", 4).stderr
    assert "Camera found" not in plain + some
    assert "Camera found: IP: [10.1.0.2], port: [80], hardware: [Hand]" in all_of_them


def test_result_that_cannot_be_written_is_no_success(network):
    searcher, camera = camera_network(network)
    with camera:
        done = lanscout(searcher, "--json", "--timeout", 4, status=3,
                        prefix=["sh", "-c", 'exec "$@" > /dev/full', "sh"])
    assert "cannot write the result: No space left on device" in done.stderr
