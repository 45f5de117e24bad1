#include "tools/lanscout-sim/population.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <set>
#include <utility>

#include "tools/lanscout-sim/base/random.h"
#include "tools/lanscout-sim/onvif/reply.h"

namespace lansim {
namespace {

struct Maker {
    std::string_view name;
    std::array<std::string_view, 3> models;
    std::uint16_t port;
    bool isDevice;  // whether its cameras also say that they are a tds:Device
};

// Invented names, one for each reply shape.
constexpr std::array<Maker, 5> kMakers = {{
    {"Velquora", {"VQ-2041", "VQ-3300-IR", "VQ Dome 4"}, 80, true},
    {"Ostrimar", {"OSM-B12", "OSM-T28Z", "OSM-PTZ 30x"}, 8080, false},
    {"Brindlecam", {"IPC-100", "IPC-220", "IPC-800/4K"}, 80, true},
    {"Quenlight", {"QL5M-Bullet", "QL8M-Turret", "QL2M-Door"}, 8899, false},
    {"Tarnvue", {"Tarn One", "Tarn Pro", "Tarn Outdoor+"}, 2020, true},
}};

struct CatalogueEntry {
    std::string_view name;
    std::string_view maker;
    std::string_view model;
    std::string_view kind;
};

// What else stands in a network, invented too.
constexpr std::array<CatalogueEntry, 4> kCatalogue = {{
    {"Gateway", "Pellworm", "GW-7", "InternetGatewayDevice"},
    {"Meeting Room TV", "Orrin", "OT-55", "MediaRenderer"},
    {"Attic Storage", "Stowell", "NS-220", "MediaServer"},
    {"Office Printer", "Papyr", "Laser 9", "Printer"},
}};

constexpr std::uint16_t kHttpPort = 80;
// Where those that come later look for a free address.
constexpr std::uint32_t kFirstAddedHost = 10;
// 192.168.77.10: where a camera often stands that was set up for somebody else's network.
constexpr Ipv4 kFirstForeign{0xC0A84D0A};
constexpr std::size_t kMostForeign = 200;
// The first of the dynamic ports, where UPnP stacks start looking.
constexpr std::uint16_t kUpnpPort = 49152;

constexpr std::array<std::string_view, 8> kPlaces = {
    "Main Gate", "Lobby", "Loading Dock", "Car Park North", "Roof", "Warehouse", "Corridor", "Yard",
};

// Locally administered, and one of its own for each address.
Mac MacFor(Ipv4 ip) {
    const auto byte = [&](unsigned shift) { return static_cast<std::uint8_t>(ip.value >> shift); };
    return {0x02, 0x4C, byte(24), byte(16), byte(8), byte(0)};
}

class Addresses {
public:
    Addresses(const Subnet& network, std::uint32_t firstHost)
        : m_network(network), m_next{network.Network().value + firstHost} {}

    void Take(const std::string& owner, Ipv4 ip) {
        if (!m_network.Contains(ip) || ip == m_network.Network() || ip == m_network.Broadcast()) {
            throw SetupError(
                fmt::format("{}: address {} is no host of the network {}; change it or "
                            "the network (--network), or say \"foreign\": true",
                            owner, ToText(ip), ToText(m_network)));
        }
        if (ip == m_network.address) {
            throw SetupError(fmt::format("{}: address {} is the searcher's own; give it another",
                                         owner, ToText(ip)));
        }
        TakeOnce(owner, ip);
    }

    void TakeForeign(const std::string& owner, Ipv4 ip) {
        if (m_network.Contains(ip)) {
            throw SetupError(fmt::format("{}: address {} is in the network {} and not foreign",
                                         owner, ToText(ip), ToText(m_network)));
        }
        TakeOnce(owner, ip);
    }

    Ipv4 TakeNextForeign() {
        while (m_taken.contains(m_nextForeign)) {
            ++m_nextForeign.value;
        }
        m_taken.insert(m_nextForeign);
        return m_nextForeign;
    }

    Ipv4 TakeNext(std::size_t wanted) {
        for (; m_next < m_network.Broadcast(); ++m_next.value) {
            const auto last = m_next.value & 255;
            if (last == 0 || last == 255 || m_next == m_network.address ||
                m_taken.contains(m_next)) {
                continue;
            }
            m_taken.insert(m_next);
            return m_next;
        }
        throw SetupError(
            fmt::format("{} devices do not fit into {}; give a larger network, as in "
                        "--network 10.99.0.1/16",
                        wanted, ToText(m_network)));
    }

private:
    void TakeOnce(const std::string& owner, Ipv4 ip) {
        if (!m_taken.insert(ip).second) {
            throw SetupError(fmt::format(
                "{}: address {} is taken by another device; give it another, or give each of "
                "those that share it a \"mac\" of its own",
                owner, ToText(ip)));
        }
    }

