#include "finder/device/inventory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "finder/device/devicejson.h"

using namespace Lanscout;
using Change = Inventory::Change;

namespace {

const Target kFirst{"eth0", "192.168.1.2"};
const Target kSecond{"eth1", "192.168.2.2"};
constexpr char kMac[] = "00:1B:FF:01:02:03";
constexpr char kOtherMac[] = "00:1B:FF:01:02:04";
constexpr std::time_t kNow = 1'700'000'000;

std::string NoMaker(const std::string& /*mac*/) {
    return {};
}

class List : public Inventory {
public:
    List() : Inventory(&NoMaker) {}

    // Settled at once, as if the sightings were seconds apart.
    std::vector<News> See(const Sighting& sighting) {
        EXPECT_TRUE(Add(sighting, kNow));
        return Settle();
    }

    std::vector<Device> Sorted() {
        SettleAll();
        std::vector<Device> devices(Devices().begin(), Devices().end());
        SortDevices(devices, *FieldNamed("mac"));
        SortDevices(devices, *FieldNamed("ip"));
        return devices;
    }
};

Sighting Onvif(const std::string& ip, const std::string& mac = "", const std::string& uuid = "",
               const Target& via = kFirst) {
    Sighting sighting{SourceId::Probes, via, {}};
    Device& device = sighting.device;
    device.protocols.onvif = true;
    (ip.find(':') == std::string::npos ? device.ip : device.ipv6.emplace_back()) = ip;
    device.port = 80;
    device.mac = mac;
    device.uuid = uuid;
    return sighting;
}

Sighting Upnp(const std::string& ip, const std::string& name, const std::string& udn = "",
              const Target& via = kFirst) {
    Sighting sighting{SourceId::UpnpSearch, via, {}};
    Device& device = sighting.device;
    device.protocols.upnp = true;
    device.ip = ip;
    device.name = name;
    device.udn = udn;
    return sighting;
}

Sighting Mac(const std::string& ip, const std::string& mac, const std::string& uuid = "",
             const Target& via = kFirst) {
    Sighting sighting = Onvif(ip, mac, uuid, via);
    sighting.source = uuid.empty() ? SourceId::Neighbours : SourceId::Frames;
    return sighting;
}

Sighting With(Sighting sighting, const std::string& hardware) {
    sighting.device.hardware = hardware;
    return sighting;
}

std::vector<Device> ListOf(const std::vector<Sighting>& sightings) {
    List list;
    for (const Sighting& sighting : sightings) {
        list.See(sighting);
    }
    return list.Sorted();
}

std::string Spelled(const std::vector<Device>& devices) {
    std::string text;
    for (const Device& device : devices) {
        text += DumpLine(DeviceToJson(device));
    }
    return text;
}

}  // namespace

TEST(Inventory, BothProtocolsMakeOneDevice) {
    List list;
    EXPECT_EQ(list.See(Upnp("192.168.1.9", "Gate"))[0].change, Change::Added);
    const auto news = list.See(With(Onvif("192.168.1.9", kMac, "urn:uuid:1"), "IPC"));
    ASSERT_EQ(news.size(), 1U);
    EXPECT_EQ(news[0].change, Change::Updated);
    ASSERT_EQ(list.Devices().size(), 1U);
    const Device& device = list.Devices()[0];
    EXPECT_TRUE(device.protocols.onvif && device.protocols.upnp);
    EXPECT_EQ(device.name, "Gate");
    EXPECT_EQ(device.hardware, "IPC");
    EXPECT_EQ(device.mac, kMac);
}

TEST(Inventory, PortIsTheDeviceServicesInEitherOrder) {
    for (const auto& order : {std::vector{Upnp("192.168.1.9", ""), Onvif("192.168.1.9")},
                              std::vector{Onvif("192.168.1.9"), Upnp("192.168.1.9", "")}}) {
        EXPECT_EQ(ListOf(order).at(0).port, 80);
    }
}

TEST(Inventory, NameOfTheScopesComesBeforeTheDescriptions) {
    Sighting onvif = Onvif("192.168.1.9");
    onvif.device.name = "A";
    for (const auto& order : {std::vector{Upnp("192.168.1.9", "Longer name"), onvif},
                              std::vector{onvif, Upnp("192.168.1.9", "Longer name")}}) {
        EXPECT_EQ(ListOf(order).at(0).name, "A");
    }
}

TEST(Inventory, SameSightingAgainIsNoNews) {
    List list;
    list.See(Onvif("192.168.1.9", kMac));
    EXPECT_TRUE(list.See(Onvif("192.168.1.9", kMac)).empty());
}

