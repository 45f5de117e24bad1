#include "finder/device/fields.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

using namespace Lanscout;

namespace {

const Field& Named(const char* name) {
    const Field* const field = FieldNamed(name);
    EXPECT_NE(field, nullptr) << name;
    return field == nullptr ? Fields().front() : *field;
}

std::vector<std::string> Sorted(const char* by, std::vector<Device> devices) {
    SortDevices(devices, Named(by));
    std::vector<std::string> ips;
    for (const Device& device : devices) {
        ips.push_back(ShownAddress(device));
    }
    return ips;
}

Device At(const std::string& ip) {
    Device device;
    device.ip = ip;
    return device;
}

template <typename T>
Device With(const std::string& ip, T Device::*member, T value) {
    Device device = At(ip);
    device.*member = std::move(value);
    return device;
}

}  // namespace

TEST(Fields, NamesAreDistinctAndEachHasATitle) {
    std::set<std::string> names;
    for (const Field& field : Fields()) {
        EXPECT_TRUE(names.insert(field.name).second) << field.name;
        EXPECT_FALSE(std::string(field.title).empty()) << field.name;
    }
}

TEST(Fields, RanksOfTheTableAreDistinct) {
    std::set<int> ranks;
    for (const Field& field : Fields()) {
        EXPECT_TRUE(field.rank == kNotInTable || ranks.insert(field.rank).second) << field.name;
    }
}

TEST(Fields, UnknownNameIsNoField) {
    EXPECT_EQ(FieldNamed("colour"), nullptr);
    EXPECT_EQ(FieldNamed(""), nullptr);
}

TEST(Fields, AddressesSortByTheirValue) {
    EXPECT_EQ(Sorted("ip", {At("10.0.0.10"), At("10.0.0.9"), At("9.0.0.1")}),
              (std::vector<std::string>{"9.0.0.1", "10.0.0.9", "10.0.0.10"}));
}

TEST(Fields, Ipv6ComesBehindIpv4) {
    Device six;
    six.ipv6 = {"fe80::1%eth0"};
    EXPECT_EQ(Sorted("ip", {six, At("200.0.0.1")}),
              (std::vector<std::string>{"200.0.0.1", "fe80::1%eth0"}));
}

TEST(Fields, PortsSortAsNumbersUnknownOnesLast) {
    EXPECT_EQ(
        Sorted("port", {At("1.1.1.4"), With("1.1.1.3", &Device::port, 8080),
                        With("1.1.1.2", &Device::port, 443), With("1.1.1.1", &Device::port, -5)}),
        (std::vector<std::string>{"1.1.1.1", "1.1.1.2", "1.1.1.3", "1.1.1.4"}));
}

TEST(Fields, TextsSortByBytesUnknownOnesLastEqualOnesByAddress) {
    const std::string b = "B10";
    EXPECT_EQ(Sorted("name", {At("1.1.1.1"), With("1.1.1.10", &Device::name, b),
                              With("1.1.1.9", &Device::name, b),
                              With("1.1.1.3", &Device::name, std::string("A"))}),
              (std::vector<std::string>{"1.1.1.3", "1.1.1.9", "1.1.1.10", "1.1.1.1"}));
}

TEST(Fields, UnknownKindComesLast) {
    EXPECT_EQ(Sorted("kind", {At("1.1.1.1"), With("1.1.1.2", &Device::kind, Kind::Other),
                              With("1.1.1.3", &Device::kind, Kind::Camera)}),
              (std::vector<std::string>{"1.1.1.3", "1.1.1.2", "1.1.1.1"}));
}

TEST(Fields, WithinOneSourceTheLongerTextSaysMore) {
    Device known = With("", &Device::name, std::string("Gate"));
    MergeSameSource(Named("name"), known, With("", &Device::name, std::string("Gate 2")));
    EXPECT_EQ(known.name, "Gate 2");
    MergeSameSource(Named("name"), known, With("", &Device::name, std::string("Door")));
    EXPECT_EQ(known.name, "Gate 2");
}

TEST(Fields, TheFirstSourceKeepsItsWord) {
    Device known = With("", &Device::name, std::string("A"));
    MergeNextSource(Named("name"), known, With("", &Device::name, std::string("Longer")));
    EXPECT_EQ(known.name, "A");
    MergeNextSource(Named("maker"), known, With("", &Device::maker, std::string("M")));
    EXPECT_EQ(known.maker, "M");
}

