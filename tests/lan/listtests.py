#!/usr/bin/python3
"""Prints the tests of this folder for CMake: FILE:TEST and the ctest properties of each, one test
a line, the parts separated by "|".

Needs nothing but Python, so that a build can be configured where pytest is missing.
"""

import ast
import sys
from pathlib import Path

PROPERTIES = {"lock": "RESOURCE_LOCK", "alone": "RUN_SERIAL", "timeout": "TIMEOUT", "cost": "COST"}


def properties(function):
    """What @pytest.mark.ctest(...) of a test says, as ctest's own properties."""
    for decorator in function.decorator_list:
        if isinstance(decorator, ast.Call) and ast.unparse(decorator.func) == "pytest.mark.ctest":
            for keyword in decorator.keywords:
                yield PROPERTIES[keyword.arg]
                yield str(ast.literal_eval(keyword.value)).upper() \
                    if keyword.arg == "alone" else str(ast.literal_eval(keyword.value))


def main():
    for path in sorted(Path(sys.argv[1]).glob("test_*.py")):
        for node in ast.parse(path.read_text(), str(path)).body:
            if isinstance(node, ast.FunctionDef) and node.name.startswith("test_"):
                print("|".join([f"{path.stem}:{node.name}", *properties(node)]))


main()
