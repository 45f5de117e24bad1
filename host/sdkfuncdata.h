// What the server provides for reading the local network interfaces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// One local network interface. The library reads bUsable and szName and nothing else.
struct _tag_NETINFO_ {
    std::int32_t nIndex;   // interface index
    std::int32_t bUsable;  // 0: the interface is not usable (down)
    char szName[16];       // device name, NUL-terminated
};
static_assert(offsetof(_tag_NETINFO_, bUsable) == 4);
static_assert(offsetof(_tag_NETINFO_, szName) == 8);

namespace SDKFuncData {

// Describes the local interface that carries the IPv4 address strIp (dotted-decimal text).
// Returns 1 on success; any other value is a failure. `info` need not be initialised.
int NetGetCard1(const std::string& strIp, _tag_NETINFO_& info);

}  // namespace SDKFuncData