    Subnet m_network;
    Ipv4 m_next;
    Ipv4 m_nextForeign = kFirstForeign;
    std::set<Ipv4> m_taken;
};

void FillIn(Camera& camera, std::size_t number, const std::vector<unsigned>& shapes,
            Random& random) {
    const auto draw = random.Next();
    const auto shape =
        static_cast<unsigned>(shapes.empty() ? draw % ShapeCount() : shapes[draw % shapes.size()]);
    const auto model = random.Below(3);
    const auto uuid = random.Uuid();
    if (camera.uuid.empty()) {
        camera.uuid = uuid;
    }
    if (camera.maker.empty()) {
        const Maker& maker = kMakers.at(shape % kMakers.size());
        camera.maker = maker.name;
        camera.shape = shape;
        if (camera.hardware.empty()) {
            camera.hardware = maker.models.at(model);
        }
        camera.isDevice = camera.isDevice && maker.isDevice;
    }
    if (camera.name.empty()) {
        camera.name = fmt::format("{} {}", kPlaces.at(number % kPlaces.size()), number + 1);
    }
}

// Draws those that misbehave; one device misbehaves in one way at most.
template <typename Device>
void Distribute(const std::vector<MisbehaviourShare>& shares, std::vector<Device*> devices,
                const char* what, Random& random) {
    const auto total = static_cast<double>(devices.size());
    for (std::size_t i = devices.size(); i > 1; --i) {
        std::swap(devices[i - 1], devices[random.Below(i)]);
    }
    std::size_t next = 0;
    for (const auto& [kind, share] : shares) {
        auto count = static_cast<std::size_t>(std::lround(share * total));
        if (count == 0 && share > 0) {
            count = 1;
        }
        for (; count > 0; --count) {
            if (next == devices.size()) {
                throw SetupError(
                    fmt::format("the shares of --misbehave ask for more than the {} "
                                "generated {}; give less, or make more of them",
                                devices.size(), what));
            }
            devices[next++]->misbehaviours.insert(kind);
        }
    }
}

std::vector<MisbehaviourShare> SharesOf(const std::vector<MisbehaviourShare>& shares, bool ofUpnp) {
    std::vector<MisbehaviourShare> wanted;
    std::ranges::copy_if(shares, std::back_inserter(wanted),
                         [&](const auto& share) { return IsUpnp(share.kind) == ofUpnp; });
    return wanted;
}

template <typename Device>
std::vector<Device*> From(std::deque<Device>& devices, std::size_t first) {
    std::vector<Device*> pointers;
    for (std::size_t i = first; i < devices.size(); ++i) {
        pointers.push_back(&devices[i]);
    }
    return pointers;
}

void MakeCameras(const PopulationRequest& request, Addresses& addresses, Random& random,
                 std::deque<Camera>& cameras) {
    for (std::size_t i = 0; i < request.generated; ++i) {
        Camera camera;
        camera.port = 0;
        camera.isForeign = i + request.generatedForeign >= request.generated;
        cameras.push_back(camera);
    }
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        Camera& camera = cameras[i];
        if (camera.ip == Ipv4{}) {
            camera.ip =
                camera.isForeign ? addresses.TakeNextForeign() : addresses.TakeNext(cameras.size());
        }
        FillIn(camera, i, request.shapes, random);
        if (camera.port == 0) {
            camera.port = kMakers.at(camera.shape % kMakers.size()).port;
        }
        if (camera.location.empty() && i >= request.named.size()) {
            camera.location = kPlaces.at(i % kPlaces.size());
        }
        if (camera.mac == Mac{}) {
            camera.mac = MacFor(camera.ip);
        }
        const bool isGenerated = i >= request.named.size();
        if (!camera.ipv6 && (!camera.hasIpv4 || (isGenerated && request.ipv6 != Ipv6Use::None))) {
            camera.ipv6 = LinkLocalOf(camera.mac);
        }
        camera.hasIpv4 = camera.hasIpv4 && !(isGenerated && request.ipv6 == Ipv6Use::Only);
    }
    Distribute(SharesOf(request.shares, false), From(cameras, request.named.size()), "cameras",
               random);
}

UpnpDevice OtherSideOf(const Camera& camera) {
    UpnpDevice device;
    device.name = camera.name;
    device.maker = camera.maker;
    device.model = camera.hardware;
    device.ip = camera.ip;
    device.mac = camera.mac;
    return device;
}

UpnpDevice FromCatalogue(std::size_t number) {
    const CatalogueEntry& entry = kCatalogue.at(number % kCatalogue.size());
    UpnpDevice device;
    device.name = fmt::format("{} {}", entry.name, number + 1);
    device.maker = entry.maker;
    device.model = entry.model;
    device.kind = entry.kind;
    return device;
}

void GenerateUpnp(const PopulationRequest& request, const std::deque<Camera>& cameras,
                  std::deque<UpnpDevice>& devices) {
    std::size_t nextCamera = request.named.size();
    std::size_t nextOther = 0;
    for (std::size_t i = 0; i < request.generatedUpnp; ++i) {
        while (nextCamera < cameras.size() && !cameras[nextCamera].misbehaviours.empty()) {
            ++nextCamera;
        }
        const bool isCamera = i % 2 == 0 && nextCamera < cameras.size();
        devices.push_back(isCamera ? OtherSideOf(cameras[nextCamera++])
                                   : FromCatalogue(nextOther++));
    }
}

void Complete(UpnpDevice& device, const std::deque<Camera>& cameras, Addresses& addresses,
              Random& random) {
    const auto uuid = random.Uuid();
    if (device.uuid.empty()) {
        device.uuid = uuid;
    }
    if (device.ip == Ipv4{}) {
        device.ip = addresses.TakeNext(1);
    }
    const auto camera = std::ranges::find(cameras, device.ip, &Camera::ip);
    if (camera != cameras.end() && device.mac == Mac{}) {
        device.mac = camera->mac;
    }
    if (device.mac == Mac{}) {
        device.mac = MacFor(device.ip);
    }
    if (device.Does(Misbehaviour::UpnpLocationNoPort)) {
        device.port = kHttpPort;
    }
    if (device.port == 0) {
        device.port = kUpnpPort;
    }
}

// Whether an earlier device has the address too and each has said which MAC address it has there.
template <typename Device>
bool SharesWithAnEarlierOne(const std::deque<Device>& devices, std::size_t number) {
    const Device& device = devices[number];
    bool isShared = false;
    for (std::size_t i = 0; i < number; ++i) {
        if (devices[i].ip == device.ip) {
            isShared = true;
            if (devices[i].mac == Mac{} || devices[i].mac == device.mac) {
                return false;
            }
        }
    }
    return isShared && device.mac != Mac{};
}

void TakeNamedAddresses(const PopulationRequest& request, Addresses& addresses) {
    for (std::size_t i = 0; i < request.named.size(); ++i) {
        const Camera& camera = request.named[i];
        if (camera.ip == Ipv4{} || SharesWithAnEarlierOne(request.named, i)) {
            continue;
        }
        const std::string owner = "camera \"" + camera.name + "\"";
        camera.isForeign ? addresses.TakeForeign(owner, camera.ip)
                         : addresses.Take(owner, camera.ip);
    }
    for (std::size_t i = 0; i < request.namedUpnp.size(); ++i) {
        const UpnpDevice& device = request.namedUpnp[i];
        const bool isCamera = std::ranges::count(request.named, device.ip, &Camera::ip) > 0;
        if (device.ip != Ipv4{} && !isCamera && !SharesWithAnEarlierOne(request.namedUpnp, i)) {
            addresses.Take("UPnP device \"" + device.name + "\"", device.ip);
        }
    }
}

template <typename Device>
void CompleteIdentity(Device& device, const Population& population, const Subnet& network) {
    const std::size_t number = population.cameras.size() + population.upnpDevices.size() + 1;
    if (device.uuid.empty()) {
        device.uuid = Random(KeyOf("added"), {number}).Uuid();
    }
    if (device.name.empty()) {
        device.name = fmt::format("Added {}", number);
    }
    if (device.ip == Ipv4{}) {
        std::set<Ipv4> taken = {network.address};
        std::ranges::transform(population.cameras, std::inserter(taken, taken.end()), &Camera::ip);
        std::ranges::transform(population.upnpDevices, std::inserter(taken, taken.end()),
                               &UpnpDevice::ip);
        device.ip = {network.Network().value + kFirstAddedHost};
        while (taken.contains(device.ip)) {
            ++device.ip.value;
        }
        if (!(device.ip < network.Broadcast())) {
            throw SetupError(fmt::format("{} is full", ToText(network)));
        }
    }
    if (device.mac == Mac{}) {
        device.mac = MacFor(device.ip);
    }
}

}  // namespace

Population MakePopulation(const PopulationRequest& request) {
    if (request.generatedForeign > kMostForeign) {
        throw SetupError(
            fmt::format("at most {} cameras fit into the foreign subnet", kMostForeign));
    }
    Random random(request.seed);
    Addresses addresses(request.network, request.firstHost);
    Population population{request.named, request.namedUpnp};
    TakeNamedAddresses(request, addresses);
    MakeCameras(request, addresses, random, population.cameras);
    auto& devices = population.upnpDevices;
    GenerateUpnp(request, population.cameras, devices);
    Distribute(SharesOf(request.shares, true), From(devices, request.namedUpnp.size()),
               "UPnP devices", random);
    for (auto& device : devices) {
        Complete(device, population.cameras, addresses, random);
    }
    return population;
}

void CompleteAdded(Camera& camera, const Population& population, const Subnet& network) {
    CompleteIdentity(camera, population, network);
}

void CompleteAdded(UpnpDevice& device, const Population& population, const Subnet& network) {
    CompleteIdentity(device, population, network);
    if (device.port == 0) {
        device.port = kUpnpPort;
    }
}

}  // namespace lansim
