#include "utils/upnpsearchbase.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>

#include "host/zelnet.h"
#include "host/zelstring.h"

namespace {

constexpr std::int32_t kIdle = 0;
constexpr std::int32_t kSearching = 1;
constexpr std::int32_t kSearchOver = 2;

constexpr const char* kSearchTarget = "upnp:rootdevice";  // UPnP Device Architecture 1.0, 1.2.2
constexpr std::int32_t kMaxCycleSeconds = 5;

constexpr int kFetchTimeoutSeconds = 5;
constexpr std::int32_t kBytesWithoutLength = 2048;
constexpr const char* kHttpScheme = "http://";
constexpr std::size_t kHttpSchemeLength = 7;

class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
    ~MutexLock() { pthread_mutex_unlock(&m_mutex); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    pthread_mutex_t& m_mutex;
};

std::int32_t LoadState(std::int32_t& state) {
    return std::atomic_ref<std::int32_t>(state).load(std::memory_order_relaxed);
}

void StoreState(std::int32_t& state, std::int32_t value) {
    std::atomic_ref<std::int32_t>(state).store(value, std::memory_order_relaxed);
}

// A number's leading digits as strtol reads them, cut to 32 bits; 0 when there are none.
std::int32_t ReadNumber(const std::string& text) {
    return static_cast<std::int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

struct DescriptionUrl {
    std::string strHost;
    std::string strPort = "80";
    std::string strPath;
};

// False for a URL without "//" or without a slash after the host. The scheme is not looked at.
bool SplitUrl(const std::string& strUrl, DescriptionUrl& parts) {
    const std::size_t slashes = strUrl.find("//");
    if (slashes == std::string::npos) {
        return false;
    }
    const std::size_t host = slashes + 2;
    const std::size_t colon = strUrl.find(':', host);
    const std::size_t slash = strUrl.find('/', host);
    if (slash == std::string::npos) {
        return false;
    }
    parts.strPath = strUrl.substr(slash);
    if (colon == std::string::npos) {
        parts.strHost = strUrl.substr(host, slash - host);
        return true;
    }
    // A colon behind the slash counts too: the host then includes the path, and the unsigned length
    // wraps so that the port text runs to the end. The subnet test refuses such a host.
    parts.strHost = strUrl.substr(host, colon - host);
    parts.strPort = strUrl.substr(colon + 1, slash - (colon + 1));
    return true;
}

// Reads the body in one go: a short read is the whole document.
int ReadDocument(ZelNet::ZelHttpClient& client, std::string& strXml) {
    std::string strLength;
    client.GetHttpContent(HTTP_KEY_CONTENT_LENGTH, strLength);
    const std::int32_t length = ReadNumber(strLength);
    const std::int32_t size = length > 0 ? length : kBytesWithoutLength;
    const auto buffer = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(size) + 1);
    const int count = client.ReadData(buffer.get(), size);
    if (count <= 0) {
        return -1;
    }
    strXml.assign(buffer.get(), static_cast<std::size_t>(count));
    return 0;
}

// Fetches the description document at strUrl from a device in strLocalIp's subnet. 0 on success;
// -1 otherwise, and strXml is as it was.
int GetDeviceDescription(const std::string& strLocalIp, const std::string& strUrl,
                         std::string& strXml) {
    DescriptionUrl url;
    if (!SplitUrl(strUrl, url) || !IsSameSubnet(url.strHost, strLocalIp)) {
        return -1;
    }
    ZelNet::ZelHttpClient client;
    client.Init(url.strPath, url.strHost, ReadNumber(url.strPort), "", "", kFetchTimeoutSeconds,
                true, true, false, HTTP_VERSION_1_1, "", false, true);
    if (client.SendRequest(ZEL_HTTP_GET, "", "application/xml; charset=UTF-8") != 0) {
        return -1;
    }
    return ReadDocument(client, strXml);
}

}  // namespace

UpnpSearchBase::UpnpSearchBase(const std::string& strIp, int port, int searchTime)
    : m_mutex(PTHREAD_MUTEX_INITIALIZER),
      m_handle(0),
      m_state(kIdle),
      m_searchTime(searchTime),
      m_elapsed(0),
      m_port(port),
      m_strIp(strIp) {}

UpnpSearchBase::~UpnpSearchBase() {
    StopSearch();
    // Emptied here and not by their destructors, which run after this body: the mutex outlives what
    // it guards, and its last lock waits for a thread that is still inside.
    std::set<std::string>().swap(m_setDiscovered);
    std::string().swap(m_strIp);
    pthread_mutex_lock(&m_mutex);
    pthread_mutex_unlock(&m_mutex);
    pthread_mutex_destroy(&m_mutex);
}

