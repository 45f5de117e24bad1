#include "finder/source/onvifdevice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace Lanscout;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kTransmitter[] = "{http://www.onvif.org/ver10/network/wsdl}NetworkVideoTransmitter";
constexpr char kDisplay[] = "{http://www.onvif.org/ver10/network/wsdl}NetworkVideoDisplay";
constexpr char kOnvifDevice[] = "{http://www.onvif.org/ver10/device/wsdl}Device";
constexpr char kDpws2006[] = "{http://schemas.xmlsoap.org/ws/2006/02/devprof}Device";
constexpr char kDpws2009[] = "{http://docs.oasis-open.org/ws-dd/ns/dpws/2009/01}Device";
constexpr char kPrinter[] =
    "{http://schemas.microsoft.com/windows/2006/08/wdp/print}PrintDeviceType";

ReplySender Local() {
    return {"192.168.1.20", Reach::Local, {}};
}

}  // namespace

TEST(KindOfTypes, VideoTransmitterIsACamera) {
    EXPECT_EQ(KindOfTypes({kTransmitter}), Kind::Camera);
    EXPECT_EQ(KindOfTypes({kPrinter, kOnvifDevice, kTransmitter}), Kind::Camera);
}

TEST(KindOfTypes, SameNameOfAnotherVocabularyIsNoCamera) {
    EXPECT_EQ(KindOfTypes({"{urn:x}NetworkVideoTransmitter"}), Kind::Other);
    EXPECT_EQ(KindOfTypes({"dn:NetworkVideoTransmitter"}), Kind::Unknown);
    EXPECT_EQ(KindOfTypes({std::string(kTransmitter) + "2"}), Kind::Other);
}

TEST(KindOfTypes, PrinterIsOther) {
    EXPECT_EQ(KindOfTypes({kDpws2006, kPrinter}), Kind::Other);
}

TEST(KindOfTypes, OnvifsOtherNetworkDevicesAreOther) {
    EXPECT_EQ(KindOfTypes({kDisplay}), Kind::Other);
    EXPECT_EQ(KindOfTypes({kOnvifDevice, kDisplay}), Kind::Other);
}

TEST(KindOfTypes, OnvifDeviceAloneIsUnknown) {
    EXPECT_EQ(KindOfTypes({kOnvifDevice}), Kind::Unknown);
    EXPECT_EQ(KindOfTypes({kOnvifDevice, "{urn:maker}Something"}), Kind::Unknown);
}

TEST(KindOfTypes, GeneralDeviceAloneIsUnknown) {
    EXPECT_EQ(KindOfTypes({kDpws2006}), Kind::Unknown);
    EXPECT_EQ(KindOfTypes({kDpws2009}), Kind::Unknown);
    EXPECT_EQ(KindOfTypes({}), Kind::Unknown);
}

TEST(OnvifDevice, KeepsWhatTheReplySays) {
    const Device device = OnvifDevice({"urn:uuid:1",
                                       {kTransmitter},
                                       {"onvif://www.onvif.org/name/Gate"},
                                       {"https://192.168.1.20/onvif"},
                                       3},
                                      Local());
    EXPECT_EQ(device.ip, "192.168.1.20");
    EXPECT_THAT(device.ipv6, IsEmpty());
    EXPECT_TRUE(device.protocols.onvif);
    EXPECT_EQ(device.kind, Kind::Camera);
    EXPECT_EQ(device.uuid, "urn:uuid:1");
    EXPECT_THAT(device.types, ElementsAre(kTransmitter));
    EXPECT_THAT(device.scopes, ElementsAre("onvif://www.onvif.org/name/Gate"));
    EXPECT_THAT(device.xaddrs, ElementsAre("https://192.168.1.20/onvif"));
    EXPECT_EQ(device.metadataVersion, 3);
    EXPECT_EQ(device.name, "Gate");
    EXPECT_EQ(device.port, 443);
    EXPECT_EQ(device.page, "https://192.168.1.20/");
    EXPECT_EQ(device.reach, Reach::Local);
    EXPECT_EQ(device.mac, "");
}

TEST(OnvifDevice, ScopesTellTheKindWhereTypesDoNot) {
    EXPECT_EQ(
        OnvifDevice({"", {kOnvifDevice}, {"onvif://x/type/video_encoder"}, {}, 0}, Local()).kind,
        Kind::Camera);
    EXPECT_EQ(OnvifDevice({"", {kPrinter}, {"onvif://x/type/video_encoder"}, {}, 0}, Local()).kind,
              Kind::Other);
}

TEST(OnvifDevice, EmptyMatchLeavesTheAddress) {
    const Device device = OnvifDevice(ProbeMatch(), Local());
    EXPECT_EQ(device.ip, "192.168.1.20");
    EXPECT_EQ(device.kind, Kind::Unknown);
    EXPECT_EQ(device.port, 0);
    EXPECT_EQ(device.page, "");
}

TEST(OnvifDevice, Ipv6SenderKeepsItsZone) {
    const Device device = OnvifDevice(ProbeMatch(), {"fe80::1%eth0", Reach::Local, {}});
    EXPECT_EQ(device.ip, "");
    EXPECT_THAT(device.ipv6, ElementsAre("fe80::1%eth0"));
}
