#include "tools/lanscout-sim/upnp/ssdp.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <map>

namespace lansim {
namespace {

constexpr int kMaxAgeSeconds = 1800;
constexpr int kLongestWaitSeconds = 120;
constexpr std::string_view kRequestLine = "M-SEARCH * HTTP/1.1";
constexpr std::string_view kServer = "Linux/5.10 UPnP/1.0 lanscout-sim/1.0";

struct IgnoringCase {
    bool operator()(const std::string& a, const std::string& b) const {
        return strcasecmp(a.c_str(), b.c_str()) < 0;
    }
};
using Fields = std::map<std::string, std::string, IgnoringCase>;

std::string Trimmed(std::string_view text) {
    constexpr std::string_view kBlank = " \t\r";
    const auto first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(first, text.find_last_not_of(kBlank) - first + 1));
}

// Lines end in CR LF, or in LF alone from sloppy searchers.
std::string_view TakeLine(std::string_view& rest) {
    const auto end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return line;
}

Fields ReadFields(std::string_view rest) {
    Fields fields;
    while (!rest.empty()) {
        const std::string_view line = TakeLine(rest);
        const auto colon = line.find(':');
        if (colon != std::string_view::npos) {
            fields[Trimmed(line.substr(0, colon))] = Trimmed(line.substr(colon + 1));
        }
    }
    return fields;
}

std::string CacheControl(const UpnpDevice& device) {
    return device.Does(Misbehaviour::UpnpNoMaxAge)
               ? ""
               : fmt::format("CACHE-CONTROL: max-age={}\r\n", kMaxAgeSeconds);
}

}  // namespace

std::optional<SsdpSearch> ParseSearch(std::string_view bytes) {
    if (Trimmed(TakeLine(bytes)) != kRequestLine) {
        return std::nullopt;
    }
    auto fields = ReadFields(bytes);
    if (fields["MAN"] != "\"ssdp:discover\"" || fields["ST"].empty()) {
        return std::nullopt;
    }
    SsdpSearch search{fields["ST"], 1};
    const std::string& wait = fields["MX"];
    std::from_chars(wait.data(), wait.data() + wait.size(), search.longestWaitSeconds);
    search.longestWaitSeconds = std::clamp(search.longestWaitSeconds, 1, kLongestWaitSeconds);
    return search;
}

std::vector<SsdpIdentity> IdentitiesOf(const UpnpDevice& device) {
    const std::string uuid = "uuid:" + device.uuid;
    const std::string type = fmt::format("urn:schemas-upnp-org:device:{}:1", device.kind);
    return {
        {"upnp:rootdevice", uuid + "::upnp:rootdevice"}, {uuid, uuid}, {type, uuid + "::" + type}};
}

std::vector<SsdpIdentity> IdentitiesFor(const UpnpDevice& device, const std::string& target) {
    auto identities = IdentitiesOf(device);
    if (target != "ssdp:all") {
        std::erase_if(identities, [&](const auto& identity) { return identity.type != target; });
    }
    return identities;
}

std::string SearchAnswer(const UpnpDevice& device, const SsdpIdentity& identity,
                         const std::string& location) {
    return fmt::format(
        "HTTP/1.1 200 OK\r\n{}DATE: Thu, 01 Jan 1970 00:00:00 GMT\r\nEXT:\r\nLOCATION: {}\r\n"
        "SERVER: {}\r\nST: {}\r\nUSN: {}\r\n\r\n",
        CacheControl(device), location, kServer, identity.type, identity.usn);
}

std::string AliveNotice(const UpnpDevice& device, const SsdpIdentity& identity,
                        const std::string& location) {
    return fmt::format(
        "NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\n{}LOCATION: {}\r\nNT: {}\r\n"
        "NTS: ssdp:alive\r\nSERVER: {}\r\nUSN: {}\r\n\r\n",
        CacheControl(device), location, identity.type, kServer, identity.usn);
}

std::string ByebyeNotice(const SsdpIdentity& identity) {
    return fmt::format(
        "NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nNT: {}\r\nNTS: ssdp:byebye\r\n"
        "USN: {}\r\n\r\n",
        identity.type, identity.usn);
}

}  // namespace lansim
