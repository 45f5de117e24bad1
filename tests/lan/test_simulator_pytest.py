"""The pytest fixture that the simulator brings for tests of others."""

import sys
from pathlib import Path

import pytest

from lan import program
from prober import probe_text

sys.path.insert(0, str(Path(__file__).parents[2] / "tools/lanscout-sim/pytest"))
from pytest_lanscout_sim import CameraNetwork, ControlError  # noqa: E402

ASK = """
import os, socket, sys
with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asker:
    asker.bind((os.environ["LANSCOUT_SIM_ADDRESS"], 0))
    asker.settimeout(2)
    asker.sendto(sys.argv[1].encode(), ("239.255.255.250", 3702))
    try:
        while True:
            print(asker.recvfrom(65536)[1][0])
    except socket.timeout:
        pass
"""


# Alone: simulators of other tests on the loopback would answer too.
@pytest.mark.ctest(alone=True)
@pytest.mark.parametrize("mode", ["namespace", "loopback"])
def test_network_of_the_fixture_is_searched_and_changed(network, mode):
    with CameraNetwork(cameras=5, misbehave={"silent": "20%"}, mode=mode,
                       program=program("lanscout-sim")) as cameras:
        assert cameras.mode == mode
        assert len(cameras.devices) == 5 and len(cameras.good()) == 4
        found = cameras.run("/usr/bin/python3", "-c", ASK, probe_text().decode())
        assert set(found.stdout.split()) == {camera["ip"] for camera in cameras.good()}
        [probe] = cameras.probes()
        assert (probe["answers"], probe["refused"]) == (4, None)

        added = cameras.add(name="New")
        cameras.change(added["uuid"], muted=True)
        cameras.leave(added["uuid"])
        with pytest.raises(ControlError, match="device: port: 0 is not 1 to 65535"):
            cameras.change(cameras.devices[0]["uuid"], port=0)


def test_simulator_that_cannot_start_says_why(network):
    with pytest.raises(RuntimeError, match="cannot open the scenario /nowhere.json"):
        CameraNetwork(scenario="/nowhere.json", program=program("lanscout-sim"))
