// The Probe: its bytes, its message id, and the types that are refused.
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/unit/support/expectedlog.h"
#include "tests/unit/support/fakesystem.h"
#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/recordinghost.h"

namespace {

using RecordingHost::IsLine;
using testing::ElementsAre;
using testing::IsEmpty;

// The generator as a test drives it; what was seeded is noted.
class Generator {
public:
    Generator(timeval now, pid_t pid, std::vector<int> drawn) : m_drawn(std::move(drawn)) {
        FakeSystem::Calls& calls = FakeSystem::Current();
        calls.gettimeofday = [this, now] {
            m_order += "t";
            return now;
        };
        calls.getpid = [this, pid] {
            m_order += "p";
            return pid;
        };
        calls.srand = [this](unsigned int seed) {
            m_order += "s";
            m_nSeed = seed;
        };
        calls.rand = [this] {
            m_order += "r";
            return m_drawn.at(m_nDrawn++ % m_drawn.size());
        };
    }

    std::string m_order;
    unsigned int m_nSeed = 0;
    std::size_t m_nDrawn = 0;

private:
    std::vector<int> m_drawn;
};

class ProbeMessage : public testing::Test {
protected:
    ProbeMessage() : m_search((RecordingHost::Reset(), "192.168.1.2"), 5) {}

    std::string Uuid() {
        std::string uuid = "what was there before";
        m_search.GenerateUUID(uuid);
        return uuid;
    }

    std::string UuidOf(std::vector<int> drawn) {
        Generator generator({1, 2}, 3, std::move(drawn));
        return Uuid();
    }

    unsigned int SeedOf(timeval now, pid_t pid) {
        Generator generator(now, pid, {1});
        Uuid();
        return generator.m_nSeed;
    }

