// Memory runs out at every place where the search takes some: nothing is thrown at the caller or
// out of the discovery thread, nothing found before is lost, and every search ends. (libxml2's own
// memory is another matter: 2.9 does not survive the loss of a node's name in its own XPath.)
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if_arp.h>
#include <netinet/in.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "host/karnexec.h"
#include "host/sdkfuncdata.h"
#include "host/zellog.h"
#include "host/zelstring.h"
#include "tests/unit/support/fakesystem.h"
#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/samplereply.h"

namespace {

constexpr long kNever = -1;

// Counts down to the one allocation that fails; those before and after succeed.
struct Countdown {
    std::atomic<long> nLeft = kNever;

    bool Fails() {
        long left = nLeft.load();
        while (left > kNever && !nLeft.compare_exchange_weak(left, left - 1)) {
        }
        return left == 0;
    }
};

Countdown ownMemory;

}  // namespace

// The whole program's, and so the library's. Not inlined: g++ would see malloc and delete as a
// mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const block = ownMemory.Fails() ? nullptr : malloc(size);  // NOLINT
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

[[gnu::noinline]] void operator delete(void* block) noexcept {
    free(block);  // NOLINT
}

[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    free(block);  // NOLINT
}

// A host that takes no memory.
ZelDbgLogCfg* g_pDbgLogCfg = nullptr;
int g_DbgLogPid = 0;

template <>
ZelEnum2StrMap<LOG_LEVEL>::ZelEnum2StrMap() = default;

template <>
ZelEnum2StrMap<LOG_CATEG>::ZelEnum2StrMap() = default;

void ZelPrintf(LOG_TYPE, const char*, const char*, const char*, int, const char*, const char*,
               ...) {}

int SDKFuncData::NetGetCard1(const std::string&, _tag_NETINFO_& info) {
    info = {};
    info.bUsable = 1;
    strcpy(info.szName, "eth7");  // NOLINT: fits
    return 1;
}

int KarnExecl(const char*, int, ...) {
    return 0;
}

std::string DecodingSpaces(const std::string& text) {
    return text;
}

namespace {

// A network of three cameras in two cycles, without memory of its own.
class ThreeCameras {
public:
    ThreeCameras()
        : m_reply(SampleReply("http://192.168.1.20:8080/onvif/device_service",
                              "onvif://www.onvif.org/hardware/A-long-enough-name")) {
        FakeSystem::Calls& calls = FakeSystem::Current();
        calls.socket = [this](int, int, int) {
            ++m_nOpen;
            return 1'000'000 + m_nOpen;
        };
        calls.close = [this](int) {
            --m_nOpen;
            return 0;
        };
        calls.bind = [](int, const sockaddr*, socklen_t) { return 0; };
        calls.setsockopt = [](int, int, int, const void*, socklen_t) { return 0; };
        calls.sendto = [](int, const void*, size_t size, int, const sockaddr*, socklen_t) {
            return static_cast<ssize_t>(size);
        };
        calls.recvfrom = [this](int, void* data, size_t size, int, sockaddr* address, socklen_t*) {
            return Receive(data, size, address);
        };
        calls.ioctl = [](int, unsigned long, void* request) {
            static_cast<arpreq*>(request)->arp_flags = ATF_COM;
            return 0;
        };
        calls.time = [this] { return m_now; };
        calls.clockGettime = [this](clockid_t) { return timespec{m_now, 0}; };
        calls.clockNanosleep = [this](clockid_t, int, const timespec* until) {
            m_now = until->tv_sec + 1;
            return 0;
        };
    }

    int Open() const { return m_nOpen; }

private:
    // Cameras 1 and 2, silence, camera 3, silence.
    ssize_t Receive(void* data, size_t size, sockaddr* address) {
        const int step = m_nStep++;
        if (step != 0 && step != 1 && step != 3) {
            m_now += 3;
            errno = EAGAIN;
            return -1;
        }
        sockaddr_in sender{};
        sender.sin_family = AF_INET;
        sender.sin_addr.s_addr = htonl(0x0A000001U + static_cast<unsigned int>(step));
        memcpy(address, &sender, sizeof(sender));
        return static_cast<ssize_t>(m_reply.copy(static_cast<char*>(data), size));
    }

