#!/bin/sh
# Builds the consumer programs with what pkg-config says of an installed package, and runs one.
#   pkgconfig.sh PREFIX SOURCE_FOLDER OUTPUT_FOLDER COMPILER RUNNER...
set -eu
prefix=$1 sources=$2 output=$3 compiler=$4
shift 4
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name lanscout.pc)")
LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH")
export PKG_CONFIG_PATH LD_LIBRARY_PATH
mkdir -p "$output"
build() {
    program=$1 packages=$2
    # shellcheck disable=SC2086 # packages are words, and so are flags
    flags=$(pkg-config --define-variable=prefix="$prefix" --cflags --libs $packages)
    # shellcheck disable=SC2086
    "$compiler" -std=c++20 -o "$output/$program" "$sources/$program.cpp" $flags
}
build search "lanscout"
build live "lanscout lanscout-host"
"$@" "$output/live"