TEST(Inventory, EmptyTextReplacesNothing) {
    List list;
    list.See(With(Onvif("192.168.1.9", kMac), "IPC"));
    list.See(Onvif("192.168.1.9"));
    EXPECT_EQ(list.Devices()[0].hardware, "IPC");
    EXPECT_EQ(list.Devices()[0].mac, kMac);
}

TEST(Inventory, LastHeardIsToldAtTheEnd) {
    List list;
    list.Add(Onvif("192.168.1.9"), kNow);
    list.Settle();
    list.Add(Onvif("192.168.1.9"), kNow + 60);
    EXPECT_TRUE(list.Settle().empty());
    EXPECT_TRUE(list.SettleAll().empty());
    EXPECT_EQ(list.Devices()[0].firstSeen, "2023-11-14T22:13:20Z");
    EXPECT_EQ(list.Devices()[0].lastSeen, "2023-11-14T22:14:20Z");
}

TEST(Inventory, MacOfTheNeighbourTableGoesToTheDeviceAtTheAddress) {
    for (const auto& order : {std::vector{Onvif("192.168.1.9"), Mac("192.168.1.9", kMac)},
                              std::vector{Mac("192.168.1.9", kMac), Onvif("192.168.1.9")}}) {
        ASSERT_EQ(ListOf(order).size(), 1U);
        EXPECT_EQ(ListOf(order)[0].mac, kMac);
    }
}

TEST(Inventory, NeighbourAloneIsNoDevice) {
    EXPECT_TRUE(ListOf({Mac("192.168.1.9", kMac)}).empty());
}

TEST(Inventory, NeighbourOfAnotherInterfaceSaysNothing) {
    EXPECT_EQ(ListOf({Onvif("192.168.1.9"), Mac("192.168.1.9", kMac, "", kSecond)})[0].mac, "");
}

TEST(Inventory, AddressWithTwoIdsAndTwoMacsIsTwoDevicesAndAConflict) {
    List list;
    for (const Sighting& sighting :
         {Onvif("192.168.1.64", "", "urn:uuid:1"), Onvif("192.168.1.64", "", "urn:uuid:2"),
          Mac("192.168.1.64", kMac, "urn:uuid:1"), Mac("192.168.1.64", kOtherMac, "urn:uuid:2")}) {
        list.See(sighting);
    }
    const std::vector<Device> devices = list.Sorted();
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].mac, kMac);
    EXPECT_EQ(devices[0].uuid, "urn:uuid:1");
    EXPECT_EQ(devices[1].mac, kOtherMac);
    EXPECT_TRUE(devices[0].sharedAddress && devices[1].sharedAddress);
    ASSERT_EQ(list.Conflicts().size(), 1U);
    EXPECT_EQ(list.Conflicts().begin()->macs, (std::set<std::string>{kMac, kOtherMac}));
}

TEST(Inventory, AddressWithTwoIdsAndOneMacIsAMachineWithTwoServices) {
    List list;
    list.See(Onvif("192.168.1.9", kMac, "urn:uuid:1"));
    list.See(Onvif("192.168.1.9", kMac, "urn:uuid:2"));
    ASSERT_EQ(list.Devices().size(), 2U);
    EXPECT_FALSE(list.Devices()[0].sharedAddress);
    EXPECT_TRUE(list.Conflicts().empty());
}

TEST(Inventory, OneIdWithTwoMacsIsClones) {
    const auto devices =
        ListOf({Onvif("192.168.1.9", "", "urn:uuid:1"), Onvif("192.168.1.10", "", "urn:uuid:1"),
                Mac("192.168.1.9", kMac), Mac("192.168.1.10", kOtherMac)});
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_FALSE(devices[0].sharedAddress);
}

TEST(Inventory, ClonesAtOneAddressAreToldApartByTheirFrames) {
    const auto devices =
        ListOf({Onvif("192.168.1.64", "", "urn:uuid:1"), Mac("192.168.1.64", kMac, "urn:uuid:1"),
                Mac("192.168.1.64", kOtherMac, "urn:uuid:1")});
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_TRUE(devices[0].sharedAddress);
    EXPECT_NE(devices[0].mac, devices[1].mac);
}

TEST(Inventory, CloneWithoutAMacIsNotGivenToAnother) {
    EXPECT_EQ(ListOf({Onvif("192.168.1.9", kMac, "urn:uuid:1"),
                      Onvif("192.168.1.10", kOtherMac, "urn:uuid:1"),
                      Onvif("192.168.1.11", "", "urn:uuid:1")})
                  .size(),
              3U);
}

