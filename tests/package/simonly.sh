#!/bin/bash
# The simulator is configured alone where there is no libupnp, and builds nothing of the library.
#   simonly.sh SOURCE BUILD CXX_COMPILER
set -euo pipefail
source=$1 build=$2 compiler=$3

rm -rf "$build"
mkdir -p "$build"
cat >"$build/pkg-config" <<'END'
#!/bin/sh
case "$*" in *upnp* | *curl* | *systemd*) exit 1 ;; esac
exec pkg-config "$@"
END
chmod +x "$build/pkg-config"
configure() {
    cmake -S "$source" -B "$build/$1" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
        -DPKG_CONFIG_EXECUTABLE="$build/pkg-config" "-DLANSCOUT_SIM_ONLY=$2" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
}
configure alone ON
if configure whole OFF >/dev/null 2>&1; then
    echo "the whole tree is configured without libupnp: the check has lost its subject"
    exit 1
fi
built=$(sed -n "s#^ *\"file\": \"$source/\(.*\)\".*#\1#p" "$build/alone/compile_commands.json")
echo "$built" | grep -q "^tools/lanscout-sim/main.cpp"
if echo "$built" | grep -E "^(utils|log|host|control|finder|tools/lanscout)/"; then
    echo "these belong to the library or the command"
    exit 1
fi
