#!/bin/sh
# Compares what a shared library exports with a list.
#   exports.sh LIBRARY LIST
set -eu
exported=$(nm --dynamic --defined-only --format=just-symbols "$1" | LC_ALL=C sort -u | c++filt)
if ! printf '%s\n' "$exported" | diff -u "$2" -; then
    echo "$1 does not export what $2 says (-: missing, +: too much)"
    exit 1
fi