int UpnpSearchBase::StartSearch() {
    const MutexLock lock(m_mutex);
    if (LoadState(m_state) != kIdle) {
        return -1;
    }
    int result = Upnp16::UpnpInit(m_strIp.c_str(), static_cast<unsigned short>(m_port));
    if (result == 0) {
        result = Upnp16::UpnpRegisterClient(CallbackHandler, this, &m_handle);
    }
    if (result != 0) {
        Upnp16::UpnpFinish();
        return result;
    }
    StoreState(m_state, kSearching);
    SendAsyncSearch();  // a search that could not be sent is over, and IsRunning says so
    return 0;
}

int UpnpSearchBase::SendAsyncSearch() {
    if (m_searchTime <= m_elapsed || LoadState(m_state) != kSearching) {
        // Also of an idle object: a timeout that races with StopSearch leaves it here, and the next
        // StopSearch unregisters again.
        StoreState(m_state, kSearchOver);
        return 0;
    }
    const std::int32_t seconds = std::min(m_searchTime - m_elapsed, kMaxCycleSeconds);
    const int result = Upnp16::UpnpSearchAsync(m_handle, seconds, kSearchTarget, this);
    if (result != 0) {
        StoreState(m_state, kSearchOver);
        return result;
    }
    m_elapsed += seconds;
    return 0;
}

int UpnpSearchBase::StopSearch() {
    {
        const MutexLock lock(m_mutex);
        if (LoadState(m_state) == kIdle) {
            return -1;
        }
        StoreState(m_state, kIdle);
    }
    // Without the lock: libupnp waits here for callbacks that may be waiting for it.
    Upnp16::UpnpUnRegisterClient(m_handle);
    Upnp16::UpnpFinish();
    return 0;
}

bool UpnpSearchBase::IsRunning() {
    const MutexLock lock(m_mutex);
    return LoadState(m_state) == kSearching;
}

int UpnpSearchBase::CallbackHandler(Upnp_EventType_e type, void* event, void* cookie) noexcept {
    auto* const self = static_cast<UpnpSearchBase*>(cookie);
    if (self == nullptr || LoadState(self->m_state) != kSearching) {
        return -1;
    }
    if (type == UPNP_DISCOVERY_SEARCH_TIMEOUT) {
        const MutexLock lock(self->m_mutex);
        self->SendAsyncSearch();
        return 0;
    }
    if (type != UPNP_DISCOVERY_SEARCH_RESULT && type != UPNP_DISCOVERY_ADVERTISEMENT_ALIVE) {
        return 0;
    }
    const auto* const discovery = static_cast<const Upnp_Discovery*>(event);
    if (discovery == nullptr || discovery->ErrCode != 0) {
        return -1;
    }
    // libupnp is C: no exception may pass through it, neither for want of memory nor the derived
    // class's. The device is lost then, as with a failed fetch.
    try {
        if (self->IsDeviceAlreadyDiscovered(discovery->Location)) {
            return 0;
        }
        std::string strXml;
        if (GetDeviceDescription(self->m_strIp, discovery->Location, strXml) == 0) {
            self->OnDeviceDiscovered(strXml, discovery->Location);
        }
    } catch (...) {
        return 0;
    }
    return 0;
}

bool UpnpSearchBase::IsDeviceAlreadyDiscovered(const char* location) {
    const MutexLock lock(m_mutex);
    return !m_setDiscovered.insert(location).second;
}

std::string UpnpSearchBase::GetUpnpResultInfo(const std::string& strXml,
                                              const std::string& strTag) try {
    const std::size_t opening = strXml.find("<" + strTag + ">");
    const std::size_t closing = strXml.find("</" + strTag + ">", opening);
    if (opening == std::string::npos || closing == std::string::npos) {
        return "";
    }
    // 32-bit and signed, converted back as substr takes them: a negative length runs to the end of
    // the document, and a start outside of it (beyond 2 GiB) has no text.
    const auto start =
        static_cast<std::size_t>(static_cast<std::int32_t>(opening + strTag.size() + 2));
    const auto length = static_cast<std::size_t>(static_cast<std::int32_t>(closing - start));
    return start > strXml.size() ? "" : strXml.substr(start, length);
} catch (...) {
    return "";
}

int UpnpSearchBase::ParseUrl(std::string strUrl, std::string& strHost, int& port) try {
    if (strUrl.compare(0, kHttpSchemeLength, kHttpScheme) != 0) {
        return -1;
    }
    strUrl.erase(0, kHttpSchemeLength);
    const std::string rest = Trim(strUrl, "/");
    const std::size_t colon = rest.find(':');
    if (colon == std::string::npos) {
        strHost = rest;
        port = 80;
        return 0;
    }
    const int number = ReadNumber(rest.substr(colon + 1));
    strHost = rest.substr(0, colon);
    port = number;
    return 0;
} catch (...) {
    return -1;
}
