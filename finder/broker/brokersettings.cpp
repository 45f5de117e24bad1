#include "finder/broker/brokersettings.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "finder/machine/descriptor.h"

namespace Lanscout {
namespace {

constexpr int kPort = 1883;     // MQTT 3.1.1, 4.2
constexpr int kTlsPort = 8883;  // the same
constexpr int kLastPort = 65535;
constexpr std::size_t kLongestHost = 253;  // RFC 1035, 2.3.4
constexpr std::size_t kLongestCredentials = 4096;

[[noreturn]] void Refuse(const std::string& url, const char* why) {
    throw std::runtime_error(fmt::format("{}: {}", url, why));
}

std::string_view TakeScheme(const std::string& url, BrokerSettings& settings) {
    const std::string_view text = url;
    for (const auto& [scheme, tls] : {std::pair<std::string_view, bool>{"mqtt://", false},
                                      std::pair<std::string_view, bool>{"mqtts://", true}}) {
        if (text.starts_with(scheme)) {
            settings.tls = tls;
            return text.substr(scheme.size());
        }
    }
    Refuse(url, "a broker is given as mqtt://HOST or mqtts://HOST, with :PORT if need be");
}

bool IsHostCharacter(char c) {
    constexpr std::string_view kOthers = ".-_:%";
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kOthers.find(c) != std::string_view::npos;
}

// "host", "host:1", "[::1]:1": what stands before and behind the port's colon.
std::pair<std::string_view, std::string_view> SplitPort(std::string_view place) {
    const std::size_t bracket = place.starts_with('[') ? place.find(']') : std::string_view::npos;
    const std::size_t colon = place.find(':', bracket == std::string_view::npos ? 0 : bracket);
    std::string_view host = place.substr(0, colon);
    if (bracket != std::string_view::npos) {
        host = host.size() == bracket + 1 ? host.substr(1, bracket - 1) : std::string_view();
    }
    return {host, colon == std::string_view::npos ? std::string_view() : place.substr(colon)};
}

int PortFrom(std::string_view text) {
    int port = 0;
    const auto [end, error] = std::from_chars(text.data() + 1, text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() && port <= kLastPort ? port : 0;
}

std::string ReadPrivateFile(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (file.Fd() < 0 || fstat(file.Fd(), &status) != 0) {
        throw std::runtime_error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    }
    if ((status.st_mode & (S_IRWXO | S_IWGRP)) != 0) {
        throw std::runtime_error(fmt::format(
            "{} holds a password and others may read or change it; try: chmod 600 {}", path, path));
    }
    std::array<char, kLongestCredentials> buffer{};
    const ssize_t count = read(file.Fd(), buffer.data(), buffer.size());
    if (count < 0) {
        throw std::runtime_error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    }
    return {buffer.data(), static_cast<std::size_t>(count)};
}

std::string TakeLine(std::string& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return line;
}

}  // namespace

BrokerSettings ParseBrokerUrl(const std::string& url) {
    BrokerSettings settings;
    std::string_view place = TakeScheme(url, settings);
    if (place.find('@') != std::string_view::npos) {
        // Not repeated: what stands there may be a password.
        throw std::runtime_error(
            "a broker's address has no user name and no password; they belong into a file for "
            "--mqtt-credentials");
    }
    if (place.ends_with('/')) {
        place.remove_suffix(1);
    }
    const auto [host, port] = SplitPort(place);
    if (host.empty() || host.size() > kLongestHost ||
        !std::all_of(host.begin(), host.end(), &IsHostCharacter)) {
        Refuse(url, "it names no host");
    }
    settings.host = host;
    const int usual = settings.tls ? kTlsPort : kPort;
    settings.port = port.empty() ? usual : PortFrom(port);
    if (settings.port <= 0) {
        Refuse(url, "the port is a number from 1 to 65535");
    }
    return settings;
}

std::string BrokerText(const BrokerSettings& settings) {
    const bool ipv6 = settings.host.find(':') != std::string::npos;
    return fmt::format("{}://{}{}{}:{}", settings.tls ? "mqtts" : "mqtt", ipv6 ? "[" : "",
                       settings.host, ipv6 ? "]" : "", settings.port);
}

void ReadCredentials(const std::string& path, BrokerSettings& settings) {
    std::string text = ReadPrivateFile(path);
    std::string user = TakeLine(text);
    std::string password = TakeLine(text);
    if (user.empty() || text.size() + user.size() + password.size() + 2 >= kLongestCredentials) {
        throw std::runtime_error(
            fmt::format("{} has no user name in its first line and password in its second", path));
    }
    settings.user = std::move(user);
    settings.password = std::move(password);
}

}  // namespace Lanscout
