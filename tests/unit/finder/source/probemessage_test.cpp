#include "finder/source/probemessage.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <memory>
#include <regex>
#include <set>
#include <string>

using namespace Lanscout;

TEST(MessageIds, AreRandomUuidsOfVersionFour) {
    MessageIds ids;
    const std::regex form(
        "urn:uuid:[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    for (int i = 0; i < 100; ++i) {
        const std::string id = ids.Next();
        EXPECT_TRUE(std::regex_match(id, form)) << id;
    }
}

TEST(MessageIds, NeverComeTwice) {
    MessageIds one;
    MessageIds other;
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        seen.insert(one.Next());
        seen.insert(other.Next());
    }
    EXPECT_EQ(seen.size(), 2000U);
}

TEST(ProbeMessage, HasNoLineBreak) {
    for (const ProbeType type : {ProbeType::NetworkVideoTransmitter, ProbeType::Device}) {
        EXPECT_EQ(ProbeMessage(type, "urn:uuid:1").find_first_of("\r\n"), std::string::npos);
    }
}

TEST(ProbeMessage, IsThisForAVideoTransmitter) {
    EXPECT_EQ(ProbeMessage(ProbeType::NetworkVideoTransmitter, "urn:uuid:1"),
              R"(<?xml version="1.0" encoding="UTF-8"?>)"
              R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope")"
              R"( xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing")"
              R"( xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery")"
              R"( xmlns:dn="http://www.onvif.org/ver10/network/wsdl")"
              R"( xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><s:Header>)"
              "<a:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</a:Action>"
              "<a:MessageID>urn:uuid:1</a:MessageID><a:ReplyTo><a:Address>"
              "http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous"
              "</a:Address></a:ReplyTo>"
              "<a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To></s:Header><s:Body>"
              "<d:Probe><d:Types>dn:NetworkVideoTransmitter</d:Types></d:Probe></s:Body>"
              "</s:Envelope>");
}

TEST(ProbeMessage, AsksForOnvifsGeneralDevice) {
    const std::string text = ProbeMessage(ProbeType::Device, "urn:uuid:1");
    EXPECT_NE(text.find("<d:Types>tds:Device</d:Types>"), std::string::npos) << text;
}

TEST(ProbeMessage, IsWellFormed) {
    const std::string text = ProbeMessage(ProbeType::Device, "urn:uuid:1");
    const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> doc(
        xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, 0),
        &xmlFreeDoc);
    EXPECT_NE(doc, nullptr);
}
