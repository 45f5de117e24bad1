#!/usr/bin/python3
"""Checks that the programs quoted in the documents are the ones that are compiled and run here.

A quote is a line <!-- PATH --> followed by a fenced block. Usage: quotes.py SOURCE_TREE FILE...
"""
import pathlib
import re
import sys

QUOTE = re.compile(r"<!-- (\S+) -->\n```\w*\n(.*?)```\n", re.DOTALL)


def main():
    tree = pathlib.Path(sys.argv[1])
    quotes = [(name, *quote) for name in sys.argv[2:]
              for quote in QUOTE.findall((tree / name).read_text())]
    bad = [(name, path) for name, path, text in quotes if text not in (tree / path).read_text()]
    for name, path in bad:
        print(f"{name}: the block after <!-- {path} --> is not in that file")
    print(f"{len(quotes)} quotes")
    return 1 if bad or not quotes else 0


if __name__ == "__main__":
    sys.exit(main())