TEST(Inventory, RowThatTurnsOutToBeTwoKeepsItsNumberOnce) {
    List list;
    list.See(Onvif("192.168.1.9", "", "urn:uuid:1"));
    list.See(Onvif("192.168.1.10", "", "urn:uuid:1"));
    ASSERT_EQ(list.Devices().size(), 1U);
    list.See(Mac("192.168.1.9", kMac));
    const auto news = list.See(Mac("192.168.1.10", kOtherMac));
    ASSERT_EQ(list.Devices().size(), 2U);
    ASSERT_EQ(news.size(), 2U);
    EXPECT_EQ(std::count_if(news.begin(), news.end(),
                            [](const auto& one) { return one.change == Change::Added; }),
              1);
}

TEST(Inventory, RowsThatTurnOutToBeOneAreWithdrawnButOne) {
    List list;
    list.See(Onvif("192.168.1.9"));
    list.See(Onvif("fe80::1%eth0"));
    ASSERT_EQ(list.Devices().size(), 2U);
    list.See(Mac("192.168.1.9", kMac));
    const auto news = list.See(Mac("fe80::1%eth0", kMac));
    ASSERT_EQ(list.Devices().size(), 1U);
    ASSERT_EQ(news.size(), 2U);
    EXPECT_EQ(news[1].change, Change::Withdrawn);
    EXPECT_EQ(news[1].former.ipv6, std::vector<std::string>{"fe80::1%eth0"});
    EXPECT_EQ(list.Devices()[0].ip, "192.168.1.9");
    EXPECT_EQ(list.Devices()[0].ipv6, std::vector<std::string>{"fe80::1%eth0"});
}

TEST(Inventory, OneMacAtSeveralAddressesIsARepeater) {
    EXPECT_EQ(ListOf({Onvif("192.168.1.9", kMac), Onvif("192.168.1.10", kMac)}).size(), 2U);
}

TEST(Inventory, OneMacAtSeveralAddressesWithOneIdIsOneDevice) {
    const auto devices =
        ListOf({Onvif("192.168.1.9", kMac, "urn:uuid:A"), Onvif("192.168.1.10", kMac, "uuid:a")});
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0].ip, "192.168.1.9");
    EXPECT_EQ(devices[0].otherIps, std::vector<std::string>{"192.168.1.10"});
}

TEST(Inventory, OneMacOnTwoInterfacesIsOneDevice) {
    const auto devices =
        ListOf({Onvif("192.168.1.9", kMac), Onvif("192.168.2.9", kMac, "", kSecond)});
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0].seenVia, (std::vector<Target>{kFirst, kSecond}));
    EXPECT_EQ(devices[0].otherIps, std::vector<std::string>{"192.168.2.9"});
}

TEST(Inventory, DifferentHardwareBehindOneMacOnTwoInterfacesStaysApart) {
    EXPECT_EQ(ListOf({With(Onvif("192.168.1.9", kMac), "IPC-1"),
                      With(Onvif("192.168.2.9", kMac, "", kSecond), "IPC-2")})
                  .size(),
              2U);
}

TEST(Inventory, OneIdOnTwoInterfacesIsOneDevice) {
    EXPECT_EQ(ListOf({Onvif("192.168.1.9", "", "urn:uuid:1"),
                      Onvif("192.168.2.9", "", "urn:uuid:1", kSecond)})
                  .size(),
              1U);
}

TEST(Inventory, SameAddressOnTwoNetworksIsTwoDevices) {
    EXPECT_EQ(
        ListOf({Onvif("192.168.1.9", kMac), Onvif("192.168.1.9", kOtherMac, "", kSecond)}).size(),
        2U);
}

TEST(Inventory, SameAddressWithOtherMacsOnTwoNetworksIsNoConflict) {
    List list;
    list.See(Onvif("192.168.1.9", kMac));
    list.See(Onvif("192.168.1.9", kOtherMac, "", kSecond));
    list.Sorted();
    EXPECT_TRUE(list.Conflicts().empty());
}

TEST(Inventory, OneEndpointWithTwoDescriptionsAtTwoAddressesStaysApart) {
    Sighting first = Onvif("192.168.1.9", "", "urn:uuid:1");
    Sighting second = Onvif("192.168.1.10", "", "urn:uuid:1");
    first.device.udn = "uuid:8";
    second.device.udn = "uuid:9";
    EXPECT_EQ(ListOf({first, second}).size(), 2U);
}

