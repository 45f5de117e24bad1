#include "tools/lanscout-sim/onvif/matching.h"

#include <strings.h>

#include <algorithm>
#include <vector>

namespace lansim {
namespace {

constexpr std::string_view kRulePrefix = "http://schemas.xmlsoap.org/ws/2005/04/discovery/";

bool SameIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && strncasecmp(a.c_str(), b.c_str(), a.size()) == 0;
}

// scheme://authority, in which case does not count, and the segments of the path, in which it does.
struct ScopeUri {
    std::string site;
    std::vector<std::string> segments;
};

ScopeUri Split(const std::string& uri) {
    ScopeUri parts;
    const auto scheme = uri.find("://");
    auto at = uri.find('/', scheme == std::string::npos ? 0 : scheme + 3);
    parts.site = uri.substr(0, at);
    while (at != std::string::npos) {
        const auto next = uri.find('/', at + 1);
        parts.segments.push_back(
            uri.substr(at + 1, next == std::string::npos ? next : next - at - 1));
        at = next;
    }
    // A trailing slash asks for nothing more.
    if (!parts.segments.empty() && parts.segments.back().empty()) {
        parts.segments.pop_back();
    }
    return parts;
}

bool IsSegmentPrefix(const std::string& asked, const std::string& owned) {
    const ScopeUri want = Split(asked);
    const ScopeUri have = Split(owned);
    return SameIgnoringCase(want.site, have.site) &&
           std::ranges::mismatch(want.segments, have.segments).in1 == want.segments.end();
}

bool HasType(const Camera& camera, const QualifiedName& type) {
    return (camera.SaysTransmitter() && type.uri == kOnvifNetworkNs &&
            type.local == "NetworkVideoTransmitter") ||
           (camera.SaysDevice() && type.uri == kOnvifDeviceNs && type.local == "Device") ||
           std::ranges::count(camera.otherTypes, type) > 0;
}

}  // namespace

bool ScopeMatches(const std::string& asked, const std::string& owned, const std::string& rule) {
    const std::string prefix(kRulePrefix);
    if (rule.empty() || rule == prefix + "rfc2396" || rule == prefix + "rfc3986") {
        return IsSegmentPrefix(asked, owned);
    }
    if (rule == prefix + "strcmp0") {
        return asked == owned;
    }
    if (rule == prefix + "uuid") {
        return SameIgnoringCase(asked, owned);
    }
    return false;
}

bool Matches(const Probe& probe, const Camera& camera) {
    if (probe.kind == RequestKind::Resolve) {
        return probe.endpoint == EndpointOf(camera);
    }
    if (!std::ranges::all_of(probe.types,
                             [&](const auto& type) { return HasType(camera, type); })) {
        return false;
    }
    if (probe.scopes.empty()) {
        return true;
    }
    const auto scopes = ScopesOf(camera);
    return std::ranges::all_of(probe.scopes, [&](const auto& asked) {
        return std::ranges::any_of(
            scopes, [&](const auto& owned) { return ScopeMatches(asked, owned, probe.matchBy); });
    });
}

}  // namespace lansim
