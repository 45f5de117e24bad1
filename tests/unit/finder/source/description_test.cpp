#include "finder/source/description.h"

#include <gtest/gtest.h>

#include <string>

using namespace Lanscout;

namespace {

constexpr char kLocation[] = "http://192.168.1.20:49152/desc/root.xml";

std::string Document(const std::string& device, const std::string& before = "") {
    return R"(<?xml version="1.0"?><root xmlns="urn:schemas-upnp-org:device-1-0">)" + before +
           "<device>" + device + "</device></root>";
}

Device Read(const std::string& xml, const std::string& location = kLocation) {
    const auto device = ReadDescription(xml, location);
    EXPECT_TRUE(device.has_value());
    return device.value_or(Device{});
}

}  // namespace

TEST(Description, RootDeviceIsRead) {
    const Device device = Read(
        Document("<deviceType>urn:schemas-upnp-org:device:MediaServer:1</deviceType>"
                 "<friendlyName> Attic </friendlyName><manufacturer>Maker &amp; Sons</manufacturer>"
                 "<modelName>M<![CDATA[<1>]]></modelName><UDN>uuid:1</UDN>"
                 "<presentationURL>/index.html</presentationURL>"
                 "<deviceList><device><friendlyName>Inner</friendlyName></device></deviceList>"));
    EXPECT_EQ(device.ip, "192.168.1.20");
    EXPECT_EQ(device.port, 0);  // that is the page's, not the device service's
    EXPECT_TRUE(device.protocols.upnp);
    EXPECT_EQ(device.name, "Attic");
    EXPECT_EQ(device.maker, "Maker & Sons");
    EXPECT_EQ(device.model, "M<1>");
    EXPECT_EQ(device.udn, "uuid:1");
    EXPECT_EQ(device.page, "http://192.168.1.20:49152/index.html");
    EXPECT_EQ(device.kind, Kind::Other);
    EXPECT_EQ(device.descriptionUrl, kLocation);
}

TEST(Description, InnerDeviceIsNotTakenForTheRoot) {
    EXPECT_EQ(Read(Document("<deviceList><device><friendlyName>Inner</friendlyName></device>"
                            "</deviceList>"))
                  .name,
              "");
}

TEST(Description, PrefixedElementsAreRead) {
    EXPECT_EQ(Read("<u:root xmlns:u='urn:schemas-upnp-org:device-1-0'><u:device>"
                   "<u:friendlyName>Attic</u:friendlyName></u:device></u:root>")
                  .name,
              "Attic");
}

TEST(Description, UrlBaseIsTheBase) {
    EXPECT_EQ(Read(Document("<presentationURL>ui/</presentationURL>",
                            "<URLBase>http://192.168.1.20:80/a/</URLBase>"))
                  .page,
              "http://192.168.1.20:80/a/ui/");
}

TEST(Description, DocumentThatIsCutOffGivesWhatCameBefore) {
    const std::string xml = Document("<friendlyName>Attic</friendlyName><modelName>Mo");
    EXPECT_EQ(Read(xml.substr(0, xml.find("Mo"))).name, "Attic");
}

TEST(Description, NoXmlLeavesTheDeviceWithoutAName) {
    const Device device = Read("404 not found");
    EXPECT_EQ(device.ip, "192.168.1.20");
    EXPECT_EQ(device.name, "");
    EXPECT_EQ(Read("").name, "");
}

TEST(Description, DocumentTypeIsRefused) {
    const std::string body = Document("<friendlyName>&name;</friendlyName>").substr(21);
    EXPECT_EQ(Read("<!DOCTYPE root [<!ENTITY name 'Attic'>]>" + body).name, "");
    EXPECT_EQ(Read("<!DOCTYPE root>" + Document("<friendlyName>x</friendlyName>").substr(21)).name,
              "");
}

TEST(Description, FileIsNotRead) {
    const std::string body = Document("<friendlyName>&name;</friendlyName>").substr(21);
    EXPECT_EQ(Read("<!DOCTYPE root [<!ENTITY name SYSTEM 'file:///etc/hostname'>]>" + body).name,
              "");
}

TEST(Description, TooLongIsNotRead) {
    EXPECT_EQ(Read(Document("<friendlyName>Attic</friendlyName><x>" +
                            std::string(std::size_t{300} * 1024, 'a') + "</x>"))
                  .name,
              "");
}

TEST(Description, LongNameIsCut) {
    EXPECT_EQ(
        Read(Document("<friendlyName>" + std::string(5000, 'a') + "</friendlyName>")).name.size(),
        512U);
}

TEST(Description, LocationThatNamesNoAddressIsNoDevice) {
    EXPECT_FALSE(ReadDescription(Document(""), "http://camera.local/d.xml"));
    EXPECT_FALSE(ReadDescription(Document(""), "http://[fe80::1]/d.xml"));
    EXPECT_FALSE(ReadDescription(Document(""), "garbage"));
    EXPECT_FALSE(ReadDescription(Document(""), "http://3232235796/d.xml"));
    EXPECT_FALSE(ReadDescription(Document(""), "http://user@192.168.1.20/d.xml"));
}

