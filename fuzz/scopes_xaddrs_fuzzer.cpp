// The texts of XAddrs and Scopes against an independent model.
//
// Input: the XAddrs text up to the first byte 0x1E, the Scopes text behind it.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "host/zelstring.h"
#include "utils/wsdiscoverybase.h"

namespace {

class Search : public WSDiscoveryBase {
public:
    Search() : WSDiscoveryBase("127.0.0.1", 0) {}
    using WSDiscoveryBase::ParseHardwareFromScopes;
    using WSDiscoveryBase::ParsePortFromXAddrs;
};

// The port as one would read it with the finger: skip to behind the first scheme, walk on to the
// first colon without meeting a slash, take what stands up to the next slash.
std::optional<std::string> PortModel(const std::string& xaddrs) {
    const char* const end = xaddrs.data() + xaddrs.size();
    const char* at = xaddrs.data();
    for (const char* from = at; end - from >= 7; ++from) {
        if (std::memcmp(from, "http://", 7) == 0) {
            at = from + 7;
            break;
        }
    }
    for (; at != end && *at != ':'; ++at) {
        if (*at == '/') {
            return std::nullopt;
        }
    }
    if (at == end) {
        return std::nullopt;
    }
    std::string port;
    for (++at; at != end; ++at) {
        if (*at == '/') {
            return port;
        }
        port += *at;
    }
    return std::nullopt;
}

std::optional<std::string> HardwareModel(std::string_view scopes) {
    constexpr std::string_view kPrefix = "onvif://www.onvif.org/hardware/";
    for (; scopes.size() >= kPrefix.size(); scopes.remove_prefix(1)) {
        if (!scopes.starts_with(kPrefix)) {
            continue;
        }
        std::string value;
        for (scopes.remove_prefix(kPrefix.size()); !scopes.empty() && scopes[0] != ' ';) {
            const bool isSpace = scopes.starts_with("%20");
            value += isSpace ? ' ' : scopes[0];
            scopes.remove_prefix(isSpace ? 3 : 1);
        }
        return value;
    }
    return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Search search;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = input.find('\x1e');
    const std::string xaddrs = input.substr(0, split);
    const std::string scopes = split == std::string::npos ? input : input.substr(split + 1);

    std::string port = "80";
    search.ParsePortFromXAddrs(xaddrs, port);
    Check(port == PortModel(xaddrs).value_or("80"), "the port is the model's");
    std::string hardware = "preset";
    search.ParseHardwareFromScopes(scopes, hardware);
    Check(hardware == HardwareModel(scopes).value_or("preset"), "the hardware is the model's");
    return 0;
}
