#include "utils/wsdiscoverybase.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "host/karnexec.h"
#include "host/sdkfuncdata.h"
#include "utils/bounded.h"
#include "utils/searchclock.h"
#include "utils/wslog.h"
#include "utils/xmlguard.h"

namespace {

// WS-Discovery (April 2005), section 2.4: group and port.
constexpr const char* kGroupAddress = "239.255.255.250";
constexpr std::uint16_t kDiscoveryPort = 3702;

constexpr int kReceiveTimeoutSeconds = 3;
constexpr std::size_t kMaxDatagramBytes = 4096;

constexpr const char* kDefaultPort = "80";
constexpr const char* kUnknownMac = "N/A";
#ifdef LANSCOUT_ARPING  // a build for a system that has it elsewhere
constexpr const char* kArpingPath = LANSCOUT_ARPING;
#else
constexpr const char* kArpingPath = "/usr/bin/arping";
#endif
constexpr int kArpingOptions = 0xBB;
constexpr int kArpAttempts = 3;

constexpr std::string_view kProbeUntilId =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
    "<Envelope xmlns=\"http://www.w3.org/2003/05/soap-envelope\""
    " xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\""
    " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">"
    "<Header>"
    "<wsa:MessageID xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\">uuid:";
constexpr std::string_view kProbeUntilTypes =
    "</wsa:MessageID>"
    "<wsa:To xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\">"
    "urn:schemas-xmlsoap-org:ws:2005:04:discovery</wsa:To>"
    "<wsa:Action xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\">"
    "http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</wsa:Action>"
    "</Header>"
    "<Body><Probe xmlns=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\""
    " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
    " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"><Types>";
constexpr std::string_view kProbeEnd = "</Types><Scopes/></Probe></Body></Envelope>";
static_assert(kProbeUntilId.size() == 287);
static_assert(kProbeUntilTypes.size() == 461);
static_assert(kProbeEnd.size() == 43);

class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
    ~MutexLock() { pthread_mutex_unlock(&m_mutex); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    pthread_mutex_t& m_mutex;
};

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

private:
    int m_fd;
};

// For members that one side reads or writes without the lock.
template <typename T>
T LoadRelaxed(T& shared) {
    return std::atomic_ref<T>(shared).load(std::memory_order_relaxed);
}

template <typename T>
void StoreRelaxed(T& shared, T value) {
    std::atomic_ref<T>(shared).store(value, std::memory_order_relaxed);
}

// Fills in address and port; false if the text is not an address.
bool MakeAddress(const char* ip, std::uint16_t port, sockaddr_in& address) {
    address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    return inet_aton(ip, &address.sin_addr) != 0;
}

// Frees a text's storage before the object that holds it ends.
void Release(std::string& text) {
    std::string().swap(text);
}

// A child that another thread of the process starts meanwhile must not inherit the socket.
int OpenDatagramSocket() {
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    if (sock >= 0) {
        fcntl(sock, F_SETFD, FD_CLOEXEC);
    }
    return sock;
}

std::string FormatMac(const sockaddr& hardware) {
    unsigned char bytes[6];
    memcpy(bytes, hardware.sa_data, sizeof(bytes));
    char text[18];
    snprintf(text, sizeof(text), "%02X:%02X:%02X:%02X:%02X:%02X", bytes[0], bytes[1], bytes[2],
             bytes[3], bytes[4], bytes[5]);
    return static_cast<const char*>(text);
}

}  // namespace

WSDiscoveryBase::WSDiscoveryBase(std::string strIp, int timeout)
    : m_timeout(timeout), m_bRunning(false), m_startTime(0), m_strIp(std::move(strIp)) {
    pthread_mutex_init(&m_mutex, nullptr);
    _tag_NETINFO_ netinfo;  // not initialised: the host fills it in
    if (SDKFuncData::NetGetCard1(m_strIp, netinfo) == 1 && netinfo.bUsable != 0) {
        m_strIfName = static_cast<const char*>(netinfo.szName);
    } else {
        WS_LOG(LOG_LEVEL_NOTICE, "Get interface failed\n");
    }
    m_thread = 0;
}

// Last, when list and texts are gone, the lock waits for a thread that is still inside. Hence the
// explicit releases: the members' own destructors run after this body.
WSDiscoveryBase::~WSDiscoveryBase() {
    StopSearch();
    std::vector<ONVIF_CAM_SEARCH_INFO>().swap(m_vecCamInfo);
    Release(m_strIfName);
    Release(m_strIp);
    pthread_mutex_lock(&m_mutex);
    pthread_mutex_unlock(&m_mutex);
    pthread_mutex_destroy(&m_mutex);
}