    FakeSystem::Scope m_scope;
    OpenSearch m_search;
};

using MessageId = ProbeMessage;

// The expected values of these tests were worked out by hand and by another program.
TEST_F(MessageId, GroupsComeFromTheDrawnValuesLastFirst) {
    EXPECT_EQ(UuidOf({1, 2, 3, 4, 5, 6, 7, 8}), "00080007-0006-4005-8004-000300020001");
    EXPECT_EQ(UuidOf({2147483647, 0, 65535, 65534, 131071, 1804289383, 16383, 846930886}),
              "56413fff-b0f2-4001-8002-000000007fff");
}

TEST_F(MessageId, ModuliAre65535And16383) {
    EXPECT_EQ(UuidOf({65534}), "fffefffe-fffe-4ffe-8002-fffefffefffe");
    EXPECT_EQ(UuidOf({65535}), "00000000-0000-4000-8000-000000000000");
    EXPECT_EQ(UuidOf({16382}), "3ffe3ffe-3ffe-4ffe-bffe-3ffe3ffe3ffe");
    EXPECT_EQ(UuidOf({16383}), "3fff3fff-3fff-4fff-8000-3fff3fff3fff");
}

TEST_F(MessageId, SeedIsProcessIdTimesMicrosecondsIn32Bits) {
    EXPECT_EQ(SeedOf({0, 1}, 1), 1U);
    EXPECT_EQ(SeedOf({1700000000, 123456}, 4711), 4149626816U);
    EXPECT_EQ(SeedOf({2147483648, 999999}, 4194304), 2411724800U);
    EXPECT_EQ(SeedOf({1763689000, 0}, 2147483647), 665396736U);
    EXPECT_EQ(SeedOf({-1, 5}, 7), 4287967331U);
}

TEST_F(MessageId, TimeThenSeedThenEightDraws) {
    Generator generator({1, 2}, 3, {1});
    Uuid();
    EXPECT_EQ(generator.m_order, "tpsrrrrrrrr");
    Uuid();
    EXPECT_EQ(generator.m_order, "tpsrrrrrrrrtpsrrrrrrrr");
}

TEST_F(MessageId, SameMicrosecondGivesSameIdInOneProcess) {
    FakeSystem::Current().gettimeofday = [] { return timeval{1700000000, 7}; };
    const std::string first = Uuid();
    EXPECT_EQ(Uuid(), first);
    FakeSystem::Current().getpid = [] { return 99; };
    EXPECT_NE(Uuid(), first);
}

TEST_F(MessageId, ShapeHoldsForRealDraws) {
    long microseconds = 0;
    FakeSystem::Current().gettimeofday = [&] { return timeval{1700000000, microseconds}; };
    for (microseconds = 0; microseconds < 500; ++microseconds) {
        const std::string uuid = Uuid();
        ASSERT_EQ(uuid.size(), 36U);
        for (const std::size_t dash : {8U, 13U, 18U, 23U}) {
            ASSERT_EQ(uuid[dash], '-') << uuid;
        }
        ASSERT_EQ(uuid[14], '4') << uuid;
        ASSERT_NE(std::string("89ab").find(uuid[19]), std::string::npos) << uuid;
        std::string digits = uuid;
        std::erase(digits, '-');
        ASSERT_EQ(digits.size(), 32U) << uuid;
        ASSERT_EQ(digits.find_first_not_of("0123456789abcdef"), std::string::npos) << uuid;
        for (std::size_t group = 0; group < 32; group += 4) {
            ASSERT_NE(digits.substr(group, 4), "ffff") << uuid;
        }
    }
}

constexpr const char* kNvtProbe =
    R"(<?xml version="1.0" encoding="utf-8"?><Envelope xmlns="http://www.w3.org/2003/05/soap-envelope" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><Header><wsa:MessageID xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing">uuid:00080007-0006-4005-8004-000300020001</wsa:MessageID><wsa:To xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing">urn:schemas-xmlsoap-org:ws:2005:04:discovery</wsa:To><wsa:Action xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing">http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</wsa:Action></Header><Body><Probe xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"><Types>dn:NetworkVideoTransmitter</Types><Scopes/></Probe></Body></Envelope>)";
constexpr const char* kDeviceProbe =
    R"(<?xml version="1.0" encoding="utf-8"?><Envelope xmlns="http://www.w3.org/2003/05/soap-envelope" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><Header><wsa:MessageID xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing">uuid:00080007-0006-4005-8004-000300020001</wsa:MessageID><wsa:To xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing">urn:schemas-xmlsoap-org:ws:2005:04:discovery</wsa:To><wsa:Action xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing">http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</wsa:Action></Header><Body><Probe xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery" xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"><Types>tds:Device</Types><Scopes/></Probe></Body></Envelope>)";

TEST_F(ProbeMessage, NvtProbeByteForByte) {
    Generator generator({1, 2}, 3, {1, 2, 3, 4, 5, 6, 7, 8});
    std::string message = "what was there before";
    EXPECT_EQ(m_search.GenerateProbeMessage(ONVIF_PROBE_NVT, message), 0);
    EXPECT_EQ(message, kNvtProbe);
    EXPECT_EQ(message.size(), 853U);
}

TEST_F(ProbeMessage, DeviceProbeByteForByte) {
    Generator generator({1, 2}, 3, {1, 2, 3, 4, 5, 6, 7, 8});
    std::string message;
    EXPECT_EQ(m_search.GenerateProbeMessage(ONVIF_PROBE_DEVICE, message), 0);
    EXPECT_EQ(message, kDeviceProbe);
    EXPECT_EQ(message.size(), 837U);
}

TEST_F(ProbeMessage, TypeValuesAreZeroAndOne) {
    EXPECT_EQ(static_cast<int>(ONVIF_PROBE_DEVICE), 0);
    EXPECT_EQ(static_cast<int>(ONVIF_PROBE_NVT), 1);
}

TEST_F(ProbeMessage, EachProbeHasFreshId) {
    long microseconds = 0;
    FakeSystem::Current().gettimeofday = [&] { return timeval{1700000000, ++microseconds}; };
    std::string first;
    std::string second;
    m_search.GenerateProbeMessage(ONVIF_PROBE_NVT, first);
    m_search.GenerateProbeMessage(ONVIF_PROBE_NVT, second);
    EXPECT_NE(first, second);
    EXPECT_EQ(first.size(), second.size());
}

TEST_F(ProbeMessage, UnknownTypesAreRefusedAndMessageStays) {
    std::string message = "as it was";
    for (const int type : {2, -1, INT32_MAX, INT32_MIN}) {
        RecordingHost::Reset();
        EXPECT_EQ(m_search.GenerateProbeMessage(static_cast<ONVIF_PROBE_TYPE>(type), message), -1);
        EXPECT_EQ(message, "as it was");
        EXPECT_THAT(RecordingHost::LogLines(),
                    ElementsAre(IsLine(3, "GenerateProbeMessage", "Unknown Search Type [%d]\n",
                                       "Unknown Search Type [" + std::to_string(type) + "]\n")));
    }
}

TEST_F(ProbeMessage, UnknownTypeDrawsNoId) {
    Generator generator({1, 2}, 3, {1});
    std::string message;
    m_search.GenerateProbeMessage(static_cast<ONVIF_PROBE_TYPE>(2), message);
    EXPECT_EQ(generator.m_order, "");
}

TEST_F(ProbeMessage, SuccessLogsNothing) {
    RecordingHost::SetLogLevel(4);
    std::string message;
    m_search.GenerateProbeMessage(ONVIF_PROBE_NVT, message);
    EXPECT_THAT(RecordingHost::LogLines(), IsEmpty());
}

// As a namespace-aware parser reads it.
class ParsedProbe {
public:
    explicit ParsedProbe(const std::string& message)
        : m_doc(xmlReadMemory(message.data(), static_cast<int>(message.size()), nullptr, nullptr,
                              XML_PARSE_NONET),
                xmlFreeDoc) {
        if (m_doc != nullptr) {
            Visit(xmlDocGetRootElement(m_doc.get()), "");
        }
    }