    FakeSystem::Scope m_scope;
    std::string m_reply;
    time_t m_now = 1000;
    int m_nStep = 0;
    int m_nOpen = 0;
};

// Runs a whole search in which allocation `failing` fails; false when there were not that many.
bool SearchSurvives(long failing) {
    const ThreeCameras network;
    OpenSearch search("192.168.1.2", 4);
    EXPECT_EQ(search.m_strIfName, "eth7");
    ownMemory.nLeft = failing;
    EXPECT_EQ(search.StartSearch(), 0);
    EXPECT_EQ(search.StopSearch(), 0);
    const bool failed = ownMemory.nLeft == kNever;
    ownMemory.nLeft = kNever;
    EXPECT_FALSE(search.IsRunning());
    EXPECT_EQ(network.Open(), 0) << failing;
    for (const ONVIF_CAM_SEARCH_INFO& info : search.m_vecCamInfo) {
        EXPECT_EQ(info.strProtocol, "ONVIF");
        EXPECT_EQ(info.strMac, "00:00:00:00:00:00");
    }
    EXPECT_LE(search.CamCountGet(), 3);
    if (!failed) {
        EXPECT_EQ(search.CamCountGet(), 3);
        EXPECT_EQ(search.m_vecCamInfo[2].strHardware, "A-long-enough-name");
    }
    return failed;
}

TEST(Allocation, SearchEndsCleanlyWhereverMemoryRunsOut) {
    long failing = 0;
    while (SearchSurvives(failing)) {
        ++failing;
    }
    EXPECT_GT(failing, 20);
}

TEST(Allocation, WhatWasFoundBeforeStays) {
    std::vector<int> counts;
    for (long failing = 0; failing < 200; ++failing) {
        const ThreeCameras network;
        OpenSearch search("192.168.1.2", 4);
        ownMemory.nLeft = failing;
        search.StartSearch();
        search.StopSearch();
        ownMemory.nLeft = kNever;
        counts.push_back(search.CamCountGet());
    }
    EXPECT_EQ(counts.front(), 0);
    EXPECT_NE(std::find(counts.begin(), counts.end(), 1), counts.end());
    EXPECT_NE(std::find(counts.begin(), counts.end(), 2), counts.end());
    EXPECT_EQ(counts.back(), 3);
}

TEST(Allocation, CopyOfOneRecordFailsWhole) {
    OpenSearch search("192.168.1.2", 5);
    const std::string text(100, 'x');
    search.AppendCam(text, "81", text, text);
    for (long failing = 0;; ++failing) {
        CAM_SEARCH_INFO info{"a", "b", "c", "d", 4};
        ownMemory.nLeft = failing;
        const int result = search.CamGet(0, info);
        const bool failed = ownMemory.nLeft == kNever;
        ownMemory.nLeft = kNever;
        if (!failed) {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(failing, 3);
            break;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(info.strProtocol, "a");
        EXPECT_EQ(info.strHardware, "b");
        EXPECT_EQ(info.strIp, "c");
        EXPECT_EQ(info.strMac, "d");
        EXPECT_EQ(info.nPort, 4);
        EXPECT_EQ(pthread_mutex_trylock(&search.m_mutex), 0);  // the lock is free again
        pthread_mutex_unlock(&search.m_mutex);
    }
}

TEST(Allocation, CopyOfTheListFailsWhole) {
    OpenSearch search("192.168.1.2", 5);
    const std::string text(100, 'x');
    search.AppendCam(text, "81", text, text);
    search.AppendCam(text, "82", text, text);
    for (long failing = 0;; ++failing) {
        std::vector<ONVIF_CAM_SEARCH_INFO> list(3);
        ownMemory.nLeft = failing;
        const int result = search.CamAllGet(list);
        const bool failed = ownMemory.nLeft == kNever;
        ownMemory.nLeft = kNever;
        if (!failed) {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(list.size(), 2U);
            EXPECT_EQ(failing, 7);
            break;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(list.size(), 3U);
        EXPECT_EQ(pthread_mutex_trylock(&search.m_mutex), 0);
        pthread_mutex_unlock(&search.m_mutex);
    }
}

}  // namespace
