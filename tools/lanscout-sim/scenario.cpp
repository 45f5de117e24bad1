#include "tools/lanscout-sim/scenario.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <utility>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/devicejson.h"
#include "tools/lanscout-sim/jsonreader.h"

namespace lansim {
namespace {

using nlohmann::json;

std::string FolderOf(const std::string& fileName) {
    const auto slash = fileName.rfind('/');
    return slash == std::string::npos ? "" : fileName.substr(0, slash + 1);
}

// Reads the lists of a scenario, and keeps where each device stood for what is wrong between two.
class ScenarioReader {
public:
    explicit ScenarioReader(const std::string& source) : m_files{FolderOf(source)} {}

    Scenario Read(const json& document, const std::string& source) {
        JsonReader reader(document, source);
        std::string title;
        reader.Read("title", title);
        for (const auto& [item, place] : reader.ReadList("cameras")) {
            ReadOneCamera(*item, place);
        }
        for (const auto& [item, place] : reader.ReadList("upnp")) {
            ReadOneUpnpDevice(*item, place);
        }
        for (const auto& [item, place] : reader.ReadList("devices")) {
            ReadEither(*item, place);
        }
        for (const auto& [item, place] : reader.ReadList("timeline")) {
            JsonReader event(*item, place);
            m_scenario.timeline.push_back(ReadTimelineEvent(event));
        }
        reader.RefuseUnknownKeys();
        return std::move(m_scenario);
    }

private:
    void ReadOneCamera(const json& object, const std::string& place) {
        JsonReader reader(object, place);
        Camera camera;
        camera.maker = "Named";
        camera.hardware = "Camera";
        ReadCamera(reader, m_files, camera);
        RefuseSecondOwner(reader, camera.mac, camera.ip);
        m_scenario.cameras.push_back(std::move(camera));
    }

    void ReadOneUpnpDevice(const json& object, const std::string& place) {
        JsonReader reader(object, place);
        UpnpDevice device;
        device.name = "Device";
        device.maker = "Named";
        device.model = "Device";
        ReadUpnpDevice(reader, device);
        RefuseSecondOwner(reader, device.mac, device.ip);
        m_scenario.upnpDevices.push_back(std::move(device));
    }

    // As the truth of a run lists them: both kinds, each with its name.
    void ReadEither(const json& object, const std::string& place) {
        JsonReader reader(object, place);
        std::string kind;
        reader.Read("kind", kind);
        if (kind == "onvif") {
            ReadOneCamera(object, place);
        } else if (kind == "upnp") {
            ReadOneUpnpDevice(object, place);
        } else {
            reader.Fail("kind", fmt::format("\"{}\" is neither onvif nor upnp", kind));
        }
    }

    // One machine may be several devices at one address; two machines never share a MAC address.
    void RefuseSecondOwner(const JsonReader& reader, const Mac& mac, Ipv4 ip) {
        if (mac == Mac{}) {
            return;
        }
        const auto [owner, isFirst] = m_owners.try_emplace(mac, ip, reader.Place());
        if (!isFirst && owner->second.first != ip) {
            reader.Fail("mac", fmt::format("{} is that of {} as well, which has another address",
                                           ToText(mac), owner->second.second));
        }
    }

    DeviceFiles m_files;
    Scenario m_scenario;
    std::map<Mac, std::pair<Ipv4, std::string>> m_owners;  // the address, and the first one's path
};

}  // namespace

Scenario ParseScenario(const std::string& text, const std::string& source) {
    return ScenarioReader(source).Read(ParseJson(text, source), source);
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