TEST(Inventory, RepeaterOnTheSecondInterfaceIsNotJoinedTwice) {
    EXPECT_EQ(ListOf({Onvif("192.168.1.9", kMac), Onvif("192.168.2.9", kMac, "", kSecond),
                      Onvif("192.168.2.10", kMac, "", kSecond)})
                  .size(),
              2U);
}

TEST(Inventory, IdOfTheDescriptionIsNoOtherDevices) {
    EXPECT_EQ(ListOf({Onvif("192.168.1.9", kMac, "urn:uuid:1"), Upnp("192.168.1.9", "", "uuid:2")})
                  .size(),
              1U);
}

TEST(Inventory, TwoRootDevicesOfOneMachineAreTwoRows) {
    EXPECT_EQ(
        ListOf({Upnp("192.168.1.9", "A", "uuid:1"), Upnp("192.168.1.9", "B", "uuid:2")}).size(),
        2U);
}

TEST(Inventory, CameraWinsOverOther) {
    for (const auto& kinds :
         {std::vector{Kind::Camera, Kind::Other}, std::vector{Kind::Other, Kind::Camera}}) {
        List list;
        for (const Kind kind : kinds) {
            Sighting sighting = Onvif("192.168.1.9");
            sighting.device.kind = kind;
            list.See(sighting);
        }
        EXPECT_EQ(list.Devices()[0].kind, Kind::Camera);
    }
}

TEST(Inventory, AddressOfOurSubnetIsShownFirst) {
    Sighting foreign = Onvif("10.0.0.9", kMac, "urn:uuid:1");
    foreign.device.reach = Reach::Foreign;
    Sighting local = Onvif("192.168.1.9", kMac, "urn:uuid:1");
    local.device.reach = Reach::Local;
    EXPECT_EQ(ListOf({foreign, local}).at(0).ip, "192.168.1.9");
}

TEST(Inventory, AnyOrderOfTheSameSightingsGivesTheSameList) {
    std::vector<Sighting> sightings{
        Onvif("192.168.1.9", "", "urn:uuid:1"),
        With(Onvif("192.168.1.9", "", "urn:uuid:1"), "LONGER"),
        With(Onvif("192.168.1.9", "", "urn:uuid:1"), "IPC"),
        Upnp("192.168.1.9", "Gate", "uuid:9"),
        Mac("192.168.1.9", kMac),
        Onvif("192.168.1.64", "", "urn:uuid:2"),
        Onvif("192.168.1.64", "", "urn:uuid:3"),
        Mac("192.168.1.64", kOtherMac, "urn:uuid:2"),
        Mac("192.168.1.64", "00:1B:FF:01:02:05", "urn:uuid:3"),
        Onvif("192.168.1.65", "", "urn:uuid:3"),
        Onvif("fe80::1%eth0", kMac),
        Onvif("192.168.2.9", kMac, "", kSecond),
        Onvif("192.168.1.70", "00:1B:FF:01:02:09"),
        Onvif("192.168.1.71", "00:1B:FF:01:02:09"),
        Onvif("192.168.1.71", "", "urn:uuid:7"),
    };
    const std::string expected = Spelled(ListOf(sightings));
    std::mt19937 random(7);  // NOLINT: the same orders every time
    for (int i = 0; i < 500; ++i) {
        std::shuffle(sightings.begin(), sightings.end(), random);
        ASSERT_EQ(Spelled(ListOf(sightings)), expected) << "order number " << i;
    }
}

TEST(Inventory, FloodEndsAtTheBound) {
    Inventory list(&NoMaker);
    for (std::size_t i = 0; i < Inventory::kMostDevices + 10; ++i) {
        list.Add(Onvif("10." + std::to_string(i >> 16) + "." + std::to_string(i >> 8 & 255) + "." +
                       std::to_string(i & 255)),
                 kNow);
    }
    list.Settle();
    EXPECT_EQ(list.Devices().size(), Inventory::kMostDevices);
}

TEST(Inventory, AddressWithManyIdsIsBounded) {
    Inventory list(&NoMaker);
    for (std::size_t i = 0; i < Inventory::kMostAtOneAddress; ++i) {
        EXPECT_TRUE(list.Add(Onvif("10.0.0.1", "", std::to_string(i)), kNow));
    }
    EXPECT_FALSE(list.Add(Onvif("10.0.0.1", "", "one more"), kNow));
    EXPECT_TRUE(list.Add(Onvif("10.0.0.2", "", "a neighbour"), kNow));
    list.Settle();
    EXPECT_EQ(list.Devices().size(), Inventory::kMostAtOneAddress + 1);
}

