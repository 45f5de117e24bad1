#include "finder/source/typeprobe.h"

#include <gtest/gtest.h>

#include <string>

using namespace Lanscout;

namespace {

std::string Match(const std::string& types) {
    return "<d:ProbeMatch><d:Types>" + types + "</d:Types></d:ProbeMatch>";
}

std::string Reply(const std::string& matches) {
    return R"(<e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope")"
           R"( xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery")"
           R"( xmlns:dn="http://www.onvif.org/ver10/network/wsdl")"
           R"( xmlns:tds="http://www.onvif.org/ver10/device/wsdl")"
           R"( xmlns:wsdp="http://schemas.xmlsoap.org/ws/2006/02/devprof")"
           R"( xmlns:wprt="http://schemas.microsoft.com/windows/2006/08/wdp/print">)"
           "<e:Body><d:ProbeMatches>" +
           matches + "</d:ProbeMatches></e:Body></e:Envelope>";
}

std::optional<Kind> KindOf(const std::string& types) {
    return KindOfReply(Reply(Match(types)));
}

}  // namespace

TEST(KindOfReply, VideoTransmitterIsACamera) {
    EXPECT_EQ(KindOf("dn:NetworkVideoTransmitter"), Kind::Camera);
    EXPECT_EQ(KindOf(" tds:Device\n dn:NetworkVideoTransmitter "), Kind::Camera);
}

TEST(KindOfReply, PrefixIsTheSendersChoice) {
    EXPECT_EQ(KindOfReply(Reply("<d:ProbeMatch><d:Types "
                                "xmlns:q='http://www.onvif.org/ver10/network/wsdl'>"
                                "q:NetworkVideoTransmitter</d:Types></d:ProbeMatch>")),
              Kind::Camera);
}

TEST(KindOfReply, SameNameOfAnotherVocabularyIsNoCamera) {
    EXPECT_EQ(KindOf("wprt:NetworkVideoTransmitter"), Kind::Other);
    EXPECT_EQ(KindOf("undeclared:NetworkVideoTransmitter"), Kind::Unknown);
}

TEST(KindOfReply, PrinterIsOther) {
    EXPECT_EQ(KindOf("wsdp:Device wprt:PrintDeviceType"), Kind::Other);
}

TEST(KindOfReply, OtherOnvifNetworkDevicesAreOther) {
    EXPECT_EQ(KindOf("dn:NetworkVideoDisplay"), Kind::Other);
}

TEST(KindOfReply, OnvifDeviceAloneIsUnknown) {
    EXPECT_EQ(KindOf("tds:Device"), Kind::Unknown);
    EXPECT_EQ(KindOf("tds:Device wprt:Something"), Kind::Unknown);
}

TEST(KindOfReply, GeneralDeviceAloneIsUnknown) {
    EXPECT_EQ(KindOf("wsdp:Device"), Kind::Unknown);
}

TEST(KindOfReply, NoTypesAreUnknown) {
    EXPECT_EQ(KindOf(""), Kind::Unknown);
    EXPECT_EQ(KindOfReply(Reply("<d:ProbeMatch/>")), Kind::Unknown);
}

TEST(KindOfReply, AnyOfSeveralMatchesMakesACamera) {
    EXPECT_EQ(KindOfReply(Reply(Match("wprt:X") + Match("dn:NetworkVideoTransmitter"))),
              Kind::Camera);
}

TEST(KindOfReply, WhatHasNoMatchIsNoReply) {
    for (const std::string& text :
         {std::string(), std::string("hello"), std::string("<a><b>"), Reply("")}) {
        EXPECT_EQ(KindOfReply(text), std::nullopt) << text;
    }
}

TEST(KindOfReply, DocumentWithEntitiesIsNoReply) {
    EXPECT_EQ(
        KindOfReply("<!DOCTYPE e [<!ENTITY a 'b'>]>" + Reply(Match("dn:NetworkVideoTransmitter"))),
        std::nullopt);
}
