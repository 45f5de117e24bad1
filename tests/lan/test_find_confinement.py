"""What the processes that read strangers' bytes have given up, as the kernel tells it."""

from pathlib import Path

from camera import Responder, reply
from lan import program, wait_until

CAMERA = "10.1.0.2"


def status_of(pid):
    """The fields of /proc/PID/status; those of a process that has ended are empty."""
    try:
        lines = Path(f"/proc/{pid}/status").read_text().splitlines()
    except OSError:
        return {}
    return dict(line.split(":\t", 1) for line in lines if ":\t" in line)


def children(pid):
    return Path(f"/proc/{pid}/task/{pid}/children").read_text().split()


def limit_of(pid, name):
    lines = Path(f"/proc/{pid}/limits").read_text().splitlines()
    return next(line[26:].split()[0] for line in lines if line.startswith(name))


def test_every_source_gives_up_its_rights(network):
    searcher, other = network.namespace(), network.namespace()
    network.cable(searcher, other, "10.1.0.1/24", f"{CAMERA}/24")
    with Responder(other, "eth0", [CAMERA], lambda probe: [reply(probe)]):
        process = searcher.start(program("lanscout"), "--json", "--timeout", 6)
        pid = process.popen.pid
        # probes, camerasearch, upnpsearch, frames, neighbours
        wait_until(lambda: len(children(pid)) == 5, 10, "the five sources run")
        wait_until(lambda: all(status_of(child).get("Seccomp") == "2" for child in children(pid)), 10,
                   "all have a filter of system calls")
        sources = children(pid)
        assert len(sources) == 5
        for child in sources:
            assert status_of(child)["NoNewPrivs"] == "1"
            assert limit_of(child, "Max address space") != "unlimited"
            assert limit_of(child, "Max cpu time") != "unlimited"
            assert limit_of(child, "Max file size") == "0"
        assert status_of(pid)["Seccomp"] == "0"  # whoever shows and writes files has all rights
        assert process.wait(20) == 0
    assert CAMERA in process.output()