int WSDiscoveryBase::StartSearch() {
    StoreRelaxed(m_bRunning, true);
    pthread_t thread = 0;
    const int error = pthread_create(&thread, nullptr, ThreadFunc, this);
    if (error != 0) {
        // m_bRunning deliberately stays true: callers learn of the failure from this result, and
        // the header says that IsRunning answers true from then on.
        WS_LOG(LOG_LEVEL_ERROR, "Create Thread Failed: [%d]\n", error);
        return -1;
    }
    m_thread = thread;  // stored only when there is a thread to be joined
    return 0;
}

// Only waits: nothing but the end of the duration or a failed send ends a search.
int WSDiscoveryBase::StopSearch() {
    if (m_thread != 0) {
        pthread_join(m_thread, nullptr);
        m_thread = 0;
    }
    return 0;
}

bool WSDiscoveryBase::IsRunning() {
    const MutexLock lock(m_mutex);
    return LoadRelaxed(m_bRunning);
}

bool WSDiscoveryBase::IsTimeout() {
    return difftime(time(nullptr), LoadRelaxed(m_startTime)) > static_cast<double>(m_timeout);
}

bool WSDiscoveryBase::IsOverdue() {
    const std::time_t start = LoadRelaxed(m_startTime);
    const double passed = t_probingSince == 0
                              ? difftime(time(nullptr), start)
                              : static_cast<double>(MonotonicMicroseconds() - t_probingSince) / 1e6;
    return start != 0 && passed > static_cast<double>(m_timeout) + kOverdueSeconds;
}

bool WSDiscoveryBase::IsDuplicatedCam(const std::string& ip) {
    return std::any_of(m_vecCamInfo.begin(), m_vecCamInfo.end(),
                       [&ip](const ONVIF_CAM_SEARCH_INFO& info) { return info.strIp == ip; });
}

int WSDiscoveryBase::CamCountGet() {
    const MutexLock lock(m_mutex);
    return static_cast<int>(m_vecCamInfo.size());
}

int WSDiscoveryBase::CamGet(unsigned int index, CAM_SEARCH_INFO& info) try {
    const MutexLock lock(m_mutex);
    if (index >= m_vecCamInfo.size()) {
        return -1;
    }
    const ONVIF_CAM_SEARCH_INFO& found = m_vecCamInfo[index];
    info = CAM_SEARCH_INFO{found.strProtocol, found.strHardware, found.strIp, found.strMac,
                           found.nPort};
    return 0;
} catch (const std::bad_alloc&) {
    return -1;
}

int WSDiscoveryBase::CamAllGet(std::vector<ONVIF_CAM_SEARCH_INFO>& list) try {
    const MutexLock lock(m_mutex);
    std::vector<ONVIF_CAM_SEARCH_INFO>(m_vecCamInfo).swap(list);
    return 0;
} catch (const std::bad_alloc&) {
    return -1;
}

void* WSDiscoveryBase::ThreadFunc(void* arg) {
    auto& search = *static_cast<WSDiscoveryBase*>(arg);
    HardenXmlOnThisThread();
    std::map<std::string, std::string> replies;
    int sock = OpenDatagramSocket();
    const int error = errno;
    const Descriptor owner(sock);
    try {
        if (sock == -1) {
            WS_LOG(LOG_LEVEL_ERROR, "Create socket failed. [%d]\n", error);
        } else if (search.SetupSocketParam(sock) != 0) {
            WS_LOG(LOG_LEVEL_NOTICE, "SetupSocketParam failed.\n");
        } else {
            search.RunCycles(sock, replies);
        }
    } catch (const std::bad_alloc&) {
        // The search ends here, with what it has listed.
    }
    const MutexLock lock(search.m_mutex);
    StoreRelaxed(search.m_bRunning, false);
    try {
        WS_LOG(LOG_LEVEL_INFO, "Total camera found: %d\n",
               static_cast<int>(search.m_vecCamInfo.size()));
    } catch (const std::bad_alloc&) {
        // The search ends without this line.
    }
    return nullptr;
}

