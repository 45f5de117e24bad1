#include "tools/lanscout-sim/upnp/ssdp.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>

namespace lansim {
namespace {

constexpr int kLongestWaitSeconds = 120;
constexpr std::string_view kRequestLine = "M-SEARCH * HTTP/1.1";
constexpr std::string_view kGroupName = "239.255.255.250";
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

// MX as a number; nothing when it is none.
std::optional<int> WaitOf(const std::string& text) {
    int seconds = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, seconds);
    if (error != std::errc{} || rest != end || seconds < 0) {
        return std::nullopt;
    }
    return std::min(seconds, kLongestWaitSeconds);
}

std::optional<SsdpError> CheckHost(Fields& fields, SsdpRules rules) {
    const std::string& host = fields["HOST"];
    if (host.empty()) {
        return SsdpError::NoHost;
    }
    const bool isGroup = host == kGroupName || host == fmt::format("{}:1900", kGroupName);
    if (rules == SsdpRules::Multicast && !isGroup) {
        return SsdpError::WrongHost;
    }
    return std::nullopt;
}

}  // namespace

std::string_view NameOf(SsdpError error) {
    constexpr std::array<std::string_view, 7> kNames = {
        "otherMessage", "noMan", "noTarget", "noHost", "wrongHost", "noWait", "wrongWait"};
    return kNames.at(static_cast<std::size_t>(error));
}

std::variant<SsdpSearch, SsdpError> ParseSearch(std::string_view bytes, SsdpRules rules) {
    if (Trimmed(TakeLine(bytes)) != kRequestLine) {
        return SsdpError::OtherMessage;
    }
    auto fields = ReadFields(bytes);
    if (fields["MAN"] != "\"ssdp:discover\"") {
        return SsdpError::NoMan;
    }
    if (fields["ST"].empty()) {
        return SsdpError::NoTarget;
    }
    const auto wait = WaitOf(fields["MX"]);
    if (rules == SsdpRules::Lenient) {
        return SsdpSearch{fields["ST"], wait.value_or(1)};
    }
    if (const auto error = CheckHost(fields, rules)) {
        return *error;
    }
    if (!wait && rules == SsdpRules::Multicast) {
        return fields["MX"].empty() ? SsdpError::NoWait : SsdpError::WrongWait;
    }
    return SsdpSearch{fields["ST"], wait.value_or(0)};
}

std::vector<SsdpIdentity> IdentitiesOf(const UpnpDevice& device) {
    const std::string uuid = "uuid:" + device.uuid;
    const std::string type = TypeOf(device);
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
