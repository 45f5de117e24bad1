#!/usr/bin/python3
"""Holds every #include "..." of the tree to the table in docs/layers.md.

Usage: layers.py SOURCE_TREE PUBLIC_HEADER...
"""
import pathlib
import re
import sys

ROW = re.compile(r"^\| ([a-z/-]+) \| ([a-z/ -]*?) ?\|")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)
SOURCES = ("*.h", "*.cpp")


def rules(tree):
    table = {}
    for line in (tree / "docs/layers.md").read_text().splitlines():
        row = ROW.match(line)
        if row:
            table[row[1]] = set(row[2].split())
    return table


def folder_of(path, table):
    """The innermost folder of the table that holds the file, or its own folder."""
    for parent in path.parents:
        if str(parent) in table:
            return str(parent)
    return str(path.parent)


def complaints(tree, public):
    table = rules(tree)
    top_folders = {name.split("/")[0] for name in table}
    files = sorted(
        file.relative_to(tree)
        for top in top_folders for pattern in SOURCES for file in (tree / top).rglob(pattern))
    if len(table) < 10 or len(files) < 20:
        yield f"only {len(table)} rules and {len(files)} files: the check has lost its subject"
    for file in files:
        here = folder_of(file, table)
        if here not in table:
            yield f"{file}: docs/layers.md has no row for {here}"
            continue
        for included in INCLUDE.findall((tree / file).read_text()):
            if not (tree / included).exists() and not (tree / f"{included}.in").exists():
                yield f"{file}: {included} is not a path from the root of the tree"
                continue
            there = folder_of(pathlib.PurePath(included), table)
            allowed = there == here or there in table[here] or "anything" in table[here]
            if not allowed and not ("public" in table[here] and included in public):
                yield f"{file}: {here} may not include {included}"


def main():
    found = list(complaints(pathlib.Path(sys.argv[1]), set(sys.argv[2:])))
    print("\n".join(found) or "every include is allowed")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
