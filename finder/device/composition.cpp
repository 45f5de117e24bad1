#include "finder/device/composition.h"

#include <fmt/chrono.h>

#include <algorithm>

#include "finder/device/fields.h"

namespace Lanscout {
namespace {

std::string TimeText(std::time_t time) {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(time));
}

}  // namespace

void Composition::Add(SourceId source, const Device& told, const std::string& mac,
                      std::time_t first, std::time_t last) {
    const auto [known, isNew] = m_toldBy.try_emplace(source, told);
    if (!isNew) {
        for (const Field& field : Fields()) {
            MergeSameSource(field, known->second, told);
        }
    }
    if (!told.ip.empty()) {
        m_ipv4.emplace(-static_cast<int>(told.reach), source, told.ip.size(), told.ip);
    }
    m_ipv6.insert(told.ipv6.begin(), told.ipv6.end());
    if (!mac.empty()) {
        m_macs.insert(mac);
    }
    m_first = std::min(m_first.value_or(first), first);
    m_last = std::max(m_last, last);
}

Device Composition::Result() const {
    Device device;
    for (const auto& [source, told] : m_toldBy) {
        for (const Field& field : Fields()) {
            MergeNextSource(field, device, told);
        }
    }
    SetAddresses(device);
    if (device.site.empty()) {  // a site says itself when
        device.firstSeen = TimeText(m_first.value_or(0));
        device.lastSeen = TimeText(m_last);
    }
    std::sort(device.seenVia.begin(), device.seenVia.end());
    return device;
}

void Composition::SetAddresses(Device& device) const {
    device.mac = m_macs.empty() ? "" : *m_macs.begin();
    device.ip = m_ipv4.empty() ? "" : std::get<std::string>(*m_ipv4.begin());
    std::set<std::string> others(device.otherIps.begin(), device.otherIps.end());
    for (const Ipv4Rank& address : m_ipv4) {
        others.insert(std::get<std::string>(address));
    }
    others.erase(device.ip);
    device.otherIps.assign(others.begin(), others.end());
    device.ipv6.assign(m_ipv6.begin(), m_ipv6.end());
}

}  // namespace Lanscout
