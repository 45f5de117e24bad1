#include "finder/device/inventory.h"

#include <algorithm>

namespace Lanscout {
namespace {

template <typename T>
bool Contains(const std::vector<T>& list, const T& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

bool Contradict(const std::string& a, const std::string& b) {
    return !a.empty() && !b.empty() && a != b;
}

bool HasIp(const Device& device, const std::string& ip) {
    return device.ip == ip || Contains(device.otherIps, ip);
}

bool SeenThroughInterface(const Device& device, const std::string& interface) {
    return std::any_of(device.seenVia.begin(), device.seenVia.end(),
                       [&](const Target& via) { return via.interface == interface; });
}

void TakeText(std::string& known, const std::string& seen) {
    if (known.empty()) {
        known = seen;
    }
}

// The camera search names the port of the device service; the description's port is a stand-in.
void TakePort(Device& known, const Device& seen) {
    if (known.port == 0 || (seen.onvif && !known.onvif)) {
        known.port = seen.port;
    }
}

void Merge(Device& known, const Device& seen, const Target& via) {
    TakePort(known, seen);
    known.onvif = known.onvif || seen.onvif;
    known.upnp = known.upnp || seen.upnp;
    known.kind = std::max(known.kind, seen.kind);
    for (const auto member : {&Device::hardware, &Device::mac, &Device::macMaker, &Device::name,
                              &Device::maker, &Device::model, &Device::page, &Device::deviceType,
                              &Device::udn, &Device::location, &Device::firstSeen}) {
        TakeText(known.*member, seen.*member);
    }
    if (!HasIp(known, seen.ip)) {
        known.otherIps.push_back(seen.ip);
    }
    if (!Contains(known.seenVia, via)) {
        known.seenVia.push_back(via);
    }
}

}  // namespace

std::size_t DeviceTable::Find(const Device& seen, const Target& via) const {
    const auto sameIp = m_byIp.equal_range(seen.ip);
    for (auto at = sameIp.first; at != sameIp.second; ++at) {
        if (!Contradict(m_devices[at->second].mac, seen.mac)) {
            return at->second;
        }
    }
    if (seen.mac.empty()) {
        return kNone;
    }
    const auto sameMac = m_byMac.equal_range(seen.mac);
    for (auto at = sameMac.first; at != sameMac.second; ++at) {
        const Device& known = m_devices[at->second];
        if (!SeenThroughInterface(known, via.interface) &&
            !Contradict(known.hardware, seen.hardware)) {
            return at->second;
        }
    }
    return kNone;
}

DeviceTable::Result DeviceTable::Add(const Device& seen, const Target& via) {
    const std::size_t found = Find(seen, via);
    if (found == kNone) {
        if (m_devices.size() >= kMostDevices) {
            return {Change::Full, kNone};
        }
        const std::size_t index = m_devices.size();
        m_devices.push_back(seen);
        m_devices.back().seenVia = {via};
        m_byIp.emplace(seen.ip, index);
        if (!seen.mac.empty()) {
            m_byMac.emplace(seen.mac, index);
        }
        return {Change::Added, index};
    }
    Device& known = m_devices[found];
    Device merged = known;
    Merge(merged, seen, via);
    if (merged == known) {
        return {Change::None, found};
    }
    if (!HasIp(known, seen.ip)) {
        m_byIp.emplace(seen.ip, found);
    }
    if (known.mac.empty() && !merged.mac.empty()) {
        m_byMac.emplace(merged.mac, found);
    }
    known = std::move(merged);
    return {Change::Updated, found};
}

}  // namespace Lanscout
