#include "finder/source/scopes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace Lanscout;
using testing::ElementsAre;

namespace {

// A scope of ONVIF's own.
std::string Onvif(const std::string& path) {
    return "onvif://www.onvif.org/" + path;
}

Device Read(const std::string& path) {
    return ReadScopes({Onvif(path)});
}

}  // namespace

TEST(Scopes, NameHardwareAndPlaceAreDecoded) {
    const Device device = ReadScopes(
        {Onvif("name/Gate%202"), Onvif("hardware/DS-2CD%2FX"), Onvif("location/M%C3%BCnchen")});
    EXPECT_EQ(device.name, "Gate 2");
    EXPECT_EQ(device.hardware, "DS-2CD/X");
    EXPECT_EQ(device.location, "M\xC3\xBCnchen");
}

TEST(Scopes, FirstNameAndHardwareCount) {
    const Device device =
        ReadScopes({Onvif("name/A"), Onvif("name/B"), Onvif("hardware/C"), Onvif("hardware/D")});
    EXPECT_EQ(device.name, "A");
    EXPECT_EQ(device.hardware, "C");
}

TEST(Scopes, CaseOfACategoryDoesNotCount) {
    EXPECT_EQ(Read("Name/A").name, "A");
    EXPECT_EQ(ReadScopes({"ONVIF://WWW.ONVIF.ORG/HARDWARE/b"}).hardware, "b");
}

TEST(Scopes, EmptyValuesAreUnknown) {
    for (const char* scope : {"name/", "name", "location/", "location//", "Profile/", "mac/", ""}) {
        EXPECT_EQ(Read(scope), Device()) << scope;
    }
    EXPECT_EQ(ReadScopes({"", "/", "onvif://", "onvif://www.onvif.org"}), Device());
}

TEST(Scopes, PlacesAreJoined) {
    EXPECT_EQ(ReadScopes({Onvif("location/country/china"), Onvif("location/city/hangzhou"),
                          Onvif("location/hall")})
                  .location,
              "china, hangzhou, hall");
    EXPECT_EQ(Read("location/country/").location, "country");
}

TEST(Scopes, FailureWordsInAHardwareTextAreAHardwareText) {
    const Device device = ReadScopes(
        {Onvif("type/video_encoder"), Onvif("hardware/Send%20probe%20message%20failed.%20[101]")});
    EXPECT_EQ(device.hardware, "Send probe message failed. [101]");
    EXPECT_EQ(device.kind, Kind::Camera);
}

TEST(Scopes, WhatIsNoUtf8IsReplaced) {
    EXPECT_EQ(Read("name/%FF%41").name,
              "\xEF\xBF\xBD"
              "A");
}

TEST(Scopes, CameraTypesMakeACamera) {
    for (const char* type : {"type/Network_Video_Transmitter", "type/NetworkVideoTransmitter",
                             "type/video_encoder", "TYPE/Video_Encoder", "Profile/Streaming",
                             "profile/t", "Profile/G", "Profile/Q/FactoryDefault"}) {
        EXPECT_EQ(Read(type).kind, Kind::Camera) << type;
    }
}

TEST(Scopes, OtherTypesSayNothingOfTheKind) {
    for (const char* type : {"type/audio_encoder", "type/ptz", "Profile/C", "Profile/A",
                             "Profile/D", "name/video_encoder", "types/video_encoder"}) {
        EXPECT_EQ(Read(type).kind, Kind::Unknown) << type;
    }
}

TEST(Scopes, ProfilesAreListedOnce) {
    EXPECT_THAT(ReadScopes({Onvif("Profile/Streaming"), Onvif("Profile/T"), Onvif("Profile/T"),
                            Onvif("Profile/Q/FactoryDefault")})
                    .profiles,
                ElementsAre("Streaming", "T", "Q/FactoryDefault"));
}

TEST(Scopes, FactoryDefaultIsUnconfigured) {
    EXPECT_TRUE(IsUnconfigured(Read("Profile/Q/FactoryDefault")));
    EXPECT_FALSE(IsUnconfigured(Read("Profile/Q/Operational")));
}

TEST(Scopes, ClaimedMacIsReadInEachForm) {
    for (const char* scope :
         {"MAC/00:1b:ff:01:02:03", "mac/00-1B-FF-01-02-03", "macaddr/001bff010203",
          "acc/mac/001BFF010203", "avigilon/mac/00:1B:FF:01:02:03",
          "mac/00%3A1B%3AFF%3A01%3A02%3A03"}) {
        EXPECT_EQ(Read(scope).claimedMac, "00:1B:FF:01:02:03") << scope;
    }
}

TEST(Scopes, WhatIsNoMacIsNoneClaimed) {
    for (const char* text :
         {"", "00:1B:FF:01:02", "00:1B:FF:01:02:03:04", "00:1B-FF:01:02:03", "001BFF01020",
          "001BFF0102034", "0:01BFF010203", "001BFF01020G", "00:00:00:00:00:00", "ffffffffffff",
          "00:1B:FF:01:02:0303", "00:1B:FF:01:02:03:", "00:1B:FF:01:02:", "001B:FF01:0203"}) {
        EXPECT_EQ(MacFrom(text), "") << text;
    }
}

TEST(Scopes, BadClaimDoesNotHideALaterOne) {
    EXPECT_EQ(ReadScopes({Onvif("mac/none"), Onvif("MAC/001bff010203")}).claimedMac,
              "00:1B:FF:01:02:03");
}

TEST(Scopes, FirstClaimCounts) {
    EXPECT_EQ(ReadScopes({Onvif("mac/001bff010203"), Onvif("MAC/001bff010204")}).claimedMac,
              "00:1B:FF:01:02:03");
}

TEST(Scopes, SerialFirmwareAndMakerAreRead) {
    const Device device =
        ReadScopes({Onvif("serial/SN%2042"), Onvif("firmware/V1.2"), Onvif("manufacturer/Acme")});
    EXPECT_EQ(device.serial, "SN 42");
    EXPECT_EQ(device.firmware, "V1.2");
    EXPECT_EQ(device.maker, "Acme");
}

TEST(Scopes, NamesThatLookLikeCategoriesAreNames) {
    const Device device = Read("name/serial/7");
    EXPECT_EQ(device.name, "serial/7");
    EXPECT_EQ(device.serial, "");
    EXPECT_EQ(Read("location/mac/001bff010203").claimedMac, "");
}