TEST(Fields, TheUpnpDescriptionsPageTakesTheOnvifServicesPlace) {
    const auto merged = [](Device known, const Device& next) {
        MergeNextSource(Named("page"), known, next);
        return known.page;
    };
    const Device service = With("10.0.0.1", &Device::page, std::string("http://10.0.0.1/"));
    const Device described = With("10.0.0.1", &Device::page, std::string("http://10.0.0.1/ui"));
    EXPECT_EQ(merged(service, described), "http://10.0.0.1/ui");
    EXPECT_EQ(merged(service, At("10.0.0.1")), "http://10.0.0.1/");
}

TEST(Fields, ListsBecomeAllOfBoth) {
    Device known = With("", &Device::scopes, std::vector<std::string>{"c", "a"});
    MergeSameSource(Named("scopes"), known, known);
    EXPECT_EQ(known.scopes, (std::vector<std::string>{"c", "a"}));  // as sent
    MergeSameSource(Named("scopes"), known,
                    With("", &Device::scopes, std::vector<std::string>{"b", "a"}));
    EXPECT_EQ(known.scopes, (std::vector<std::string>{"a", "b", "c"}));
}

TEST(Fields, ListsDoNotGrowWithoutEnd) {
    Device known;
    for (int i = 0; i < 200; ++i) {
        MergeSameSource(Named("scopes"), known,
                        With("", &Device::scopes, std::vector{std::to_string(i)}));
    }
    EXPECT_EQ(known.scopes.size(), 64U);
}

TEST(Fields, EarlierAndLaterTimesAreKept) {
    Device known = With("", &Device::firstSeen, std::string("2026-01-02T00:00:00Z"));
    MergeSameSource(Named("firstSeen"), known,
                    With("", &Device::firstSeen, std::string("2026-01-01T00:00:00Z")));
    EXPECT_EQ(known.firstSeen, "2026-01-01T00:00:00Z");
    MergeSameSource(Named("lastSeen"), known,
                    With("", &Device::lastSeen, std::string("2026-01-01T00:00:00Z")));
    MergeSameSource(Named("lastSeen"), known,
                    With("", &Device::lastSeen, std::string("2026-01-03T00:00:00Z")));
    EXPECT_EQ(known.lastSeen, "2026-01-03T00:00:00Z");
}

TEST(Fields, LocalIsNearerThanForeign) {
    Device known = With("", &Device::reach, Reach::Foreign);
    MergeNextSource(Named("reach"), known, With("", &Device::reach, Reach::Local));
    EXPECT_EQ(known.reach, Reach::Local);
    MergeNextSource(Named("reach"), known, With("", &Device::reach, Reach::Routed));
    EXPECT_EQ(known.reach, Reach::Local);
}

TEST(Fields, ClaimedMacIsShownInBracketsWhereTheNetworkSaysNothing) {
    Device device = With("1.1.1.1", &Device::claimedMac, std::string("00:1B:FF:01:02:03"));
    EXPECT_EQ(ShownText(Named("mac"), device), "(00:1B:FF:01:02:03)");
    EXPECT_EQ(FieldText(Named("mac"), device), "");
    device.mac = "00:1B:FF:01:02:04";
    EXPECT_EQ(ShownText(Named("mac"), device), "00:1B:FF:01:02:04");
}

TEST(Fields, ModelIsWhateverSaysMore) {
    Device device = At("1.1.1.1");
    device.model = "C100";
    for (const char* little :
         {"", "MODEL", "ipcamera", "1.0", "1234", "00:1B:FF:01:02:03", "001bff010203"}) {
        device.hardware = little;
        EXPECT_EQ(ShownText(Named("model"), device), "C100") << little;
    }
    for (const char* much : {"IPC-123", "DS-2CD", "cafe"}) {
        device.hardware = much;
        EXPECT_EQ(ShownText(Named("model"), device), much);
    }
    device.model = "";
    device.hardware = "MODEL";
    EXPECT_EQ(ShownText(Named("model"), device), "MODEL");
}

TEST(Fields, MakerOfTheMacStandsInForTheDevicesOwnWord) {
    Device device = With("1.1.1.1", &Device::macMaker, std::string("Chips"));
    EXPECT_EQ(ShownText(Named("maker"), device), "Chips");
    device.maker = "Cameras";
    EXPECT_EQ(ShownText(Named("maker"), device), "Cameras");
}

TEST(Fields, UnconfiguredCameraIsMarked) {
    Device device = With("1.1.1.1", &Device::kind, Kind::Camera);
    EXPECT_EQ(ShownText(Named("kind"), device), "camera");
    device.profiles = {"Streaming", "Q/FactoryDefault"};
    EXPECT_EQ(ShownText(Named("kind"), device), "camera (not set up)");
}
