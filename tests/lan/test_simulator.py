"""A run of the simulator, from outside: how it starts, what it refuses, how it ends."""

from lan import program


def test_taken_name_of_a_namespace_is_an_error(network):
    taken = network.namespace()
    simulator = network.start(program("lanscout-sim"), "--netns", taken.name, "--seconds", 5)
    assert simulator.wait(10) == 3
    assert f"the network namespace {taken.name} is there already" in simulator.text(
        simulator.errors)
    assert not simulator.lines  # it never got ready


def test_taken_name_of_a_device_is_an_error(network):
    simulator = network.start(program("lanscout-sim"), "--tap", "lo", "--seconds", 5)
    assert simulator.wait(10) == 3
    assert "cannot make the device lo" in simulator.text(simulator.errors)
    assert not simulator.lines
