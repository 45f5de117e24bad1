"""Runs of the command, and what their results must hold to."""

import json
import socket
from pathlib import Path

import jsonschema

from lan import GROUP, program, wait_until

SCHEMA = json.loads(Path(program("lanscout")).parents[2].joinpath(
    "finder/lanscout.schema.json").read_text())


def simulated(network, *options, **keywords):
    """The namespace of a simulated camera network whose device lets datagrams through: until the
    kernel has seen the carrier, it takes them and drops them."""
    namespace = network.simulator(*options, **keywords).namespace
    sender = namespace.socket()

    def passes():
        sender.sendto(b"", (GROUP, 9))
        statistics = namespace.ip("-s", "link", "show", "dev", "sim0")[0]["stats64"]
        return statistics["tx"]["packets"] > 0

    with sender:
        sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton("10.99.0.1"))
        wait_until(passes, 30, "sim0 lets datagrams through")
    return namespace


def lanscout(host, *options, status=0, timeout=60, prefix=()):
    """Runs the command in a namespace to its end and returns subprocess's record."""
    done = host.run(*prefix, program("lanscout"), *options, check=False, timeout=timeout)
    assert done.returncode == status, (done.returncode, done.stdout, done.stderr)
    return done


def check_document(text):
    """The JSON document, which holds to the schema."""
    document = json.loads(text)
    jsonschema.Draft202012Validator(SCHEMA).validate(document)
    return document


def check_line(text):
    """A line of --jsonl, which holds to the schema."""
    line = json.loads(text)
    schema = {**SCHEMA, "$ref": "#/$defs/line"}
    jsonschema.Draft202012Validator(schema).validate(line)
    return line


def result(host, *options, **keywords):
    """A search's document."""
    return check_document(lanscout(host, "--json", *options, **keywords).stdout)


def by_address(document):
    return {device["ip"]: device for device in document["devices"]}
