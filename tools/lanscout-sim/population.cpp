#include "tools/lanscout-sim/population.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <random>
#include <set>
#include <utility>

#include "tools/lanscout-sim/reply.h"
#include "tools/lanscout-sim/uuid.h"

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
        if (!m_network.Contains(ip) || ip == m_network.Network() || ip == m_network.Broadcast())
            throw SetupError(
                fmt::format("{}: address {} is no host of the network {}; change it or "
                            "the network (--network)",
                            owner, ToText(ip), ToText(m_network)));
        if (ip == m_network.address)
            throw SetupError(fmt::format("{}: address {} is the searcher's own; give it another",
                                         owner, ToText(ip)));
        if (!m_taken.insert(ip).second)
            throw SetupError(
                fmt::format("{}: address {} is taken by another device", owner, ToText(ip)));
    }

    Ipv4 TakeNext(std::size_t wanted) {
        for (; m_next < m_network.Broadcast(); ++m_next.value) {
            const auto last = m_next.value & 255;
            if (last == 0 || last == 255 || m_next == m_network.address || m_taken.contains(m_next))
                continue;
            m_taken.insert(m_next);
            return m_next;
        }
        throw SetupError(
            fmt::format("{} cameras do not fit into {}; give a larger network, as in "
                        "--network 10.99.0.1/16",
                        wanted, ToText(m_network)));
    }

private:
    Subnet m_network;
    Ipv4 m_next;
    std::set<Ipv4> m_taken;
};

void FillIn(Camera& camera, std::size_t number, std::mt19937_64& random) {
    const auto shape = static_cast<unsigned>(random() % ShapeCount());
    const auto model = random() % 3;
    const auto uuid = RandomUuid(random);
    if (camera.uuid.empty())
        camera.uuid = uuid;
    if (camera.maker.empty()) {
        const Maker& maker = kMakers.at(shape % kMakers.size());
        camera.maker = maker.name;
        camera.shape = shape;
        if (camera.hardware.empty())
            camera.hardware = maker.models.at(model);
        camera.isDevice = camera.isDevice && maker.isDevice;
    }
    if (camera.name.empty())
        camera.name = fmt::format("{} {}", kPlaces.at(number % kPlaces.size()), number + 1);
}

// Draws the cameras that misbehave; one camera misbehaves in one way at most.
void Distribute(const std::vector<MisbehaviourShare>& shares, std::vector<Camera*> cameras,
                std::mt19937_64& random) {
    const auto total = static_cast<double>(cameras.size());
    for (std::size_t i = cameras.size(); i > 1; --i)
        std::swap(cameras[i - 1], cameras[random() % i]);
    std::size_t next = 0;
    for (const auto& [kind, share] : shares) {
        auto count = static_cast<std::size_t>(std::lround(share * total));
        if (count == 0 && share > 0)
            count = 1;
        for (; count > 0; --count) {
            if (next == cameras.size())
                throw SetupError(
                    fmt::format("the shares of --misbehave ask for more than the {} "
                                "generated cameras; give less or raise --cameras",
                                cameras.size()));
            cameras[next++]->misbehaviours.insert(kind);
        }
    }
}

}  // namespace

std::vector<Camera> MakeCameras(const PopulationRequest& request) {
    std::mt19937_64 random(request.seed);
    Addresses addresses(request.network, request.firstHost);
    std::vector<Camera> cameras = request.named;
    for (const auto& camera : cameras) {
        if (camera.ip != Ipv4{})
            addresses.Take("camera \"" + camera.name + "\"", camera.ip);
    }
    for (std::size_t i = 0; i < request.generated; ++i) {
        Camera camera;
        camera.port = 0;
        cameras.push_back(camera);
    }
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        Camera& camera = cameras[i];
        if (camera.ip == Ipv4{})
            camera.ip = addresses.TakeNext(cameras.size());
        FillIn(camera, i, random);
        if (camera.port == 0)
            camera.port = kMakers.at(camera.shape % kMakers.size()).port;
        if (camera.location.empty() && i >= request.named.size())
            camera.location = kPlaces.at(i % kPlaces.size());
        if (camera.mac == Mac{})
            camera.mac = MacFor(camera.ip);
    }
    std::vector<Camera*> generated;
    for (std::size_t i = request.named.size(); i < cameras.size(); ++i)
        generated.push_back(&cameras[i]);
    Distribute(request.shares, std::move(generated), random);
    return cameras;
}

}  // namespace lansim
