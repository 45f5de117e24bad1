#include "tools/lanscout-sim/stage.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tools/lanscout-sim/onvif/reply.h"
#include "tools/lanscout-sim/report.h"

namespace lansim {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr std::size_t kMostDevices = 100000;

bool IsNamed(const Camera& camera, const std::string& text) {
    return camera.uuid == text || EndpointOf(camera) == text || camera.name == text ||
           ToText(camera.ip) == text;
}

bool IsNamed(const UpnpDevice& device, const std::string& text) {
    return device.uuid == text || "uuid:" + device.uuid == text || device.name == text ||
           ToText(device.ip) == text;
}

// The first one present, else the first one.
template <typename Device>
Device* FindIn(std::deque<Device>& devices, const std::string& text) {
    Device* found = nullptr;
    for (auto& device : devices) {
        if (IsNamed(device, text) && (found == nullptr || !found->isPresent)) {
            found = &device;
            if (found->isPresent) {
                break;
            }
        }
    }
    return found;
}

void Restart(Camera& camera) {
    ++camera.instanceId;
    camera.messageNumber = 0;
}

void Restart(UpnpDevice& device) {
    ++device.starts;
}

bool SaysTheSame(const Camera& one, const Camera& other) {
    return BuildHello(one, {}) == BuildHello(other, {});
}

bool SaysTheSame(const UpnpDevice& one, const UpnpDevice& other) {
    return LocationOf(one) == LocationOf(other) && DescriptionOf(one) == DescriptionOf(other);
}

// What others keep of a device changes with what it says.
void CountUp(Camera& camera) {
    ++camera.metadataVersion;
}

void CountUp(UpnpDevice&) {}

void ReadInto(JsonReader& reader, Camera& camera) {
    ReadCamera(reader, {}, camera);
}

void ReadInto(JsonReader& reader, UpnpDevice& device) {
    ReadUpnpDevice(reader, device);
}

}  // namespace

Stage::Stage(Population& population, const Subnet& network, Responder& cameras, UpnpResponder& upnp,
             std::function<void()> onHosts)
    : m_population(population),
      m_network(network),
      m_cameras(cameras),
      m_upnp(upnp),
      m_onHosts(std::move(onHosts)) {}

Stage::Found Stage::Find(const std::string& device) const {
    Camera* camera = FindIn(m_population.cameras, device);
    UpnpDevice* upnp = FindIn(m_population.upnpDevices, device);
    if (camera != nullptr && (camera->isPresent || upnp == nullptr || !upnp->isPresent)) {
        return camera;
    }
    if (upnp != nullptr) {
        return upnp;
    }
    throw UnknownDevice(fmt::format("no device has the uuid, name or address \"{}\"", device));
}

ordered_json Stage::Truth() const {
    return lansim::Truth(m_population);
}

ordered_json Stage::TruthAbout(const std::string& device) const {
    return std::visit([](auto* found) { return TruthOf(*found); }, Find(device));
}

void Stage::NoticeHosts() {
    m_cameras.NoticeChanges();
    m_onHosts();
}

void Stage::Announce(Camera& camera, bool isHello, TimePoint now) {
    isHello ? m_cameras.SayHello(camera, now) : m_cameras.SayBye(camera, now);
}

void Stage::Announce(UpnpDevice& device, bool isHello, TimePoint now) {
    isHello ? m_upnp.SayAlive(device, now) : m_upnp.SayByebye(device, now);
}

void Stage::Announce(const std::string& device, bool isHello, TimePoint now) {
    std::visit(
        [&](auto* found) {
            if (!found->isPresent) {
                throw SetupError(fmt::format("the device \"{}\" is not there", device));
            }
            Announce(*found, isHello, now);
        },
        Find(device));
}

template <typename Device>
void Stage::SetPresent(Device& device, bool isPresent, TimePoint now) {
    if (device.isPresent == isPresent) {
        throw SetupError(fmt::format("the device \"{}\" is {} already", device.name,
                                     isPresent ? "there" : "gone"));
    }
    if (!isPresent) {
        Announce(device, false, now);
        device.isPresent = false;
        NoticeHosts();
        return;
    }
    Check(device, &device);
    device.isPresent = true;
    try {
        NoticeHosts();
    } catch (const SetupError&) {
        device.isPresent = false;
        throw;
    }
    Restart(device);
    Announce(device, true, now);
}

