#include "tools/lanscout-sim/scenario.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/onvif/reply.h"

namespace lansim {
namespace {

using nlohmann::json;

// Reads one object and knows where it stands, so that every complaint names its place.
class Reader {
public:
    Reader(const json& object, std::string place) : m_object(object), m_place(std::move(place)) {
        if (!object.is_object()) {
            Fail("is no object");
        }
    }

    [[noreturn]] void Fail(const std::string& what) const {
        throw SetupError(fmt::format("{}: {}", m_place, what));
    }

    template <typename T>
    void Read(const char* key, T& value) {
        m_known.emplace_back(key);
        const auto found = m_object.find(key);
        if (found == m_object.end()) {
            return;
        }
        try {
            found->get_to(value);
        } catch (const json::exception&) {
            Fail(fmt::format("\"{}\" has a value of the wrong kind: {}", key, found->dump()));
        }
    }

    template <typename T, typename Parse>
    void ReadText(const char* key, T& value, Parse parse, const char* shape) {
        std::string text;
        Read(key, text);
        if (text.empty()) {
            return;
        }
        const auto parsed = parse(text);
        if (!parsed) {
            Fail(fmt::format("\"{}\" is \"{}\"; it takes {}", key, text, shape));
        }
        value = *parsed;
    }

    // A misspelt key would otherwise be a setting that silently does nothing.
    void RefuseUnknownKeys() const {
        for (const auto& [key, value] : m_object.items()) {
            if (std::ranges::find(m_known, key) == m_known.end()) {
                Fail(fmt::format("\"{}\" is not known here; known are {}", key,
                                 fmt::join(m_known, ", ")));
            }
        }
    }

private:
    const json& m_object;
    std::string m_place;
    std::vector<std::string> m_known;
};

void ReadTypes(Reader& reader, Camera& camera) {
    std::vector<std::string> types = {"NetworkVideoTransmitter", "Device"};
    reader.Read("types", types);
    const auto has = [&](const char* name) { return std::erase(types, name) > 0; };
    camera.isVideoTransmitter = has("NetworkVideoTransmitter");
    camera.isDevice = has("Device");
    if (!types.empty()) {
        reader.Fail(
            fmt::format("type \"{}\" is not known; known are NetworkVideoTransmitter and "
                        "Device",
                        types.front()));
    }
}

std::set<Misbehaviour> ReadMisbehaviours(Reader& reader, bool ofUpnp) {
    std::set<Misbehaviour> kinds;
    std::vector<std::string> names;
    reader.Read("misbehave", names);
    for (const auto& name : names) {
        const auto kind = MisbehaviourNamed(name);
        if (!kind || IsUpnp(*kind) != ofUpnp) {
            reader.Fail(
                fmt::format("misbehaviour \"{}\" is not known here; lanscout-sim --help lists "
                            "them",
                            name));
        }
        kinds.insert(*kind);
    }
    return kinds;
}

// What a camera and a UPnP device have alike.
template <typename Device>
void ReadIdentity(Reader& reader, Device& device) {
    reader.Read("name", device.name);
    reader.Read("maker", device.maker);
    reader.Read("uuid", device.uuid);
    reader.Read("port", device.port);
    reader.ReadText("ip", device.ip, ParseIpv4, "an IPv4 address");
    reader.ReadText("mac", device.mac, ParseMac, "a MAC address as 02:4C:00:00:00:01");
}

Camera ReadCamera(const json& object, const std::string& place) {
    Reader reader(object, place);
    Camera camera;
    camera.maker = "Named";
    camera.hardware = "Camera";
    ReadIdentity(reader, camera);
    reader.Read("hardware", camera.hardware);
    reader.Read("location", camera.location);
    reader.Read("shape", camera.shape);
    reader.Read("foreign", camera.isForeign);
    reader.ReadText("ipv6", camera.ipv6, ParseIpv6, "an IPv6 address");
    bool ipv6Only = false;
    reader.Read("ipv6Only", ipv6Only);
    camera.hasIpv4 = !ipv6Only;
    reader.Read("xaddrs", camera.xaddrs);
    reader.Read("scopes", camera.scopes);
    ReadTypes(reader, camera);
    camera.misbehaviours = ReadMisbehaviours(reader, false);
    reader.RefuseUnknownKeys();
    if (camera.shape >= ShapeCount()) {
        reader.Fail(
            fmt::format("\"shape\" is {}; it takes 0 to {}", camera.shape, ShapeCount() - 1));
    }
    return camera;
}

UpnpDevice ReadUpnpDevice(const json& object, const std::string& place) {
    Reader reader(object, place);
    UpnpDevice device;
    device.name = "Device";
    device.maker = "Named";
    device.model = "Device";
    ReadIdentity(reader, device);
    reader.Read("model", device.model);
    reader.Read("kind", device.kind);
    device.misbehaviours = ReadMisbehaviours(reader, true);
    reader.RefuseUnknownKeys();
    return device;
}

}  // namespace

Scenario ParseScenario(const std::string& text, const std::string& source) {
    json document;
    try {
        document = json::parse(text, nullptr, true, true);
    } catch (const json::parse_error& error) {
        throw SetupError(fmt::format("{}: not JSON: {}", source, error.what()));
    }
    Reader reader(document, source);
    std::vector<json> cameras;
    std::string title;
    reader.Read("title", title);
    reader.Read("cameras", cameras);
    std::vector<json> upnpDevices;
    reader.Read("upnp", upnpDevices);
    reader.RefuseUnknownKeys();

    Scenario scenario;
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        scenario.cameras.push_back(
            ReadCamera(cameras[i], fmt::format("{}: cameras[{}]", source, i)));
    }
    for (std::size_t i = 0; i < upnpDevices.size(); ++i) {
        scenario.upnpDevices.push_back(
            ReadUpnpDevice(upnpDevices[i], fmt::format("{}: upnp[{}]", source, i)));
    }
    return scenario;
}

Scenario ReadScenario(const std::string& fileName) {
    std::ifstream file(fileName);
    if (!file) {
        throw SetupError(
            fmt::format("cannot open the scenario {}: {}", fileName, std::strerror(errno)));
    }
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return ParseScenario(text, fileName);
}

}  // namespace lansim
