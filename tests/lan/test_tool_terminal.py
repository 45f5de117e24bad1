"""The command in a terminal: what is drawn while it searches, and what stays."""

import contextlib
import fcntl
import os
import pty
import re
import select
import signal
import struct
import termios
import time
import unicodedata
from pathlib import Path

from camera import Responder, reply
from lan import program, wait_until

CONTROLS = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]|[\r\n]")


class Terminal:
    """The command on a pseudo terminal of that size."""

    def __init__(self, network, host, *options, columns=80, rows=24, **environment):
        self._master, slave = pty.openpty()
        self.resize(columns, rows)
        command = host.command("env", "TERM=xterm", "LC_ALL=C.UTF-8",
                               *[f"{name}={value}" for name, value in environment.items()],
                               program("lanscout"), *options)
        # The first of the two runs the command with the terminal as all its descriptors.
        self._process = network.start("sh", "-c", 'exec "$@" <"$0" >"$0" 2>"$0"',
                                      os.ttyname(slave), *command)
        self._slave = slave
        self.text = ""

    def resize(self, columns, rows):
        fcntl.ioctl(self._master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def read(self, seconds):
        deadline = time.monotonic() + seconds
        while (left := deadline - time.monotonic()) > 0:
            ready, _, _ = select.select([self._master], [], [], min(left, 0.2))
            if ready:
                with contextlib.suppress(OSError):
                    self.text += os.read(self._master, 65536).decode("utf-8", "replace")
            if not ready and not self._process.running():
                return

    def read_until(self, text, start=0):
        deadline = time.monotonic() + 20
        while text not in self.text[start:]:
            assert time.monotonic() < deadline, self.text
            self.read(0.2)

    def stop(self):
        """Waits until the command is stopped, as by Ctrl-Z."""
        pid = self._process.popen.pid
        self._process.popen.send_signal(signal.SIGSTOP)
        wait_until(lambda: Path(f"/proc/{pid}/stat").read_text().split()[2] == "T", 10, "stopped")
        self.read(0.3)

    def resume(self):
        self._process.popen.send_signal(signal.SIGCONT)

    def write(self, text):
        """What another program writes, such as the shell."""
        os.write(self._slave, text.encode())
        self.read(0.3)

    def end(self, seconds=40, sign=None):
        """Reads to the end and returns the exit status."""
        if sign is not None:
            self._process.popen.send_signal(sign)
        self.read(seconds)
        status = self._process.wait(10)
        os.close(self._master)
        os.close(self._slave)
        return status

    def final_screen(self, columns=80):
        """The lines that a terminal shows at the end, scrolled-out ones included."""
        return screen_of(self.text, columns)


# Where the tests run in a container, the command says so in more words than a line has.
CONTAINER = re.compile(r"lanscout: this container [^\n]*\n")


def screen_of(text, columns):
    """The lines that the few sequences which the command may use leave on a screen without end."""
    text = CONTAINER.sub("", text)
    cells, row, column, at = [{}], 0, 0, 0
    while at < len(text):
        sequence = re.compile(r"\x1b\[([0-9;]*)([A-Za-z])").match(text, at)
        if sequence:
            count = int(sequence[1]) if sequence[1].isdigit() else 1
            if sequence[2] == "A":
                assert count <= row, "the cursor would leave the screen"
                row -= count
            elif sequence[2] == "K":
                first = 0 if sequence[1] == "2" else column
                cells[row] = {place: sign for place, sign in cells[row].items() if place < first}
            else:
                assert sequence[2] == "m", f"unexpected sequence {sequence[0]!r}"
            at = sequence.end()
            continue
        character = text[at]
        at += 1
        if character == "\r":
            column = 0
        elif character == "\n":
            row, column = row + 1, 0
            cells += [{}] * (row + 1 - len(cells))
        else:
            assert character.isprintable(), f"unexpected character {character!r}"
            cells[row] = {**cells[row], column: character}
            column += 1
            if unicodedata.east_asian_width(character) in "WF":
                cells[row][column] = ""  # its second half
                column += 1
            assert column <= columns, f"beyond the terminal's last column: {character!r}"
    return ["".join(line.get(place, " ") for place in range(max(line, default=-1) + 1)).rstrip()
            for line in cells]


def cameras(network, addresses=("10.1.0.2", "10.1.0.3"),
            scopes="onvif://www.onvif.org/hardware/Hand"):
    searcher, host = network.namespace(), network.namespace()
    network.cable(searcher, host, "10.1.0.1/24", "10.1.0.200/24")
    return searcher, Responder(host, "eth0", addresses, lambda probe: [reply(probe, scopes=scopes)])


def test_live_table_makes_room_for_the_final_one(network):
    searcher, responder = cameras(network)
    with responder:
        terminal = Terminal(network, searcher, "--timeout", "4")
        assert terminal.end() == 0
    assert re.search(r"\[#*-*\] \d+ s left, 2 devices", terminal.text)
    lines = [line for line in terminal.final_screen() if line]
    assert lines[0].startswith("IP ")
    assert [line.split()[0] for line in lines[1:3]] == ["10.1.0.2", "10.1.0.3"]
    assert lines[3].startswith("2 devices (2 cameras) on eth0 (10.1.0.1) in ")
    assert len(lines) == 4


def test_narrow_terminal_is_never_overrun(network):
    searcher, responder = cameras(
        network, scopes="onvif://www.onvif.org/hardware/" + "%E5%85%A5%E5%8F%A3" * 8)
    with responder:
        narrow = Terminal(network, searcher, "--timeout", "4", columns=40, rows=10)
        assert narrow.end() == 0
    before_summary = narrow.text[:narrow.text.rindex("2 devices (2")]
    assert "10.1.0.3" in "\n".join(screen_of(before_summary, 40))


def test_resized_terminal_is_drawn_anew(network):
    searcher, responder = cameras(network)
    with responder:
        terminal = Terminal(network, searcher, "--timeout", "8", columns=100)
        terminal.read(6)
        terminal.resize(50, 20)
        before = len(terminal.text)
        terminal.read(1)
        after = terminal.text[before:]
        assert terminal.end() == 0
    drawn = [line for line in CONTROLS.sub("\n", after).splitlines() if line]
    assert any("devices" in line for line in drawn)
    assert all(len(line) < 50 for line in drawn)


def test_escape_sequences_of_a_device_stay_text(network):
    searcher, responder = cameras(
        network, scopes="onvif://www.onvif.org/hardware/%1B%5B2J%1B%5D0;x%07%C2%9B31m%E2%80%AE")
    with responder:
        terminal = Terminal(network, searcher, "--timeout", "4", columns=120)
        assert terminal.end() == 0
    assert r"\x1b[2J\x1b]0;x\x07\u{9b}31m" in terminal.text
    assert terminal.final_screen(120)


def test_colour_is_for_terminals_that_want_it(network):
    searcher, responder = cameras(network)
    with responder:
        coloured = Terminal(network, searcher, "--timeout", "4")
        assert coloured.end() == 0
        plain = Terminal(network, searcher, "--timeout", "4", NO_COLOR="1")
        assert plain.end() == 0
    assert "\x1b[32mcamera" in coloured.text
    assert "\x1b[32m" not in plain.text


def test_no_progress_draws_nothing(network):
    searcher, responder = cameras(network)
    with responder:
        terminal = Terminal(network, searcher, "--timeout", "4", "--no-progress", "--color", "never")
        assert terminal.end() == 0
    assert "\x1b" not in terminal.text
    assert "left" not in terminal.text


def test_interrupt_leaves_a_clean_screen(network):
    searcher, responder = cameras(network)
    with responder:
        terminal = Terminal(network, searcher, "--timeout", "60")
        terminal.read(5)
        assert terminal.end(sign=signal.SIGINT) == 0
    lines = [line for line in terminal.final_screen() if line]
    assert len(lines) == 4
    assert lines[3].endswith(", interrupted")


def test_problem_is_said_above_the_live_table(network):
    searcher, responder = cameras(network)
    with responder:
        terminal = Terminal(network, searcher, "--timeout", "4", "--interface", "eth0",
                            "--interface", "eth9", columns=200)
        assert terminal.end() == 0
    lines = [line for line in terminal.final_screen(200) if line]
    assert lines[0].startswith("lanscout: eth9: no such interface")
    assert lines[1].startswith("IP ")


def test_watch_does_not_draw_over_the_shells_text(network):
    searcher, responder = cameras(network)
    with responder:
        terminal = Terminal(network, searcher, "--watch", "30", "--timeout", "2", columns=200)
        terminal.read_until("next search in")
        terminal.stop()
        terminal.write("[1]+ Stopped\n$ fg\n")
        terminal.resume()
        before = len(terminal.text)
        terminal.read_until("next search in", before)
        assert terminal.end(sign=signal.SIGINT) == 0
    screen = terminal.final_screen(200)
    assert "[1]+ Stopped" in screen and "$ fg" in screen


def test_every_text_is_ascii_where_the_locale_is_not_utf8(network):
    searcher, responder = cameras(network, scopes="onvif://www.onvif.org/hardware/T%C3%BCr")
    with responder:
        for options in (["--table"], ["--plain"], ["--csv"]):
            terminal = Terminal(network, searcher, *options, "--timeout", "2", "--interface",
                                "eth0", "--interface", "\u00e9th9", columns=200, LC_ALL="C")
            assert terminal.end() == 0
            assert terminal.text.isascii()
            assert r"T\u{fc}r" in terminal.text
