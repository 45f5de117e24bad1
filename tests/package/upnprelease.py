#!/usr/bin/python3
"""Holds the knowledge of which libupnp is installed to its one place.

A second place that asks for the release is forgotten when the next release comes.
Usage: upnprelease.py SOURCE_TREE
"""
import os
import pathlib
import re
import sys

ASKS = re.compile(r"\bP?UPNP_VERSION\w*|\bUpnpInit2\b")
SUFFIXES = {".h", ".cpp", ".cmake", ".txt", ".in"}
KNOWS = {"utils/upnp16.h", "utils/upnp16.cpp"}
# Tests that stand in for libupnp, or tell what it is.
STANDS_IN = {"tests/unit/utils/upnp16_test.cpp", "tests/unit/support/upnpfake.cpp",
             "tests/unit/support/fakes.cmake", "fuzz/fakeupnp.cpp", "fuzz/CMakeLists.txt",
             "tests/lan/upnpprobe.cpp"}


def sources(tree):
    for folder, folders, files in os.walk(tree):
        folders[:] = [name for name in folders
                      if not name.startswith(".") and name not in ("build", "node_modules")]
        for name in files:
            path = pathlib.Path(folder, name)
            if path.suffix in SUFFIXES:
                yield path


def main():
    tree = pathlib.Path(sys.argv[1])
    asking = {str(path.relative_to(tree)) for path in sources(tree)
              if ASKS.search(path.read_text(errors="replace"))}
    for name in sorted(asking - KNOWS - STANDS_IN):
        print(f"{name}: asks which libupnp is installed; only utils/upnp16.* may")
    lost = "utils/upnp16.cpp" not in asking
    if lost:
        print("utils/upnp16.cpp does not ask any more: the check has lost its subject")
    return 1 if lost or asking - KNOWS - STANDS_IN else 0


if __name__ == "__main__":
    sys.exit(main())