    // "/Envelope/Body": namespace and text
    std::map<std::string, std::pair<std::string, std::string>> m_elements;
    std::map<std::string, std::string> m_rootPrefixes;

private:
    void Visit(const xmlNode* node, const std::string& above) {
        const auto text = [](const xmlChar* t) {
            return t == nullptr ? std::string() : reinterpret_cast<const char*>(t);
        };
        const std::string path = above + "/" + text(node->name);
        std::string content;
        for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
            if (child->type == XML_ELEMENT_NODE) {
                Visit(child, path);
            } else {
                content += text(child->content);
            }
        }
        m_elements[path] = {text(node->ns == nullptr ? nullptr : node->ns->href), content};
        for (const xmlNs* ns = node->nsDef; above.empty() && ns != nullptr; ns = ns->next) {
            m_rootPrefixes[text(ns->prefix)] = text(ns->href);
        }
    }

    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> m_doc;
};

TEST_F(ProbeMessage, ParsesWithItsNamespaces) {
    std::string message;
    m_search.GenerateProbeMessage(ONVIF_PROBE_NVT, message);
    const ParsedProbe probe(message);
    const std::string soap = "http://www.w3.org/2003/05/soap-envelope";
    const std::string wsa = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
    const std::string wsd = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
    const std::string id = message.substr(message.find("uuid:"), 41);
    const decltype(probe.m_elements) expected{
        {"/Envelope", {soap, ""}},
        {"/Envelope/Header", {soap, ""}},
        {"/Envelope/Header/MessageID", {wsa, id}},
        {"/Envelope/Header/To", {wsa, "urn:schemas-xmlsoap-org:ws:2005:04:discovery"}},
        {"/Envelope/Header/Action", {wsa, wsd + "/Probe"}},
        {"/Envelope/Body", {soap, ""}},
        {"/Envelope/Body/Probe", {wsd, ""}},
        {"/Envelope/Body/Probe/Types", {wsd, "dn:NetworkVideoTransmitter"}},
        {"/Envelope/Body/Probe/Scopes", {wsd, ""}},
    };
    EXPECT_EQ(probe.m_elements, expected);
    EXPECT_THAT(
        probe.m_rootPrefixes,
        testing::UnorderedElementsAre(
            testing::Pair("", soap), testing::Pair("dn", "http://www.onvif.org/ver10/network/wsdl"),
            testing::Pair("tds", "http://www.onvif.org/ver10/device/wsdl")));
}

}  // namespace
