// What the messages of a broker say, taken together: the sites, their devices and what is wrong
// with them. Every payload is a stranger's.
#pragma once

#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "finder/device/device.h"

namespace Lanscout {

class SiteBook {
public:
    static constexpr std::size_t kLongestPayload = std::size_t{64} * 1024;
    static constexpr std::size_t kMostSites = 5000;
    static constexpr std::size_t kMostDevicesOfSite = 10000;

    // The device that a message tells of, if it is one that is there.
    std::optional<Device> Take(std::string_view topic, std::string_view payload);

    // The sites, with which nothing is left out but what is beyond kMostSites.
    std::vector<std::string> Sites() const;

    // Whether as many devices came as each site's last round counts.
    bool IsComplete() const;

    // What is wrong, a line each, at `now`.
    std::vector<std::string> Problems(std::time_t now) const;

private:
    struct Site {
        std::string status;
        int interval = 0;  // seconds; 0: not known
        std::time_t finished = -1;
        std::string finishedText;
        bool hasRound = false;
        bool complete = true;
        std::size_t counted = 0;  // devices, present and gone, as it says
        std::set<std::string> ids;
        std::size_t unreadable = 0;
    };

    Site* Find(const std::string& name);
    static void TakeInfo(std::string_view payload, Site& site);
    static void TakeRound(std::string_view payload, Site& site);
    static std::optional<Device> TakeDevice(const std::string& name, const std::string& id,
                                            std::string_view payload, Site& site);
    static void AddProblems(const std::string& name, const Site& site, std::time_t now,
                            std::vector<std::string>& problems);

    std::map<std::string, Site> m_sites;
    bool m_full = false;
};

}  // namespace Lanscout