namespace {

Sighting Published(const std::string& site, const std::string& ip, const std::string& mac,
                   const std::string& uuid = "") {
    Sighting sighting = Onvif(ip, mac, uuid, {});
    sighting.source = SourceId::Sites;
    sighting.device.site = site;
    sighting.device.firstSeen = "2026-11-20T08:00:00Z";
    sighting.device.lastSeen = "2026-11-21T08:00:00Z";
    sighting.device.seenVia = {{"eth7", "10.0.0.2"}};
    return sighting;
}

TEST(Sites, SameAddressAndIdAndMacAddressAtTwoSitesAreTwoDevices) {
    List list;
    list.See(Published("berlin", "192.168.1.5", kMac, "urn:uuid:1"));
    list.See(Published("paris", "192.168.1.5", kMac, "urn:uuid:1"));
    list.See(Onvif("192.168.1.5", kMac, "urn:uuid:1"));
    EXPECT_EQ(list.Sorted().size(), 3U);
    EXPECT_TRUE(list.Conflicts().empty());
}

TEST(Sites, TwoMachinesAtOneAddressOfTwoSitesShareNothing) {
    List list;
    list.See(Published("berlin", "192.168.1.5", kMac));
    list.See(Published("paris", "192.168.1.5", kOtherMac));
    for (const Device& device : list.Sorted()) {
        EXPECT_FALSE(device.sharedAddress) << device.site;
    }
    EXPECT_TRUE(list.Conflicts().empty());
}

TEST(Sites, TwoMachinesAtOneAddressOfOneSiteAreAConflictOfThatSite) {
    List list;
    list.See(Published("berlin", "192.168.1.5", kMac));
    list.See(Published("berlin", "192.168.1.5", kOtherMac));
    ASSERT_EQ(list.Sorted().size(), 2U);
    ASSERT_EQ(list.Conflicts().size(), 1U);
    EXPECT_EQ(list.Conflicts().begin()->site, "berlin");
}

TEST(Sites, LocalMacAddressIsNotThatOfAnotherSitesDevice) {
    List list;
    Sighting neighbour{SourceId::Neighbours, kFirst, {}};
    neighbour.device.ip = "192.168.1.5";
    neighbour.device.mac = kOtherMac;
    list.Add(neighbour, kNow);
    list.See(Published("berlin", "192.168.1.5", ""));
    EXPECT_EQ(list.Sorted().front().mac, "");
}

TEST(Sites, SiteSaysItselfWhenAndHowItSawADevice) {
    List list;
    list.See(Published("berlin", "192.168.1.5", kMac));
    const Device device = list.Sorted().front();
    EXPECT_EQ(device.firstSeen, "2026-11-20T08:00:00Z");
    EXPECT_EQ(device.lastSeen, "2026-11-21T08:00:00Z");
    EXPECT_EQ(device.seenVia, (std::vector<Target>{{"eth7", "10.0.0.2"}}));
}

TEST(Sites, OneMacAddressOrIdAtTwoSitesIsNoOneDevice) {
    const Marks berlin{kMac, "a", "b", "10.0.0.1", "eth0", "", "berlin"};
    const Marks paris{kMac, "a", "b", "10.0.0.2", "eth1", "", "paris"};
    EXPECT_EQ(GroupByDevice(std::vector{berlin, paris}).size(), 2U);
    const Marks both{kMac, "a", "b", "10.0.0.2", "eth1", "", "berlin"};
    EXPECT_EQ(GroupByDevice(std::vector{berlin, both}).size(), 1U);
    const Marks macs{kMac, "", "", "10.0.0.1", "eth0", "", "berlin"};
    const Marks others{kMac, "", "", "10.0.0.2", "eth1", "", "paris"};
    EXPECT_EQ(GroupByDevice(std::vector{macs, others}).size(), 2U);
}

TEST(Sites, DeviceIsToldAgainAtItsSiteOnly) {
    std::vector<Device> before{Published("berlin", "192.168.1.5", kMac).device};
    std::vector<Device> after{Published("paris", "192.168.1.5", kMac).device,
                              Published("berlin", "192.168.1.9", kMac).device};
    const auto partners = MatchDevices(before, after);
    ASSERT_EQ(partners.size(), 1U);
    EXPECT_EQ(partners[0], 1U);
}

}  // namespace
