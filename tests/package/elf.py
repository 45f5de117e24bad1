#!/usr/bin/python3
"""Reads the programs and libraries of a folder as the loader does.

    elf.py runpath FOLDER      every part of a RUNPATH begins with $ORIGIN: an empty or relative one
                               is the folder that a user happens to stand in, with whatever library
                               someone put there
    elf.py installed FOLDER    the same, and programs look beside their own folder alone
    elf.py hardened FILE...    position independent, read-only relocations, bound at the start,
                               stack and buffers guarded
"""
import os
import pathlib
import re
import subprocess
import sys


def readelf(path, *options):
    return subprocess.run(["readelf", "--wide", *options, path], capture_output=True, text=True,
                          check=True).stdout


def is_linked(path):
    with open(path, "rb") as file:
        head = file.read(18)
    return head[:4] == b"\x7fELF" and len(head) == 18 and head[16] in (2, 3)  # no object file


def linked_files(folder):
    for here, folders, files in os.walk(folder):
        # Programs of others: made from an installation by the tests, and unpacked daemons.
        folders[:] = [name for name in folders
                      if not (here.endswith("tests/package") or name == "daemons")]
        for name in files:
            path = pathlib.Path(here, name)
            if not path.is_symlink() and is_linked(path):
                yield path


def runpath(path):
    found = re.search(r"\((?:RUNPATH|RPATH)\).*\[(.*)\]", readelf(path, "--dynamic"))
    return found[1].split(":") if found else []


def check_runpaths(folder, installed):
    files = list(linked_files(folder))
    if len(files) < 3:
        yield f"only {len(files)} programs and libraries in {folder}"
    for path in files:
        for part in runpath(path):
            if part != "$ORIGIN" and not part.startswith("$ORIGIN/"):
                yield f"{path}: RUNPATH has '{part}'"
            elif installed and path.parent.name == "bin" and not re.fullmatch(
                    r"\$ORIGIN/\.\./lib[\w/-]*", part):
                yield f"{path}: RUNPATH has '{part}', which is not the libraries' folder"


def check_hardening(path):
    dynamic, program = readelf(path, "--dynamic"), readelf(path, "--program-headers")
    symbols = readelf(path, "--dyn-syms")
    if "Elf file type is DYN" not in program:
        yield f"{path}: not position independent"
    if "GNU_RELRO" not in program or "NOW" not in dynamic:
        yield f"{path}: relocations stay writable"
    if "__stack_chk_fail" not in symbols:
        yield f"{path}: no stack protector"
    if not re.search(r" __(?!stack)\w+_chk\b", symbols):
        yield f"{path}: no fortified function"


def main():
    what, *names = sys.argv[1:]
    if what == "hardened":
        found = [text for name in names for text in check_hardening(name)]
    else:
        found = list(check_runpaths(names[0], what == "installed"))
    print("\n".join(found) or "as it should be")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