TEST(ResolvePage, AbsoluteAddressStays) {
    EXPECT_EQ(ResolvePage("https://192.168.1.20/ui", kLocation), "https://192.168.1.20/ui");
}

TEST(ResolvePage, RelativeAddressIsResolved) {
    EXPECT_EQ(ResolvePage("ui.html", kLocation), "http://192.168.1.20:49152/desc/ui.html");
    EXPECT_EQ(ResolvePage("//192.168.1.21/x", kLocation), "http://192.168.1.21/x");
}

TEST(ResolvePage, SchemeIsInLowerCase) {
    EXPECT_EQ(ResolvePage("//192.168.1.21/X", "httP://192.168.1.20/"), "http://192.168.1.21/X");
    EXPECT_EQ(ResolvePage("HTTPS://192.168.1.21/X", kLocation), "https://192.168.1.21/X");
}

TEST(ResolvePage, OtherSchemesAreDropped) {
    EXPECT_EQ(ResolvePage("javascript:alert(1)", kLocation), "");
    EXPECT_EQ(ResolvePage("file:///etc/passwd", kLocation), "");
    EXPECT_EQ(ResolvePage("data:text/html,x", kLocation), "");
}

TEST(ResolvePage, UserNamesAreDropped) {
    EXPECT_EQ(ResolvePage("http://bank.example@192.168.1.66/", kLocation), "");
}

TEST(ResolvePage, MarkupAndControlsAreDropped) {
    EXPECT_EQ(ResolvePage("http://a/\"><script>", kLocation), "");
    EXPECT_EQ(ResolvePage("http://a/\x1b[0m", kLocation), "");
    EXPECT_EQ(ResolvePage("http://a/b c", kLocation), "");
}

TEST(ResolvePage, NothingGivesNothing) {
    EXPECT_EQ(ResolvePage("", kLocation), "");
    EXPECT_EQ(ResolvePage("http://", kLocation), "");
}

TEST(Description, DocumentOfMoreThan64KiBIsNotRead) {
    const auto named = [](std::size_t padding) {
        return Read(Document("<friendlyName>Attic</friendlyName><x>" + std::string(padding, 'a') +
                             "</x>"))
            .name;
    };
    EXPECT_EQ(named(std::size_t{60} * 1024), "Attic");
    EXPECT_EQ(named(std::size_t{64} * 1024), "");
}

TEST(Description, SerialNumberIsKept) {
    EXPECT_EQ(Read(Document("<serialNumber>S-1</serialNumber>")).serial, "S-1");
}

TEST(Description, WordsOfTheModelTellACameraWhereTheTypeSaysNothing) {
    const auto kind = [](const char* type, const char* words) {
        return Read(Document(std::string("<deviceType>urn:schemas-upnp-org:device:") + type +
                             ":1</deviceType><modelDescription>" + words + "</modelDescription>"))
            .kind;
    };
    EXPECT_EQ(kind("Basic", "Network Fixed Dome CAMERA"), Kind::Camera);
    EXPECT_EQ(kind("Basic", "HD IP camera"), Kind::Camera);
    EXPECT_EQ(kind("Basic", "Digital Camera"), Kind::Unknown);
    EXPECT_EQ(kind("Basic", "Camera of the network"), Kind::Unknown);
    EXPECT_EQ(kind("Printer", "Network camera printer"), Kind::Other);
}

TEST(KindOfDeviceType, CameraTypesAreCameras) {
    EXPECT_EQ(KindOfDeviceType("urn:schemas-upnp-org:device:DigitalSecurityCamera:1"),
              Kind::Camera);
    EXPECT_EQ(KindOfDeviceType("urn:example-com:device:NetworkCamera:1"), Kind::Camera);
}

TEST(KindOfDeviceType, StandardTypesAreOther) {
    EXPECT_EQ(KindOfDeviceType("urn:schemas-upnp-org:device:InternetGatewayDevice:2"), Kind::Other);
    EXPECT_EQ(KindOfDeviceType("urn:schemas-upnp-org:device:Printer:1"), Kind::Other);
}

TEST(KindOfDeviceType, WhatSaysNothingIsUnknown) {
    EXPECT_EQ(KindOfDeviceType("urn:schemas-upnp-org:device:Basic:1"), Kind::Unknown);
    EXPECT_EQ(KindOfDeviceType("urn:example-com:device:Thing:1"), Kind::Unknown);
    EXPECT_EQ(KindOfDeviceType("urn:schemas-upnp-org:device::1"), Kind::Unknown);
    EXPECT_EQ(KindOfDeviceType(""), Kind::Unknown);
}
