"""What ends the command, what does not, and what it tells the service manager."""

import fcntl
import json
import os
import signal
import socket
import subprocess
import threading
import time

import pytest

from camera import Responder, reply
from lan import program, wait_until
from toolrun import check_line, lanscout

SEARCH = ("--only", "onvif", "--ipv4", "--timeout", 2)


def cameras(network, addresses=("10.1.0.2",)):
    searcher, host = network.namespace(), network.namespace()
    network.cable(searcher, host, "10.1.0.1/24", "10.1.0.200/24")
    return searcher, Responder(host, "eth0", addresses, lambda probe: [reply(probe)])


def started(host, *options, **keywords):
    """The command with a standard output of the caller's; its errors can be read."""
    return subprocess.Popen(host.command(program("lanscout"), *options), stdin=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True, **keywords)


def full_pipe():
    """Both ends of a pipe that has room for no line of the command's."""
    reader, writer = os.pipe()
    fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
    os.write(writer, b"x" * 4096)
    return reader, writer


def ended(process, sign, seconds=10):
    process.send_signal(sign)
    try:
        return process.wait(seconds), process.stderr.read()
    finally:
        process.kill()
        process.stderr.close()


def test_nohup_is_heeded(network):
    searcher, responder = cameras(network)
    with responder:
        watch = searcher.start("nohup", program("lanscout"), "--watch", 1, "--jsonl", *SEARCH)
        watch.wait_for("appeared", 20)
        watch.popen.send_signal(signal.SIGHUP)
        time.sleep(1)  # it would have ended at once
        assert watch.running()
        assert watch.stop(signal.SIGTERM) == 0


def test_hangup_ends_a_watch_that_has_no_file_of_options(network):
    watch = network.namespace().start(program("lanscout"), "--watch", 30, "--interface", "eth9")
    watch.wait_for("lanscout: ", 10)
    assert watch.stop(signal.SIGHUP) == 3


@pytest.mark.parametrize("sign", [signal.SIGTERM, signal.SIGINT])
def test_reader_that_has_stopped_does_not_keep_the_command(network, sign):
    searcher, responder = cameras(network)
    reader, writer = full_pipe()
    with responder:
        process = started(searcher, *SEARCH, stdout=writer)
        os.close(writer)
        time.sleep(4)  # the search is over, and the result waits for the reader
        assert process.poll() is None
        status, words = ended(process, sign)
    os.close(reader)
    assert status == 3
    assert "cannot write the result: Operation canceled" in words


def test_fifo_without_a_reader_does_not_keep_the_command(network):
    searcher, responder = cameras(network)
    fifo = network.folder / "page"
    os.mkfifo(fifo)
    with responder:
        process = started(searcher, *SEARCH, "--html", fifo, stdout=subprocess.DEVNULL)
        time.sleep(4)
        assert process.poll() is None
        status, words = ended(process, signal.SIGTERM)
    assert status == 3
    assert "nobody reads it" in words


def test_output_that_does_not_block_is_waited_for(network):
    addresses = [f"10.1.0.{host}" for host in range(2, 42)]
    searcher, responder = cameras(network, addresses)
    reader, writer = os.pipe()
    fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
    os.set_blocking(writer, False)
    with responder:
        process = started(searcher, "--json", *SEARCH, stdout=writer)
        os.close(writer)
        time.sleep(4)  # the pipe is full
        with os.fdopen(reader, "rb") as text:
            document = json.load(text)
        assert process.wait(10) == 0
        process.stderr.close()
    assert len(document["devices"]) == len(addresses)


def test_file_that_may_grow_no_further_is_an_error(network):
    searcher, responder = cameras(network)
    page = network.folder / "page.html"
    with responder:
        done = lanscout(searcher, *SEARCH, "--html", page, status=3,
                        prefix=["sh", "-c", 'ulimit -f 1; exec "$@"', "sh"])
    assert "page.html: File too large" in done.stderr
    assert list(network.folder.glob("*page*")) == []


def test_hangup_reads_the_file_of_options_again(network):
    searcher, responder = cameras(network)
    config = network.folder / "watch.conf"
    config.write_text('interface="eth9"\n')
    with responder:
        watch = searcher.start(program("lanscout"), "--watch", 1, "--jsonl", "--config", config,
                               *SEARCH)
        watch.wait_for("eth9: no such interface", 10)
        config.write_text('interface="eth0"\n')
        watch.popen.send_signal(signal.SIGHUP)
        watch.wait_for("appeared", 20)
        config.write_text("nonsense=1\n")
        watch.popen.send_signal(signal.SIGHUP)
        watch.wait_for("goes on with the options that it had", 20)
        assert watch.stop() == 0


def test_service_manager_is_told(network):
    searcher, responder = cameras(network)
    path = network.folder / "notify"
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as listener, responder:
        listener.bind(str(path))
        listener.settimeout(20)
        watch = searcher.start("env", f"NOTIFY_SOCKET={path}", program("lanscout"), "--watch", 1,
                               "--jsonl", *SEARCH)
        told = [listener.recv(1000).decode()]
        while not told[-1].startswith("STATUS="):
            told.append(listener.recv(1000).decode())
        assert watch.stop() == 0
    assert told[0] == "READY=1"
    assert "WATCHDOG=1" in told
    assert told[-1] == "STATUS=1 device there"


def test_state_makes_a_restart_no_news(network):
    searcher, responder = cameras(network)
    state = network.folder / "state.json"
    with responder:
        first = searcher.start(program("lanscout"), "--watch", 1, "--jsonl", "--state", state,
                               *SEARCH)
        first.wait_for("appeared", 20)
        assert first.stop(signal.SIGTERM) == 0
        state.chmod(0o640)
        second = searcher.start(program("lanscout"), "--watch", 1, "--jsonl", "--state", state,
                                *SEARCH)
        time.sleep(5)  # two searches
        assert second.stop(signal.SIGTERM) == 0
    assert second.lines == []
    assert state.stat().st_mode & 0o777 == 0o640
    third = searcher.start(program("lanscout"), "--watch", 1, "--jsonl", "--state", state, *SEARCH)
    assert check_line(third.wait_for("gone", 20))["event"] == "gone"
    third.stop(signal.SIGTERM)


def test_state_of_something_else_is_left_as_it_is(network):
    state = network.folder / "state.json"
    state.write_text("precious")
    done = lanscout(network.namespace(), "--watch", "--state", state, status=2)
    assert "is not what lanscout --state has written" in done.stderr
    assert state.read_text() == "precious"


def test_camera_with_a_new_address_has_moved(network):
    searcher, host = network.namespace(), network.namespace()
    network.cable(searcher, host, "10.1.0.1/24", "10.1.0.200/24")
    present, lock = ["10.1.0.2"], threading.Lock()

    def answer(probe):
        with lock:
            return [reply(probe).replace(b"urn:uuid:" + probe.camera.encode(), b"urn:uuid:one")
                    ] if probe.camera in present else []

    with Responder(host, "eth0", ["10.1.0.2", "10.1.0.3"], answer):
        watch = searcher.start(program("lanscout"), "--watch", 1, "--jsonl", *SEARCH)
        watch.wait_for('"appeared"', 20)
        with lock:
            present[:] = ["10.1.0.3"]
        event = check_line(watch.wait_for('"moved"', 20))
        wait_until(lambda: len(watch.lines) == 2, 10, "two events")
        assert watch.stop() == 0
    assert {"field": "ip", "before": "10.1.0.2", "after": "10.1.0.3"} in event["changes"]
