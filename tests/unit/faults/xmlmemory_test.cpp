// Memory runs out inside libxml2, at every place where it takes some while a reply is read: once,
// or from there on. Nothing crashes, the camera is listed all the same, with what could be read or
// with the presets, and what was found before stays.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/recordinghost.h"
#include "tests/unit/support/samplereply.h"
#include "tests/unit/support/scriptednetwork.h"
#include "utils/xmlguard.h"

namespace {

// The stack of an XPath evaluation: the one thing that is never refused here. Without it libxml2
// 2.9 frees the evaluation and goes on with it (docs/faults.md).
constexpr std::size_t kEvaluationStackBytes = 10 * sizeof(void*);

constexpr long kEndless = std::numeric_limits<long>::max();

// Allocations are numbered from 1 from Refuse() on; those from `first` to `last` are refused.
struct XmlMemory {
    std::atomic<long> nAsked = 0;
    std::atomic<long> nFirst = kEndless;
    std::atomic<long> nLast = kEndless;

    void Refuse(long first, long last) {
        nAsked = 0;
        nLast = last;
        nFirst = first;
    }
    void Give() { nFirst = kEndless; }
    bool Refuses() {
        const long asked = ++nAsked;
        return asked >= nFirst && asked <= nLast;
    }
};

XmlMemory xmlMemory;

void* Allocate(std::size_t size) {
    return size != kEvaluationStackBytes && xmlMemory.Refuses() ? nullptr : malloc(size);  // NOLINT
}

void* Reallocate(void* block, std::size_t size) {
    return xmlMemory.Refuses() ? nullptr : realloc(block, size);  // NOLINT
}

void Free(void* block) {
    free(block);  // NOLINT
}

char* Duplicate(const char* text) {
    return xmlMemory.Refuses() ? nullptr : strdup(text);
}

std::string Usual() {
    return SampleReply("http://192.168.1.20:8080/onvif/device_service",
                       "onvif://www.onvif.org/hardware/IPC-100");
}

std::string WithDoctype() {
    std::string reply = Usual();
    return reply.insert(reply.find("<SOAP-ENV:Envelope"), "<!DOCTYPE x [<!ELEMENT x ANY>]>");
}

std::string InUtf16() {
    std::string wide = "\xFF\xFE";
    for (const char letter : Usual().substr(Usual().find('\n') + 1)) {
        wide += letter;
        wide += '\0';
    }
    return wide;
}

class XmlMemoryFault : public testing::TestWithParam<bool> {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(xmlMemSetup(Free, Allocate, Reallocate, Duplicate), 0);
        xmlInitParser();
        HardenXmlOnThisThread();
    }
    XmlMemoryFault() { RecordingHost::Reset(); }
    ~XmlMemoryFault() override { xmlMemory.Give(); }

    // The last allocation to be refused: one, or all from there on.
    static long Last(long first) { return GetParam() ? kEndless : first; }

    // Reads a reply with allocation 1, 2, ... refused, until none is. The number of allocations.
    static long ReadUntilEnough(const std::string& reply) {
        OpenSearch search("192.168.1.2", 1);
        for (long first = 1;; ++first) {
            std::string port = "80";
            std::string hardware;
            xmlMemory.Refuse(first, Last(first));
            search.ParseProbeMatchMessage("192.168.1.20", reply, port, hardware);
            const bool refused = xmlMemory.nAsked >= first;
            xmlMemory.Give();
            EXPECT_TRUE(port == "80" || port == "8080") << port << " at " << first;
            EXPECT_TRUE(hardware.empty() || hardware == "IPC-100") << hardware << " at " << first;
            if (!refused) {
                EXPECT_EQ(port + hardware, "8080IPC-100");
                return first - 1;
            }
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Lack, XmlMemoryFault, testing::Values(false, true),
                         [](const auto& lack) { return lack.param ? "Lasting" : "Once"; });

TEST_P(XmlMemoryFault, UsualReplyIsReadWholeOrNotAtAll) {
    EXPECT_GT(ReadUntilEnough(Usual()), 50);
}

TEST_P(XmlMemoryFault, ReplyWithADoctypePassesTheGuardOrIsRefused) {
    EXPECT_GT(ReadUntilEnough(WithDoctype()), 50);
}

TEST_P(XmlMemoryFault, ReplyInAnotherEncodingIsConvertedOrRefused) {
    EXPECT_GT(ReadUntilEnough(InUtf16()), 50);
}

TEST_P(XmlMemoryFault, SearchListsEveryCameraAndKeepsWhatItHad) {
    long first = 1;
    for (bool refused = true; refused; ++first) {
        ScriptedNetwork network;
        network.Neighbour("192.168.1.20", "abcdef");
        network.Neighbour("192.168.1.21", "abcdef");
        network.Reply("192.168.1.20", Usual());
        network.Silence();
        network.Then([first] { xmlMemory.Refuse(first, Last(first)); });
        network.Reply("192.168.1.21", Usual());
        OpenSearch search("192.168.1.2", 4);
        ASSERT_EQ(search.StartSearch(), 0);
        search.StopSearch();
        refused = xmlMemory.nAsked >= first;
        xmlMemory.Give();
        EXPECT_FALSE(search.IsRunning());
        ASSERT_EQ(search.CamCountGet(), 2) << first;
        EXPECT_EQ(search.m_vecCamInfo[0].strHardware, "IPC-100");
        EXPECT_EQ(search.m_vecCamInfo[0].nPort, 8080);
        EXPECT_EQ(search.m_vecCamInfo[1].strIp, "192.168.1.21");
        EXPECT_EQ(search.m_vecCamInfo[1].strMac, "61:62:63:64:65:66");
        EXPECT_EQ(network.Events("close").back(), "close");
    }
    EXPECT_GT(first, 50);
}

}  // namespace
