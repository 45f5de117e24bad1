"""How the LAN tests run: a network for each test, and skips that count as skips."""

import contextlib
import fcntl
import os
import signal
import subprocess
import sys

import pytest

import lan
from sandbox import not_available

SKIPPED = 77  # what ctest's SKIP_RETURN_CODE expects


def pytest_configure(config):
    config.addinivalue_line("markers", "ctest(lock=..., alone=..., timeout=..., cost=...): how ctest "
                                       "runs the test; read by listtests.py")
    # A test run that is told to end still takes its networks away.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended by SIGTERM"))


@pytest.fixture
def network(request):
    """A Lan that goes with the test."""
    marker = request.node.get_closest_marker("ctest")
    try:
        with neighbour_table(alone=marker is not None and marker.kwargs.get("alone", False)), \
                lan.Lan() as made:
            yield made
    except lan.Unavailable as reason:
        not_available(reason)


@contextlib.contextmanager
def neighbour_table(alone):
    """Tests that fill the kernel's neighbour table are alone with it, also among test runs of
    other trees on this machine. Who waits to be alone holds the door, so that the others, who just
    pass through it, cannot keep it out."""
    if os.geteuid() != 0:  # nothing but a skip follows
        yield
        return
    with open("/run/lanscout-lan.door", "w", encoding="ascii") as door, \
            open("/run/lanscout-lan.table", "w", encoding="ascii") as table:
        fcntl.flock(door, fcntl.LOCK_EX)
        fcntl.flock(table, fcntl.LOCK_EX if alone else fcntl.LOCK_SH)
        fcntl.flock(door, fcntl.LOCK_UN)
        yield


@pytest.fixture(scope="session")
def real_time():
    """A command prefix that gives a program priority over all ordinary ones, so that what else
    runs on this machine does not decide a test."""
    prefix = ["chrt", "--fifo", "1"]
    if subprocess.run([*prefix, "true"], capture_output=True, check=False).returncode != 0:
        not_available("this user may not give programs real-time priority")
    return prefix


class _Counter:
    ran = skipped = 0


def pytest_runtest_logreport(report):
    if report.skipped:
        _Counter.skipped += 1
        print(f"\nSKIPPED: {report.longrepr[2]}")
    elif report.when == "call":
        _Counter.ran += 1


def pytest_sessionfinish(session, exitstatus):
    if exitstatus == 0 and _Counter.skipped and not _Counter.ran:
        session.exitstatus = SKIPPED