void WSDiscoveryBase::RunCycles(int sock, std::map<std::string, std::string>& replies) {
    // The duration counts from here, when the socket is ready.
    StoreRelaxed(m_startTime, time(nullptr));
    const ProbingSince since(kBounded ? MonotonicMicroseconds() : 0);
    // The addresses in the list. IsDuplicatedCam gives the same answers, but walks the list for
    // each sender in each cycle.
    std::unordered_set<std::string> listed;
    for (const ONVIF_CAM_SEARCH_INFO& info : m_vecCamInfo) {
        listed.insert(info.strIp);
    }
    std::int64_t lastPair = 0;
    // The running flag does not count here: only the duration or a failed send ends a search.
    while (!IsTimeout()) {
        if constexpr (kBounded) {
            // A wall clock that was set back lengthens the duration, but not for ever.
            if (IsOverdue()) {
                return;
            }
            // An empty datagram ends the receive below at once. Without this pause, a sender of
            // many would make the loop multicast as fast as it can.
            PaceProbes(lastPair);
        }
        // Both in every cycle, NVT first.
        if (SendProbeMessage(sock, ONVIF_PROBE_NVT) != 0 ||
            SendProbeMessage(sock, ONVIF_PROBE_DEVICE) != 0) {
            return;
        }
        RecvProbeMatchMessage(sock, replies);
        ListReplies(replies, listed);
    }
}

void WSDiscoveryBase::ListReplies(std::map<std::string, std::string>& replies,
                                  std::unordered_set<std::string>& listed) {
    for (auto& [ip, reply] : replies) {
        if (listed.contains(ip)) {
            continue;
        }
        std::string port = kDefaultPort;
        std::string hardware;
        std::string mac = kUnknownMac;
        // If one of the two fails, the camera is listed with what is preset above.
        GetMACAddr(ip, mac);
        ParseProbeMatchMessage(ip, reply, port, hardware);
        WS_LOG_OF("ThreadFunc", LOG_LEVEL_INFO,
                  "Camera found: IP: [%s], port: [%s], hardware: [%s]\n", ip.c_str(), port.c_str(),
                  hardware.c_str());
        AppendCam(ip, port, hardware, mac);
        listed.insert(ip);
        if constexpr (kBounded) {
            Release(reply);
        }
    }
}

void WSDiscoveryBase::AppendCam(const std::string& ip, const std::string& port,
                                const std::string& hardware, const std::string& mac) {
    ONVIF_CAM_SEARCH_INFO info;
    info.strProtocol = "ONVIF";
    info.strHardware = hardware;
    info.strIp = ip;
    // Deliberately not checked, since callers rely on it: no digits give 0, what follows the digits
    // is ignored, and larger numbers are cut to 32 bits.
    info.nPort = static_cast<int>(strtol(port.c_str(), nullptr, 10));
    info.strMac = mac;
    const MutexLock lock(m_mutex);
    m_vecCamInfo.push_back(std::move(info));
}

void WSDiscoveryBase::GenerateUUID(std::string& uuid) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const std::uint32_t time = static_cast<std::uint32_t>(now.tv_sec) * 1'000'000U +
                               static_cast<std::uint32_t>(now.tv_usec);
    srand(static_cast<std::uint32_t>(getpid()) * time);
    // The moduli 65535 and 16383 and the order, last value first, are deliberate: ids keep the form
    // that they always had. So a plain group is never "ffff".
    unsigned int drawn[8];
    for (unsigned int& value : drawn) {
        value = static_cast<unsigned int>(rand()) % 65535U;
    }
    char text[37];
    snprintf(text, sizeof(text), "%04x%04x-%04x-%04x-%04x-%04x%04x%04x", drawn[7], drawn[6],
             drawn[5], (drawn[4] & 0x0FFFU) | 0x4000U, drawn[3] % 16383U + 0x8000U, drawn[2],
             drawn[1], drawn[0]);
    uuid = static_cast<const char*>(text);
}

int WSDiscoveryBase::GenerateProbeMessage(ONVIF_PROBE_TYPE type, std::string& message) {
    const char* types = nullptr;
    switch (static_cast<int>(type)) {
        case ONVIF_PROBE_DEVICE:
            types = "tds:Device";
            break;
        case ONVIF_PROBE_NVT:
            types = "dn:NetworkVideoTransmitter";
            break;
        default:
            WS_LOG(LOG_LEVEL_NOTICE, "Unknown Search Type [%d]\n", static_cast<int>(type));
            return -1;
    }
    std::string uuid;
    GenerateUUID(uuid);
    std::string built;
    built.reserve(kProbeUntilId.size() + uuid.size());
    built.append(kProbeUntilId)
        .append(uuid)
        .append(kProbeUntilTypes)
        .append(types)
        .append(kProbeEnd);
    message.swap(built);
    return 0;
}

