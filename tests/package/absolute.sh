#!/bin/sh
# Configures the library alone with absolute folders, and looks at what pkg-config would be told.
# Neither gzip nor the tools' libraries may be needed: the PATH has nothing but what is given.
#   absolute.sh SOURCE_TREE BUILD_FOLDER COMPILER
set -eu
source=$1 build=$2 compiler=$3
rm -rf "$build"
cmake -S "$source" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DLANSCOUT_TOOLS=OFF \
    -DLANSCOUT_TESTS=OFF -DCMAKE_INSTALL_PREFIX=/opt/store -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON \
    -DCMAKE_DISABLE_FIND_PACKAGE_fmt=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON \
    -DCMAKE_INSTALL_LIBDIR=/opt/lib/elsewhere -DCMAKE_INSTALL_INCLUDEDIR=/opt/include >"$build.log" 2>&1 || {
    cat "$build.log"
    exit 1
}
for file in lanscout.pc lanscout-host.pc; do
    grep -qx 'libdir=/opt/lib/elsewhere' "$build/$file"
    grep -qx 'includedir=/opt/include' "$build/$file"
done
if grep -E '^(GZIP|CPACK)[A-Za-z_]*:' "$build/CMakeCache.txt"; then
    echo "the library alone asks for what only packages and tools need"
    exit 1
fi
