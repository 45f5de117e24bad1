#!/bin/sh
# Runs a program inside a simulated network and checks that it finds at least so many cameras.
#   finds.sh COUNT PROGRAM
set -eu
said=$("$2" "$LANSCOUT_SIM_ADDRESS")
printf '%s\n' "$said"
found=$(printf '%s\n' "$said" | grep -c ' port ' || true)
if [ "$found" -lt "$1" ]; then
    echo "$2 found $found cameras, expected $1"
    exit 1
fi
