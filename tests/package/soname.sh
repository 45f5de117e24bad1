#!/bin/sh
# Checks a shared library's SONAME.
#   soname.sh LIBRARY EXPECTED
set -eu
found=$(objdump -p "$1" | awk '$1 == "SONAME" { print $2 }')
if [ "$found" != "$2" ]; then
    echo "the SONAME of $1 is '$found', expected '$2'"
    exit 1
fi
