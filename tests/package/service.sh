#!/bin/sh
# The units of the watch are confined as they claim, and their command line is one.
#   service.sh LANSCOUT UNIT...
set -eu
lanscout=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
for unit in "$@"; do
    cp "$unit" "$folder/"
    copy=$folder/$(basename "$unit")
    systemd-analyze security --offline=true --threshold=20 "$copy" >"$folder/said" 2>&1 ||
        { grep -v '✓' "$folder/said"; exit 1; }
    tail -1 "$folder/said"
    if grep -i 'ignoring\|unknown' "$folder/said"; then
        exit 1
    fi
    [ "$(sed -n 's/^CapabilityBoundingSet=//p' "$copy")" = CAP_NET_RAW ]
    [ "$(sed -n 's/^AmbientCapabilities=//p' "$copy")" = CAP_NET_RAW ]
    options=$(sed -n 's/^ExecStart=[^ ]* //p' "$copy")
    : >"$folder/watch.conf"
    options=$(echo "$options" | sed "s|/etc/lanscout/watch[^ ]*|$folder/watch.conf|; s|\${STATE_DIRECTORY}|$folder|")
    # shellcheck disable=SC2086 # the unit's words
    "$lanscout" $options --version >/dev/null
done
