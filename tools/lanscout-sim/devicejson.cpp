#include "tools/lanscout-sim/devicejson.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "tools/lanscout-sim/base/base64.h"
#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/base/uri.h"
#include "tools/lanscout-sim/onvif/reply.h"

namespace lansim {
namespace {

using nlohmann::ordered_json;

constexpr double kLargestPort = 65535;
constexpr double kLongestDelayMs = 60000;
constexpr double kMostChannels = 64;
constexpr double kLargestOffsetSeconds = 4e9;
constexpr std::size_t kLargestReply = 65507;  // UDP over IPv4

bool IsNcName(std::string_view text) {
    const auto isNamePart = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '.';
    };
    return !text.empty() && std::isdigit(static_cast<unsigned char>(text.front())) == 0 &&
           text.front() != '-' && text.front() != '.' && std::ranges::all_of(text, isNamePart);
}

// {URI}LOCAL
std::optional<QualifiedName> ParseType(const std::string& text) {
    const auto end = text.find('}');
    if (!text.starts_with('{') || end == std::string::npos) {
        return std::nullopt;
    }
    QualifiedName type{text.substr(1, end - 1), text.substr(end + 1)};
    if (!IsUri(type.uri) || !IsNcName(type.local)) {
        return std::nullopt;
    }
    return type;
}

void ReadTypes(JsonReader& reader, Camera& camera) {
    if (!reader.Has("types")) {
        reader.Skip("types");
        return;
    }
    std::vector<std::string> types;
    reader.Read("types", types);
    camera.isVideoTransmitter = std::erase(types, "NetworkVideoTransmitter") > 0;
    camera.isDevice = std::erase(types, "Device") > 0;
    camera.otherTypes.clear();
    for (const auto& text : types) {
        const auto type = ParseType(text);
        if (!type) {
            reader.Fail("types", fmt::format("\"{}\" is neither NetworkVideoTransmitter nor Device "
                                             "nor {{URI}}NAME",
                                             text));
        }
        camera.otherTypes.push_back(*type);
    }
}

// "misbehave" is what a person writes, "misbehaviours" what the truth has.
void ReadMisbehaviours(JsonReader& reader, bool ofUpnp, std::set<Misbehaviour>& kinds) {
    for (const auto* key : {"misbehave", "misbehaviours"}) {
        std::vector<std::string> names;
        const bool isThere = reader.Has(key);
        reader.Read(key, names);
        if (isThere) {
            kinds.clear();
        }
        for (const auto& name : names) {
            const auto kind = MisbehaviourNamed(name);
            if (!kind || IsUpnp(*kind) != ofUpnp) {
                reader.Fail(key, fmt::format("misbehaviour \"{}\" is not known here; lanscout-sim "
                                             "--list-misbehaviours has them all",
                                             name));
            }
            kinds.insert(*kind);
        }
    }
    if (reader.Has("misbehave") && reader.Has("misbehaviours")) {
        reader.Fail("misbehaviours", "is the same as \"misbehave\"; leave one of them out");
    }
}

// What a camera and a UPnP device have alike.
template <typename Device>
void ReadIdentity(JsonReader& reader, Device& device) {
    reader.Read("name", device.name);
    reader.Read("maker", device.maker);
    reader.Read("uuid", device.uuid);
    if (!device.uuid.empty() && !IsUri("urn:uuid:" + device.uuid)) {
        reader.Fail("uuid", fmt::format("\"{}\" makes no URI of urn:uuid:...", device.uuid));
    }
    reader.ReadNumber("port", device.port, 1, kLargestPort);
    reader.ReadText("ip", device.ip, ParseIpv4, "an IPv4 address");
    reader.ReadText("mac", device.mac, ParseMac, "a MAC address as 02:4C:00:00:00:01");
    reader.Read("present", device.isPresent);
    reader.Read("muted", device.isMuted);
}

std::string FileText(const JsonReader& reader, const DeviceFiles& files, const std::string& name) {
    const std::string path = name.starts_with('/') ? name : files.folder + name;
    std::error_code error;
    const bool isThere = std::filesystem::exists(path, error);
    // A device file or a pipe may have no end.
    if (isThere && !std::filesystem::is_regular_file(path, error)) {
        reader.Fail("reply", fmt::format("{} is no file with a reply", path));
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        reader.Fail("reply", fmt::format("cannot open {}: {}", path, std::strerror(errno)));
    }
    std::string text(kLargestReply + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

// The reply itself, or the name of a file that has it.
void ReadReply(JsonReader& reader, const DeviceFiles& files, Camera& camera) {
    constexpr std::string_view kBase64 = "base64:";
    std::string reply;
    reader.Read("reply", reply);
    if (reply.empty()) {
        return;
    }
    if (reply.starts_with(kBase64)) {
        const auto bytes = DecodeBase64(reply.substr(kBase64.size()));
        if (!bytes) {
            reader.Fail("reply", "what follows base64: is not that");
        }
        reply = *bytes;
    } else if (!reply.starts_with('<')) {
        reply = FileText(reader, files, reply);
    }
    if (reply.empty() || reply.size() > kLargestReply) {
        reader.Fail("reply", fmt::format("has {} bytes; a datagram has 1 to {}", reply.size(),
                                         kLargestReply));
    }
    camera.recordedReply = std::make_shared<const std::string>(std::move(reply));
}

std::string TypeText(const QualifiedName& type) {
    return (type.uri == kOnvifNetworkNs && type.local == "NetworkVideoTransmitter") ||
                   (type.uri == kOnvifDeviceNs && type.local == "Device")
               ? type.local
               : fmt::format("{{{}}}{}", type.uri, type.local);
}

ordered_json KindsOf(const std::set<Misbehaviour>& misbehaviours) {
    auto kinds = ordered_json::array();
    for (const auto kind : misbehaviours) {
        kinds.push_back(NameOf(kind));
    }
    return kinds;
}

// As a text where it is one, so that people can read it.
std::string ReplyText(const std::string& reply) {
    const bool isText = reply.starts_with('<') && std::ranges::all_of(reply, [](char c) {
                            return (c >= ' ' && c <= '~') || c == '\n' || c == '\r' || c == '\t';
                        });
    return isText ? reply : "base64:" + EncodeBase64(reply);
}

void ReadService(JsonReader& reader, const DeviceFiles& files, Camera& camera) {
    reader.Read("user", camera.user);
    reader.Read("password", camera.password);
    reader.Read("stream", camera.stream);
    if (!camera.stream.empty() && !IsUri(camera.stream)) {
        reader.Fail("stream", fmt::format("\"{}\" is no URI", camera.stream));
    }
    std::string folder;
    reader.Read("service", folder);
    if (!folder.empty()) {
        camera.serviceFolder = folder.starts_with('/') ? folder : files.folder + folder;
    }
    auto offset = camera.clockOffset.count();
    reader.ReadNumber("clockOffset", offset, -kLargestOffsetSeconds, kLargestOffsetSeconds);
    camera.clockOffset = std::chrono::seconds(offset);
}

void ReadBehaviour(JsonReader& reader, Camera& camera) {
    reader.ReadNumber("shape", camera.shape, 0, ShapeCount() - 1);
    reader.ReadNumber("channels", camera.channels, 0, kMostChannels);
    reader.ReadNumber("metadataVersion", camera.metadataVersion, 0, 4294967295.0);
    int delay = -1;
    reader.ReadNumber("delayMs", delay, 0, kLongestDelayMs);
    if (delay >= 0) {
        camera.delay = std::chrono::milliseconds(delay);
    }
    ReadMisbehaviours(reader, false, camera.misbehaviours);
}

}  // namespace

void ReadCamera(JsonReader& reader, const DeviceFiles& files, Camera& camera) {
    reader.Skip("kind");
    ReadIdentity(reader, camera);
    reader.Read("hardware", camera.hardware);
    reader.Read("location", camera.location);
    reader.Read("foreign", camera.isForeign);
    reader.ReadText("ipv6", camera.ipv6, ParseIpv6, "an IPv6 address");
    bool isIpv6Only = !camera.hasIpv4;
    reader.Read("ipv6Only", isIpv6Only);
    camera.hasIpv4 = !isIpv6Only;
    reader.Read("endpoint", camera.endpoint);
    if (!camera.endpoint.empty() && !IsUri(camera.endpoint)) {
        reader.Fail("endpoint", fmt::format("\"{}\" is no URI", camera.endpoint));
    }
    reader.Read("xaddrs", camera.xaddrs);
    reader.Read("scopes", camera.scopes);
    ReadService(reader, files, camera);
    ReadTypes(reader, camera);
    ReadReply(reader, files, camera);
    ReadBehaviour(reader, camera);
    reader.RefuseUnknownKeys();
}

void ReadUpnpDevice(JsonReader& reader, UpnpDevice& device) {
    ReadIdentity(reader, device);
    reader.Read("model", device.model);
    reader.Read("type", device.kind);
    // What the truth says of every device; a scenario may have the type here.
    std::string kind;
    reader.Read("kind", kind);
    if (!kind.empty() && kind != "upnp") {
        device.kind = kind;
    }
    reader.Skip("descriptionUrl");
    ReadMisbehaviours(reader, true, device.misbehaviours);
    reader.RefuseUnknownKeys();
}

ordered_json TruthOf(const Camera& camera) {
    auto types = ordered_json::array();
    for (const auto& type : TypesOf(camera)) {
        types.push_back(TypeText(type));
    }
    ordered_json truth = {
        {"kind", "onvif"},
        {"name", camera.name},
        {"maker", camera.maker},
        {"ip", camera.hasIpv4 ? ordered_json(ToText(camera.ip)) : ordered_json()},
        {"ipv6", camera.ipv6 ? ordered_json(ToText(*camera.ipv6)) : ordered_json()},
        {"ipv6Only", !camera.hasIpv4},
        {"mac", ToText(camera.mac)},
        {"port", camera.port},
        {"foreign", camera.isForeign},
        {"hardware", camera.hardware},
        {"location", camera.location},
        {"uuid", camera.uuid},
        {"endpoint", EndpointOf(camera)},
        {"types", types},
        {"scopes", ScopesOf(camera)},
        {"xaddrs", XAddrsOf(camera)},
        {"metadataVersion", camera.metadataVersion},
        {"channels", camera.channels},
        {"shape", camera.shape},
        {"delayMs", nullptr},
        {"misbehaviours", KindsOf(camera.misbehaviours)},
        {"present", camera.isPresent},
        {"muted", camera.isMuted}};
    if (camera.delay) {
        truth["delayMs"] = camera.delay->count();
    }
    if (!camera.user.empty()) {
        truth.update({{"user", camera.user}, {"password", camera.password}});
    }
    if (!camera.stream.empty()) {
        truth["stream"] = camera.stream;
    }
    if (!camera.serviceFolder.empty()) {
        truth["service"] = camera.serviceFolder;
    }
    if (camera.clockOffset.count() != 0) {
        truth["clockOffset"] = camera.clockOffset.count();
    }
    if (camera.recordedReply) {
        truth["reply"] = ReplyText(*camera.recordedReply);
    }
    return truth;
}

ordered_json TruthOf(const UpnpDevice& device) {
    return {{"kind", "upnp"},
            {"name", device.name},
            {"maker", device.maker},
            {"model", device.model},
            {"ip", ToText(device.ip)},
            {"mac", ToText(device.mac)},
            {"port", device.port},
            {"type", TypeOf(device)},
            {"uuid", device.uuid},
            {"descriptionUrl", LocationOf(device)},
            {"misbehaviours", KindsOf(device.misbehaviours)},
            {"present", device.isPresent},
            {"muted", device.isMuted}};
}

}  // namespace lansim
