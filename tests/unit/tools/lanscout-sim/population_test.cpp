#include "tools/lanscout-sim/population.h"

#include <gmock/gmock.h>

#include <set>

#include "tools/lanscout-sim/base/misbehaviour.h"

using lansim::Camera;
using lansim::MakePopulation;
using lansim::Misbehaviour;
using lansim::PopulationRequest;
using lansim::SetupError;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::ThrowsMessage;

namespace {

std::deque<Camera> MakeCameras(const PopulationRequest& request) {
    return MakePopulation(request).cameras;
}

PopulationRequest Request(std::size_t generated) {
    PopulationRequest request;
    request.network = *lansim::ParseSubnet("10.99.0.1/16");
    request.generated = generated;
    return request;
}

Camera Named(const std::string& ip) {
    Camera camera;
    camera.name = "Gate";
    camera.maker = "Own";
    camera.hardware = "H";
    camera.ip = *lansim::ParseIpv4(ip);
    return camera;
}

std::size_t CountOf(const std::deque<Camera>& cameras, Misbehaviour kind) {
    return static_cast<std::size_t>(
        std::ranges::count_if(cameras, [&](const Camera& camera) { return camera.Does(kind); }));
}

TEST(SimPopulation, AddressesCountUpAndSkipWhatNoHostHas) {
    const auto cameras = MakeCameras(Request(250));
    EXPECT_EQ(ToText(cameras.front().ip), "10.99.0.10");
    EXPECT_EQ(ToText(cameras[244].ip), "10.99.0.254");
    EXPECT_EQ(ToText(cameras[245].ip), "10.99.1.1");
}

TEST(SimPopulation, FiveThousandHaveAddressesMacsAndUuidsOfTheirOwn) {
    const auto cameras = MakeCameras(Request(5000));
    std::set<lansim::Ipv4> ips;
    std::set<lansim::Mac> macs;
    std::set<std::string> uuids;
    for (const auto& camera : cameras) {
        ips.insert(camera.ip);
        macs.insert(camera.mac);
        uuids.insert(camera.uuid);
        EXPECT_EQ(camera.mac[0] & 3, 2) << "locally administered, no group";
        EXPECT_NE(camera.port, 0);
    }
    EXPECT_THAT(ips, SizeIs(5000));
    EXPECT_THAT(macs, SizeIs(5000));
    EXPECT_THAT(uuids, SizeIs(5000));
}

TEST(SimPopulation, SeedRepeats) {
    auto request = Request(50);
    const auto first = MakeCameras(request);
    const auto second = MakeCameras(request);
    request.seed = 2;
    const auto other = MakeCameras(request);
    std::size_t differing = 0;
    for (std::size_t i = 0; i < first.size(); ++i) {
        EXPECT_EQ(first[i].uuid, second[i].uuid);
        EXPECT_EQ(first[i].hardware, second[i].hardware);
        differing += first[i].uuid != other[i].uuid ? 1 : 0;
    }
    EXPECT_EQ(differing, 50U);
}

TEST(SimPopulation, SharesAreExactAndFallOnDifferentCameras) {
    auto request = Request(100);
    request.shares = {{Misbehaviour::NotXml, 0.1}, {Misbehaviour::NoArp, 0.25}};
    const auto cameras = MakeCameras(request);
    EXPECT_EQ(CountOf(cameras, Misbehaviour::NotXml), 10U);
    EXPECT_EQ(CountOf(cameras, Misbehaviour::NoArp), 25U);
    for (const auto& camera : cameras) {
        EXPECT_LE(camera.misbehaviours.size(), 1U);
    }
}

TEST(SimPopulation, SmallestShareIsOneCamera) {
    auto request = Request(10);
    request.shares = {{Misbehaviour::NotXml, 0.001}};
    EXPECT_EQ(CountOf(MakeCameras(request), Misbehaviour::NotXml), 1U);
}

TEST(SimPopulation, SharesBeyondTheWholeAreRefused) {
    auto request = Request(10);
    request.shares = {{Misbehaviour::NotXml, 0.6}, {Misbehaviour::NoArp, 0.6}};
    EXPECT_THAT([&] { MakeCameras(request); },
                ThrowsMessage<SetupError>(HasSubstr("more than the 10 generated cameras")));
}

TEST(SimPopulation, AddressIsSharedByThoseWhoSayTheirMac) {
    auto request = Request(0);
    request.named = {Named("10.99.1.5"), Named("10.99.1.5")};
    request.named[0].mac = {2, 0, 0, 0, 0, 1};
    request.named[1].mac = {2, 0, 0, 0, 0, 2};
    EXPECT_THAT(MakeCameras(request), SizeIs(2));
    request.named[1].mac = request.named[0].mac;
    EXPECT_THAT([&] { MakeCameras(request); },
                ThrowsMessage<SetupError>(HasSubstr("10.99.1.5 is taken by another device")));
    request.named[1].mac = {};
    EXPECT_THAT([&] { MakeCameras(request); },
                ThrowsMessage<SetupError>(HasSubstr("\"mac\" of its own")));
}

TEST(SimPopulation, ForeignCamerasAreTheLastGeneratedAndOfAnotherSubnet) {
    auto request = Request(5);
    request.generatedForeign = 2;
    const auto cameras = MakeCameras(request);
    EXPECT_EQ(ToText(cameras[2].ip), "10.99.0.12");
    EXPECT_FALSE(cameras[2].isForeign);
    EXPECT_EQ(ToText(cameras[3].ip), "192.168.77.10");
    EXPECT_EQ(ToText(cameras[4].ip), "192.168.77.11");
    EXPECT_TRUE(cameras[4].isForeign);
    request.generatedForeign = 201;
    EXPECT_THAT([&] { MakeCameras(request); },
                ThrowsMessage<SetupError>(HasSubstr("at most 200 cameras")));
}

TEST(SimPopulation, LinkLocalAddressIsMadeOfTheMac) {
    auto request = Request(1);
    EXPECT_FALSE(MakeCameras(request)[0].ipv6);
    request.ipv6 = lansim::Ipv6Use::Also;
    const auto both = MakeCameras(request)[0];
    EXPECT_EQ(lansim::ToText(both.mac), "02:4C:0A:63:00:0A");
    EXPECT_EQ(lansim::ToText(*both.ipv6), "fe80::4c:aff:fe63:a");
    EXPECT_TRUE(both.hasIpv4);
    request.ipv6 = lansim::Ipv6Use::Only;
    EXPECT_FALSE(MakeCameras(request)[0].hasIpv4);
}

TEST(SimPopulation, NamedCameraKeepsItsIpv6AndGetsOneWhenItHasNothingElse) {
    auto request = Request(0);
    request.ipv6 = lansim::Ipv6Use::Also;  // of the generated ones
    request.named = {Named("10.99.1.1"), Named("10.99.1.2"), Named("10.99.1.3")};
    request.named[1].ipv6 = lansim::ParseIpv6("fe80::1");
    request.named[2].hasIpv4 = false;
    const auto cameras = MakeCameras(request);
    EXPECT_FALSE(cameras[0].ipv6);
    EXPECT_EQ(lansim::ToText(*cameras[1].ipv6), "fe80::1");
    EXPECT_TRUE(cameras[2].ipv6);
    EXPECT_FALSE(cameras[2].hasIpv4);
}

TEST(SimPopulation, NamedCameraIsForeignOnlyWhereItSaysSo) {
    auto request = Request(0);
    request.named = {Named("192.168.77.10")};
    EXPECT_THAT([&] { MakeCameras(request); },
                ThrowsMessage<SetupError>(HasSubstr("is no host of the network")));
    request.named[0].isForeign = true;
    EXPECT_EQ(ToText(MakeCameras(request)[0].ip), "192.168.77.10");
    request.named[0].ip = *lansim::ParseIpv4("10.99.0.20");
    EXPECT_THAT([&] { MakeCameras(request); },
                ThrowsMessage<SetupError>(HasSubstr("is in the network 10.99.0.1/16")));
}

TEST(SimPopulation, GeneratedCamerasGoRoundNamedOnes) {
    auto request = Request(2);
    request.named = {Named("10.99.0.11")};
    const auto cameras = MakeCameras(request);
    EXPECT_EQ(cameras[0].name, "Gate");
    EXPECT_EQ(ToText(cameras[1].ip), "10.99.0.10");
    EXPECT_EQ(ToText(cameras[2].ip), "10.99.0.12");
}

TEST(SimPopulation, ImpossibleAddressesAreNamed) {
    auto request = Request(0);
    request.named = {Named("10.99.0.11"), Named("10.99.0.11")};
    EXPECT_THAT([&] { MakeCameras(request); },
                ThrowsMessage<SetupError>(HasSubstr("10.99.0.11 is taken")));
    request.named = {Named("10.99.0.1")};
    EXPECT_THAT([&] { MakeCameras(request); },
                ThrowsMessage<SetupError>(HasSubstr("the searcher's own")));
    request.named = {Named("192.168.1.5")};
    EXPECT_THAT([&] { MakeCameras(request); },
                ThrowsMessage<SetupError>(HasSubstr("no host of the network 10.99.0.1/16")));
}

TEST(SimPopulation, TooSmallANetworkIsRefused) {
    auto request = Request(300);
    request.network = *lansim::ParseSubnet("10.99.0.1/24");
    EXPECT_THAT([&] { MakeCameras(request); }, ThrowsMessage<SetupError>(HasSubstr("do not fit")));
}

TEST(SimPopulation, EveryOtherUpnpDeviceIsACameraThatBehaves) {
    auto request = Request(6);
    request.generatedUpnp = 6;
    request.shares = {{Misbehaviour::NotXml, 0.5}};
    const auto population = MakePopulation(request);
    ASSERT_THAT(population.upnpDevices, SizeIs(6));
    std::size_t shared = 0;
    for (const auto& device : population.upnpDevices) {
        const auto camera = std::ranges::find(population.cameras, device.ip, &Camera::ip);
        if (camera == population.cameras.end()) {
            continue;
        }
        ++shared;
        EXPECT_EQ(device.mac, camera->mac);
        EXPECT_EQ(device.name, camera->name);
        EXPECT_TRUE(camera->misbehaviours.empty());
    }
    EXPECT_EQ(shared, 3U);
}

TEST(SimPopulation, SharesOfUpnpKindsFallOnUpnpDevicesOnly) {
    auto request = Request(4);
    request.generatedUpnp = 4;
    request.shares = {{Misbehaviour::UpnpFlood, 0.5}};
    const auto population = MakePopulation(request);
    EXPECT_EQ(CountOf(population.cameras, Misbehaviour::UpnpFlood), 0U);
    EXPECT_EQ(std::ranges::count_if(
                  population.upnpDevices,
                  [](const auto& device) { return device.Does(Misbehaviour::UpnpFlood); }),
              2);
}

TEST(SimPopulation, LocationWithoutPortIsServedAtPortEighty) {
    auto request = Request(0);
    request.generatedUpnp = 1;
    request.shares = {{Misbehaviour::UpnpLocationNoPort, 1}};
    EXPECT_EQ(MakePopulation(request).upnpDevices.at(0).port, 80);
}

TEST(SimMisbehaviour, ShareIsAFractionOrAPercentage) {
    EXPECT_DOUBLE_EQ(lansim::ParseMisbehaviourShare("not-xml=0.25").value->share, 0.25);
    EXPECT_DOUBLE_EQ(lansim::ParseMisbehaviourShare("not-xml=25%").value->share, 0.25);
    EXPECT_DOUBLE_EQ(lansim::ParseMisbehaviourShare("not-xml=1").value->share, 1);
}

TEST(SimMisbehaviour, WrongSharesAreExplained) {
    EXPECT_THAT(lansim::ParseMisbehaviourShare("odd=1").error, HasSubstr("names no misbehaviour"));
    EXPECT_THAT(lansim::ParseMisbehaviourShare("no-arp").error, HasSubstr("lacks its share"));
    for (const char* text : {"no-arp=", "no-arp=2", "no-arp=-1", "no-arp=nan", "no-arp=5%x"}) {
        EXPECT_THAT(lansim::ParseMisbehaviourShare(text).error, HasSubstr("is not 0 to 1"));
    }
}

TEST(SimMisbehaviour, EveryKindIsFoundByItsName) {
    for (const auto& entry : lansim::MisbehaviourNames()) {
        EXPECT_EQ(lansim::MisbehaviourNamed(entry.name), entry.kind);
        EXPECT_EQ(lansim::NameOf(entry.kind), entry.name);
    }
}

}  // namespace
