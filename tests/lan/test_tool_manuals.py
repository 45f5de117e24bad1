"""Manual pages and completions keep up with the programs."""

import re
import subprocess
from pathlib import Path

import pytest

from lan import program

ROOT = Path(__file__).parents[2]
COMPLETIONS = ROOT / "tools/lanscout/completions"


def long_options(name):
    text = subprocess.run([program(name), "--help"], capture_output=True, text=True, timeout=20,
                          check=True).stdout
    text = re.split(r"\n(?:Examples|Misbehaviours)\b", text)[0]
    found = set(re.findall(r"(?<![\w-])--([a-z][a-z0-9-]+)", text))
    assert len(found) > 10
    return found


@pytest.mark.parametrize("name", ["lanscout", "lanscout-sim"])
def test_manual_page_has_every_option(name):
    page = (ROOT / f"man/{name}.1").read_text().replace(r"\-", "-")
    assert {option for option in long_options(name) if f"--{option}" not in page} == set()


@pytest.mark.parametrize("name", ["lanscout", "lanscout-sim"])
def test_manual_page_has_no_option_that_is_none(name):
    page = (ROOT / f"man/{name}.1").read_text().replace(r"\-", "-")
    page = re.sub(r"\.SH EXAMPLES.*", "", page, flags=re.DOTALL)
    assert set(re.findall(r"(?<![\w-])--([a-z][a-z0-9-]+)", page)) <= long_options(name)


@pytest.mark.parametrize("file, pattern", [
    ("lanscout.bash", "--{0}(?![a-z0-9-])"), ("_lanscout", "--{0}(?![a-z0-9-])"),
    ("lanscout.fish", "-l {0}(?![a-z0-9-])")])
def test_completion_has_every_option(file, pattern):
    text = (COMPLETIONS / file).read_text()
    assert {option for option in long_options("lanscout")
            if not re.search(pattern.format(option), text)} == set()


def completed(*words, prepare=""):
    """What bash offers for the last word."""
    script = (prepare + 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _lanscout; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    done = subprocess.run(["bash", "-c", script, "bash", COMPLETIONS / "lanscout.bash", *words],
                          capture_output=True, text=True, timeout=20, check=True)
    return [line for line in done.stdout.splitlines() if line]


def test_bash_offers_options_and_their_values():
    assert completed("lanscout", "--js") == ["--json", "--jsonl"]
    assert completed("lanscout", "--only", "") == ["onvif", "upnp"]
    assert completed("lanscout", "--color", "=", "n") == ["never"]
    assert "lo" in completed("lanscout", "--interface", "l")


def test_bash_offers_every_column_that_there_is():
    text = subprocess.run([program("lanscout"), "--sort", "?"], capture_output=True, text=True,
                          timeout=20, check=False).stderr
    columns = re.search(r"\{(.*)\}", text)[1].split(",")
    assert completed("lanscout", "--sort", "") == columns


def test_bash_runs_nothing_that_stands_in_an_interfaces_name():
    names = ["$(touch ran)", "eth0;id", "eth1", "a b"]
    ls = "command() { printf '%s\\n' " + " ".join(f"'{name}'" for name in names) + "; }; "
    assert completed("lanscout", "--interface", "eth", prepare=ls) == [r"eth0\;id", "eth1"]
    assert completed("lanscout", "--interface", "$", prepare=ls) == [r"\$\(touch\ ran\)"]
    assert not (COMPLETIONS / "ran").exists() and not Path("ran").exists()
