#!/bin/sh
# Compares what a shared library exports with a list, and looks that all of it is under the version
# LANSCOUT_1: some names (Trim, IsSameSubnet) are such as other libraries have too.
#   exports.sh LIBRARY LIST
set -eu
version=LANSCOUT_1
versioned=$(nm --dynamic --defined-only --with-symbol-versions --format=just-symbols "$1")
if printf '%s\n' "$versioned" | grep -Ev "@@$version\$|^$version\$|^$version@@$version\$"; then
    echo "$1 exports these without the version $version"
    exit 1
fi
exported=$(printf '%s\n' "$versioned" | sed 's/@@.*//' | grep -vx "$version" | LC_ALL=C sort -u | c++filt)
if ! printf '%s\n' "$exported" | diff -u "$2" -; then
    echo "$1 does not export what $2 says (-: missing, +: too much)"
    exit 1
fi
