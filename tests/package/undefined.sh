#!/bin/sh
# Checks that a library leaves the server's symbols to the server and needs no host library.
#   undefined.sh LIBRARY
set -eu
undefined=$(nm --dynamic --undefined-only --demangle --format=just-symbols "$1")
for symbol in g_pDbgLogCfg g_DbgLogPid ZelPrintf SDKFuncData::NetGetCard1 KarnExecl DecodingSpaces \
    Trim IsSameSubnet 'ZelNet::ZelHttpClient::Init' 'ZelEnum2StrMap<LOG_LEVEL>::ZelEnum2StrMap'; do
    if ! printf '%s\n' "$undefined" | grep -q "^$symbol"; then
        echo "$1 has no undefined $symbol"
        exit 1
    fi
done
if objdump -p "$1" | grep 'NEEDED.*lanscout-host'; then
    echo "$1 needs the stand-alone host"
    exit 1
fi
