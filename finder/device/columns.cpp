#include "finder/device/columns.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <tuple>

namespace Lanscout {
namespace {

std::uint32_t AddressValue(const std::string& ip) {
    in_addr address{};
    inet_pton(AF_INET, ip.c_str(), &address);
    return ntohl(address.s_addr);
}

template <std::string Device::*Member>
std::string TextOf(const Device& device) {
    return device.*Member;
}

std::string PortOf(const Device& device) {
    return std::to_string(device.port);
}

std::string KindOf(const Device& device) {
    return KindText(device.kind);
}

std::string MakerOf(const Device& device) {
    return ShownMaker(device);
}

std::string InterfacesOf(const Device& device) {
    std::string text;
    for (const Target& via : device.seenVia) {
        text += (text.empty() ? "" : ",") + (via.interface.empty() ? via.address : via.interface);
    }
    return text;
}

// Numbers sort by value, texts by bytes; an unknown text comes last.
std::tuple<bool, std::int64_t, std::string> SortKey(const Device& device, const Column& column) {
    const std::string name = column.name;
    if (name == "ip") {
        return {false, AddressValue(device.ip), ""};
    }
    if (name == "port") {
        return {false, device.port, ""};
    }
    std::string text = column.text(device);
    return {text.empty() || text == "unknown", 0, std::move(text)};
}

}  // namespace

const std::vector<Column>& Columns() {
    static const std::vector<Column> kColumns{
        {"ip", "IP", &TextOf<&Device::ip>},
        {"port", "PORT", &PortOf},
        {"hardware", "HARDWARE", &TextOf<&Device::hardware>},
        {"mac", "MAC", &TextOf<&Device::mac>},
        {"maker", "MAKER", &MakerOf},
        {"kind", "KIND", &KindOf},
        {"protocols", "FOUND BY", &ProtocolsText},
        {"name", "NAME", &TextOf<&Device::name>},
        {"model", "MODEL", &TextOf<&Device::model>},
        {"page", "PAGE", &TextOf<&Device::page>},
        {"interface", "SEEN ON", &InterfacesOf},
    };
    return kColumns;
}

std::vector<std::string> ColumnNames() {
    std::vector<std::string> names;
    for (const Column& column : Columns()) {
        names.emplace_back(column.name);
    }
    return names;
}

const Column& ColumnNamed(const std::string& name) {
    return *std::find_if(Columns().begin(), Columns().end(),
                         [&](const Column& column) { return column.name == name; });
}

void SortDevices(std::vector<Device>& devices, const std::string& column) {
    const Column& by = ColumnNamed(column);
    std::vector<std::pair<std::tuple<std::tuple<bool, std::int64_t, std::string>, std::uint32_t>,
                          std::size_t>>
        keys;
    keys.reserve(devices.size());
    for (std::size_t i = 0; i < devices.size(); ++i) {
        keys.push_back({{SortKey(devices[i], by), AddressValue(devices[i].ip)}, i});
    }
    std::sort(keys.begin(), keys.end());
    std::vector<Device> sorted;
    sorted.reserve(devices.size());
    for (const auto& key : keys) {
        sorted.push_back(std::move(devices[key.second]));
    }
    devices = std::move(sorted);
}

}  // namespace Lanscout
