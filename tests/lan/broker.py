"""A real MQTT broker for a test, and publishers without a search."""

import json
import os
import shutil
import subprocess
import time


import toolrun
from lan import TOOL_PATH, program, wait_until
from sandbox import not_available

PASSWORD = "secret word"


class Broker:
    """mosquitto in a namespace of its own, 10.250.0.1, with persistence, TLS, a password for each
    user and a list of who may write what: each site its own topics only."""

    ADDRESS = "10.250.0.1"

    def __init__(self, network, users=(), tls=True):
        if shutil.which("mosquitto", path=TOOL_PATH) is None:
            not_available("the program mosquitto is not installed")
        self.network = network
        self.tls = tls
        self.folder = network.folder / "broker"
        self.folder.mkdir()
        self.folder.chmod(0o755)
        network.folder.chmod(0o755)
        self.switch = network.switch()
        self.namespace = network.namespace()
        network.plug(self.namespace, self.switch, f"{self.ADDRESS}/16", "wan0")
        self._hosts = 1
        self.users = [*users, "reader"]
        if tls:
            self._make_certificates()
        self._write_files()
        self.process = None
        self.start()

    @property
    def url(self):
        return f"{'mqtts' if self.tls else 'mqtt'}://{self.ADDRESS}"

    def _make_certificates(self):
        def openssl(*words):
            subprocess.run(["openssl", *words], cwd=self.folder, check=True, capture_output=True,
                           timeout=60)

        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                "-days", "2", "-subj", "/CN=test", "-keyout", "ca.key", "-out", "ca.pem")
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj",
                "/CN=broker", "-keyout", "broker.key", "-out", "broker.csr")
        (self.folder / "ext").write_text(f"subjectAltName=IP:{self.ADDRESS}\n")
        openssl("x509", "-req", "-in", "broker.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
                "-CAcreateserial", "-days", "2", "-extfile", "ext", "-out", "broker.pem")

    def _write_files(self):
        folder = self.folder
        lines = [f"listener {8883 if self.tls else 1883} {self.ADDRESS}", "persistence true",
                 f"persistence_location {folder}/", "user root", "log_type notice", "log_type information",
                 "log_type error"]
        if self.tls:
            lines += [f"cafile {folder}/ca.pem", f"certfile {folder}/broker.pem",
                      f"keyfile {folder}/broker.key", "allow_anonymous false",
                      f"password_file {folder}/passwords", f"acl_file {folder}/acl"]
            (folder / "passwords").write_text(
                "".join(f"{user}:{PASSWORD}\n" for user in self.users))
            subprocess.run(["mosquitto_passwd", "-U", folder / "passwords"], check=True, timeout=60,
                           env=dict(os.environ, PATH=TOOL_PATH))
            (folder / "acl").write_text(
                "pattern write lanscout/%u/#\npattern write homeassistant/#\n"
                "user reader\ntopic read lanscout/#\ntopic read homeassistant/#\n")
            for user in self.users:
                self.credentials(user)
        else:
            lines.append("allow_anonymous true")
        (folder / "mosquitto.conf").write_text("\n".join(lines) + "\n")

    def credentials(self, user, password=PASSWORD):
        path = self.folder / f"{user}.credentials"
        path.write_text(f"{user}\n{password}\n")
        path.chmod(0o600)
        return path

    def start(self):
        self.process = self.namespace.start("mosquitto", "-c", self.folder / "mosquitto.conf")
        self.process.wait_for("running", 20)

    def host(self, host=None):
        """A namespace that reaches the broker: a new one, or this one."""
        host = host or self.network.namespace()
        self._hosts += 1
        self.network.plug(host, self.switch,
                          f"10.250.{self._hosts // 200}.{self._hosts % 200 + 2}/16", "wan0")
        return host

    def options(self, user):
        """What a client of the command needs."""
        if not self.tls:
            return []
        return ["--mqtt-cafile", self.folder / "ca.pem", "--mqtt-credentials",
                self.folder / f"{user}.credentials"]

    def _client(self, name):
        words = [name, "-h", self.ADDRESS, "-p", 8883 if self.tls else 1883]
        return [*words, *(["--cafile", self.folder / "ca.pem", "-u", "reader", "-P", PASSWORD]
                          if self.tls else [])]

    def kept(self, host, pattern="lanscout/#", quiet=1):
        """What the broker keeps, by topic."""
        done = host.run(*self._client("mosquitto_sub"), "-t", pattern, "--retained-only", "-W",
                        quiet, "-F", '%j', check=False, timeout=60)
        kept = {}
        for line in done.stdout.splitlines():
            message = json.loads(line)
            assert message["topic"] not in kept, "doubled"
            kept[message["topic"]] = message["payload"]
        return kept

    def publish(self, host, topic, payload):
        host.run(*self._client("mosquitto_pub"), "-r", "-q", 1, "-t", topic, "-m", payload)


class Publishers:
    """Sites that publish lists that the test gives them."""

    def __init__(self, broker, host, sites, user=None, prefix=(), **environment):
        if broker.tls:
            environment["CAFILE"] = broker.folder / "ca.pem"
            environment["CREDENTIALS"] = broker.folder / f"{user or sites[0]}.credentials"
        self.input = broker.network.folder / f"rounds-{sites[0]}"
        os.mkfifo(self.input)
        words = " ".join(f"{key}='{value}'" for key, value in environment.items())
        command = f"exec env {words} {' '.join(map(str, prefix))} {program('publishdriver')} " \
            f"{broker.url} {' '.join(sites)} < {self.input}"
        self.process = host.start("sh", "-c", command)
        self._writer = open(self.input, "w", encoding="utf-8")
        self._rounds = 0

    def round(self, listed, seconds=60):
        self._writer.write(json.dumps(listed) + "\n")
        self._writer.flush()
        self._rounds += 1
        self.process.wait_for(f"^round {self._rounds}$", seconds)

    def end(self, seconds=30):
        self._writer.close()
        return self.process.wait(seconds)


def camera(number, ip=None, gone=False, name=None):
    """A camera of a list; the number tells it from others, the address may change."""
    mac = f"00:1B:FF:00:{number // 256:02X}:{number % 256:02X}"
    return {"device": {"ip": ip or f"192.168.{number // 250}.{number % 250 + 1}", "mac": mac,
                       "kind": "camera", "protocols": ["onvif"], "port": 80,
                       "name": name or f"Camera {number}"},
            "gone": gone, "lastSeen": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())}


def read_sites(broker, host, *options, status=0):
    """What --sites lists."""
    return toolrun.result(host, "--sites", broker.url, *broker.options("reader"), *options,
                          status=status)


def until_kept(broker, host, check, seconds, what):
    """Waits until what the broker keeps is as it should be."""
    def holds():
        try:
            return check(broker.kept(host))
        except KeyError:
            return False

    wait_until(holds, seconds, what, pause=0.3)