int WSDiscoveryBase::SetupSocketParam(int& sock) {
    sockaddr_in address;
    if (!MakeAddress(m_strIp.c_str(), kDiscoveryPort, address)) {
        WS_LOG(LOG_LEVEL_NOTICE, "Invalid IP address: %s\n", m_strIp.c_str());
        return -1;
    }
    // The interface's own address and no option that would share the port: the socket receives
    // nothing but the unicast replies to its Probes.
    if (bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1) {
        const int error = errno;
        WS_LOG(LOG_LEVEL_NOTICE, "Bind socket failed. [%d]\n", error);
        return -1;
    }
    const timeval timeout{kReceiveTimeoutSeconds, 0};
    if (setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) == -1) {
        WS_LOG(LOG_LEVEL_NOTICE, "Set recv timeout failed.\n");
        return -1;
    }
    return 0;
}

int WSDiscoveryBase::SendProbeMessage(int sock, ONVIF_PROBE_TYPE type) {
    std::string message;
    if (GenerateProbeMessage(type, message) != 0) {
        return -1;
    }
    sockaddr_in group;
    if (!MakeAddress(kGroupAddress, kDiscoveryPort, group)) {  // the constant always converts
        WS_LOG(LOG_LEVEL_NOTICE, "Invalid IP address: %s\n", kGroupAddress);
        return -1;
    }
    const ssize_t sent = sendto(sock, message.data(), message.size(), 0,
                                reinterpret_cast<const sockaddr*>(&group), sizeof(group));
    if (sent != static_cast<ssize_t>(message.size())) {
        const int error = errno;
        WS_LOG(LOG_LEVEL_NOTICE, "Send probe message failed. [%d]\n", error);
        return -1;
    }
    return 0;
}

void WSDiscoveryBase::RecvProbeMatchMessage(int sock, std::map<std::string, std::string>& replies) {
    sockaddr_in sender{};
    socklen_t senderLength = sizeof(sender);
    char buffer[kMaxDatagramBytes + 1];
    for (;;) {
        // In the default build this loop ends only when nothing is received. A sender that sends
        // at least every 3 seconds keeps it going.
        const ssize_t received = recvfrom(sock, buffer, kMaxDatagramBytes, 0,
                                          reinterpret_cast<sockaddr*>(&sender), &senderLength);
        if (received <= 0) {
            return;
        }
        buffer[received] = '\0';
        char ip[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &sender.sin_addr, ip, sizeof(ip));
        // The first reply of a sender counts. Its answer to the other Probe is dropped.
        if constexpr (kBounded) {
            if (replies.size() < kMaxSenders) {
                replies.try_emplace(ip, static_cast<const char*>(buffer));
            }
            if (IsOverdue()) {
                return;
            }
        } else {
            replies.try_emplace(ip, static_cast<const char*>(buffer));
        }
    }
}

int WSDiscoveryBase::GetMACAddr(const std::string& ip, std::string& mac) {
    arpreq request{};
    sockaddr_in address;
    if (!MakeAddress(ip.c_str(), 0, address)) {
        WS_LOG(LOG_LEVEL_NOTICE, "Invalid IP address: %s\n", ip.c_str());
        return -1;
    }
    memcpy(&request.arp_pa, &address, sizeof(address));
    const int sock = OpenDatagramSocket();
    const int error = errno;
    if (sock < 0) {
        WS_LOG(LOG_LEVEL_NOTICE, "Create socket failed. [%d]\n", error);
        return -1;
    }
    const Descriptor owner(sock);
    // Interface names fit; the limit is for a host that returns something else.
    m_strIfName.copy(request.arp_dev, sizeof(request.arp_dev) - 1);
    for (int attempt = 0; attempt < kArpAttempts; ++attempt) {
        if (ioctl(sock, SIOCGARP, &request) < 0 && errno == ENXIO) {
            // arping takes up to three seconds for each address: forged senders would hold the
            // search for days.
            if (kBounded && IsOverdue()) {
                return -1;
            }
            if (KarnExecl(kArpingPath, kArpingOptions, "-c", "1", "-w", "1", ip.c_str(),
                          static_cast<const char*>(nullptr)) != 0) {
                WS_LOG(LOG_LEVEL_INFO, "Failed to update arp table.\n");
            }
        }
        // Checked after a failed query too, with the flags of the last one that succeeded. What
        // the kernel has learned through arping is seen by the next attempt.
        if ((request.arp_flags & ATF_COM) != 0) {
            mac = FormatMac(request.arp_ha);
            return 0;
        }
    }
    return -1;
}