void Stage::Leave(const std::string& device, TimePoint now) {
    std::visit([&](auto* found) { SetPresent(*found, false, now); }, Find(device));
}

void Stage::Join(const std::string& device, TimePoint now) {
    std::visit([&](auto* found) { SetPresent(*found, true, now); }, Find(device));
}

// Whether the device may stand where it says; `former` is what it was before.
template <typename Device>
void Stage::Check(const Device& device, const void* former) const {
    const auto fail = [](const std::string& member, const std::string& what) {
        throw SetupError(fmt::format("{}: {}", member, what));
    };
    if (device.ip == Ipv4{}) {
        fail("ip", "is missing");
    }
    bool isForeign = false;
    if constexpr (std::is_same_v<Device, Camera>) {
        isForeign = device.isForeign;
    }
    if (device.ip == m_network.address || (m_network.Contains(device.ip) == isForeign)) {
        fail("ip", fmt::format("{} is no host of {} that a device may have", ToText(device.ip),
                               ToText(m_network)));
    }
    const auto isTaken = [&](const auto& other) {
        using Other = std::decay_t<decltype(other)>;
        const bool isSameKind = std::is_same_v<Other, Device>;
        const bool isItself = static_cast<const void*>(&other) == former;
        return !isItself && other.isPresent && other.mac == device.mac &&
               (isSameKind || other.ip != device.ip);
    };
    if (std::ranges::any_of(m_population.cameras, isTaken) ||
        std::ranges::any_of(m_population.upnpDevices, isTaken)) {
        fail("mac",
             fmt::format("{} at {} is another device's", ToText(device.mac), ToText(device.ip)));
    }
}

template <typename Device>
ordered_json Stage::Apply(Device& device, Device changed, TimePoint now) {
    const bool shallBePresent = changed.isPresent;
    changed.isPresent = device.isPresent;
    Check(changed, &device);
    const bool isNews = device.isPresent && !SaysTheSame(device, changed);
    const bool hasMoved = device.isPresent && changed.ip != device.ip;
    if (hasMoved) {
        Announce(device, false, now);
    }
    const Device former = device;
    device = std::move(changed);
    try {
        NoticeHosts();
    } catch (const SetupError&) {
        device = former;
        NoticeHosts();
        throw;
    }
    if (isNews) {
        hasMoved ? Restart(device) : CountUp(device);
    }
    if (shallBePresent != device.isPresent) {
        SetPresent(device, shallBePresent, now);
    } else if (isNews && !device.isMuted) {
        Announce(device, true, now);
    }
    return TruthOf(device);
}

ordered_json Stage::Change(const std::string& device, const json& changes, TimePoint now) {
    return std::visit(
        [&](auto* found) {
            auto changed = *found;
            JsonReader reader(changes, "device");
            ReadInto(reader, changed);
            return Apply(*found, std::move(changed), now);
        },
        Find(device));
}

ordered_json Stage::Add(const json& object, TimePoint now) {
    if (m_population.cameras.size() + m_population.upnpDevices.size() >= kMostDevices) {
        throw SetupError(fmt::format("there are {} devices, and no more may come", kMostDevices));
    }
    JsonReader reader(object, "device");
    std::string kind = "onvif";
    reader.Read("kind", kind);
    if (kind == "upnp") {
        UpnpDevice device;
        ReadInto(reader, device);
        CompleteAdded(device, m_population, m_network);
        return Join(m_population.upnpDevices, std::move(device), now);
    }
    if (kind != "onvif") {
        reader.Fail("kind", fmt::format("\"{}\" is neither onvif nor upnp", kind));
    }
    Camera camera;
    camera.maker = "Named";
    camera.hardware = "Camera";
    ReadInto(reader, camera);
    CompleteAdded(camera, m_population, m_network);
    return Join(m_population.cameras, std::move(camera), now);
}

template <typename Device>
ordered_json Stage::Join(std::deque<Device>& devices, Device device, TimePoint now) {
    Check(device, static_cast<const void*>(nullptr));
    const bool shallBePresent = device.isPresent;
    device.isPresent = false;
    devices.push_back(std::move(device));
    if (shallBePresent) {
        try {
            SetPresent(devices.back(), true, now);
        } catch (const SetupError&) {
            devices.pop_back();
            m_cameras.NoticeChanges();
            throw;
        }
    }
    return TruthOf(devices.back());
}

}  // namespace lansim
