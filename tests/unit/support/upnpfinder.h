// A derived class of UpnpSearchBase for tests: collects what it is handed, and opens the base.
#pragma once

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "utils/upnpsearchbase.h"

class UpnpFinder : public UpnpSearchBase {
public:
    using UpnpSearchBase::UpnpSearchBase;
    ~UpnpFinder() override { StopSearch(); }

    using UpnpSearchBase::CallbackHandler;
    using UpnpSearchBase::GetUpnpResultInfo;
    using UpnpSearchBase::IsDeviceAlreadyDiscovered;
    using UpnpSearchBase::m_elapsed;
    using UpnpSearchBase::m_handle;
    using UpnpSearchBase::m_mutex;
    using UpnpSearchBase::m_port;
    using UpnpSearchBase::m_searchTime;
    using UpnpSearchBase::m_setDiscovered;
    using UpnpSearchBase::m_state;
    using UpnpSearchBase::m_strIp;
    using UpnpSearchBase::ParseUrl;
    using UpnpSearchBase::SendAsyncSearch;

    // Description and location of every device, in the order of finding.
    std::vector<std::pair<std::string, std::string>> Found() {
        const std::lock_guard lock(m_foundMutex);
        return m_found;
    }

    bool LockIsFree() {
        if (pthread_mutex_trylock(&m_mutex) != 0) {
            return false;
        }
        pthread_mutex_unlock(&m_mutex);
        return true;
    }

    std::function<void(const std::string&, const char*)> m_during;  // runs in OnDeviceDiscovered

protected:
    void OnDeviceDiscovered(const std::string& descriptionXml, const char* location) override {
        if (m_during) {
            m_during(descriptionXml, location);
        }
        const std::lock_guard lock(m_foundMutex);
        m_found.emplace_back(descriptionXml, location);
    }

    std::mutex m_foundMutex;
    std::vector<std::pair<std::string, std::string>> m_found;
};

// What a search reply or an advertisement said.
inline Upnp_Discovery MakeDiscovery(const std::string& location, int errCode = UPNP_E_SUCCESS) {
    Upnp_Discovery discovery{};
    discovery.ErrCode = errCode;
    location.copy(discovery.Location, sizeof(discovery.Location) - 1);
    return discovery;
}

// An HTTP client's ReadData that delivers `document`, as much as fits.
inline std::function<int(char*, int)> Delivering(const std::string& document) {
    return [document](char* buffer, int size) {
        return static_cast<int>(
            document.copy(buffer, std::min(document.size(), static_cast<std::size_t>(size))));
    };
}
