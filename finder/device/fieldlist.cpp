// The rows of the table of fields.
#include <array>

#include "finder/device/fields.h"

namespace Lanscout {
namespace {

std::string MakerOf(const Device& device) {
    return ShownMaker(device);
}

std::string ModelOf(const Device& device) {
    return ShownModel(device);
}

std::string KindOf(const Device& device) {
    std::string text = KindText(device.kind);
    return IsUnconfigured(device) ? text + " (not set up)" : text;
}

std::string InterfacesOf(const Device& device) {
    std::string text;
    for (const Target& via : device.seenVia) {
        text += (text.empty() ? "" : ",") + (via.interface.empty() ? via.address : via.interface);
    }
    return text;
}

constexpr bool kReported = true;
constexpr bool kQuiet = false;
constexpr bool kCsv = true;
constexpr bool kNoCsv = false;
constexpr Width kAsWideAsItIs{};

using enum SortKind;

// member, name, title, merge, reported, width, rank, sort, CSV, shown
const std::array kFields{
    Field{&Device::ip, "ip", "IP", Merge::Ranked, kReported, kAsWideAsItIs, kAlwaysInTable, Address,
          kCsv, &ShownAddress},
    Field{&Device::port, "port", "PORT", Merge::Ranked, kReported, kAsWideAsItIs, 4, Number, kCsv},
    Field{&Device::hardware,
          "hardware",
          "HARDWARE",
          Merge::Ranked,
          kReported,
          {12, 32},
          kNotInTable,
          Text,
          kCsv},
    Field{&Device::mac, "mac", "MAC", Merge::Ranked, kReported, kAsWideAsItIs, 2, Text, kCsv,
          &ShownMac},
    Field{&Device::maker,
          "maker",
          "MAKER",
          Merge::Ranked,
          kReported,
          {10, 24},
          7,
          Text,
          kCsv,
          &MakerOf},
    Field{&Device::kind, "kind", "KIND", Merge::Larger, kReported, kAsWideAsItIs, 5, Text, kCsv,
          &KindOf},
    Field{&Device::protocols, "protocols", "FOUND BY", Merge::Both, kQuiet, kAsWideAsItIs, 9, Text,
          kCsv},
    Field{&Device::name, "name", "NAME", Merge::Ranked, kReported, {12, 32}, 6, Text, kCsv},
    Field{&Device::model,
          "model",
          "MODEL",
          Merge::Ranked,
          kReported,
          {12, 32},
          1,
          Text,
          kCsv,
          &ModelOf},
    // A UPnP description names the page; an ONVIF device only where its services stand.
    Field{&Device::page, "page", "PAGE", Merge::RankedLast, kReported, kAsWideAsItIs, 8, Text,
          kCsv},
    Field{&Device::seenVia, "seenVia", "SEEN ON", Merge::Both, kQuiet, kAsWideAsItIs, 12, Text,
          kCsv, &InterfacesOf},
    Field{
        &Device::location, "location", "PLACE", Merge::Ranked, kReported, {10, 24}, 10, Text, kCsv},
    Field{&Device::serial, "serial", "SERIAL", Merge::Ranked, kReported, {10, 20}, 14, Text, kCsv},
    Field{&Device::firmware,
          "firmware",
          "FIRMWARE",
          Merge::Ranked,
          kReported,
          {8, 16},
          kNotInTable,
          Text,
          kCsv},
    Field{&Device::reach, "reach", "REACH", Merge::Larger, kQuiet, kAsWideAsItIs, 11, Text, kCsv},
    Field{&Device::sharedAddress, "sharedAddress", "SHARED ADDRESS", Merge::Larger, kQuiet,
          kAsWideAsItIs, kNotInTable, Text, kCsv},
    Field{
        &Device::otherIps, "otherIps", "OTHER IPS", Merge::Both, kQuiet, {15, 31}, 13, Text, kCsv},
    Field{&Device::ipv6, "ipv6", "IPV6", Merge::Both, kQuiet, kAsWideAsItIs, kNotInTable, Text,
          kCsv},
    Field{&Device::uuid, "uuid", "ID", Merge::Ranked, kQuiet, kAsWideAsItIs, kNotInTable, Text,
          kCsv},
    Field{&Device::udn, "udn", "UPNP ID", Merge::Ranked, kQuiet, kAsWideAsItIs, kNotInTable, Text,
          kCsv},
    Field{&Device::macMaker, "macMaker", "MAC MAKER", Merge::Ranked, kQuiet, kAsWideAsItIs,
          kNotInTable, Text, kCsv},
    Field{&Device::claimedMac, "claimedMac", "CLAIMED MAC", Merge::Ranked, kQuiet, kAsWideAsItIs,
          kNotInTable, Text, kCsv},
    Field{&Device::profiles, "profiles", "PROFILES", Merge::Both, kQuiet, kAsWideAsItIs,
          kNotInTable, Text, kCsv},
    Field{&Device::types, "types", "TYPES", Merge::Both, kQuiet, kAsWideAsItIs, kNotInTable, Text,
          kNoCsv},
    Field{&Device::scopes, "scopes", "SCOPES", Merge::Both, kQuiet, kAsWideAsItIs, kNotInTable,
          Text, kNoCsv},
    Field{&Device::xaddrs, "xaddrs", "SERVICE ADDRESSES", Merge::Both, kQuiet, kAsWideAsItIs,
          kNotInTable, Text, kCsv},
    Field{&Device::metadataVersion, "metadataVersion", "METADATA VERSION", Merge::Larger, kQuiet,
          kAsWideAsItIs, kNotInTable, Number, kNoCsv},
    Field{&Device::deviceType, "deviceType", "DEVICE TYPE", Merge::Ranked, kQuiet, kAsWideAsItIs,
          kNotInTable, Text, kCsv},
    Field{&Device::descriptionUrl, "descriptionUrl", "DESCRIPTION", Merge::Ranked, kQuiet,
          kAsWideAsItIs, kNotInTable, Text, kNoCsv},
    Field{&Device::firstSeen, "firstSeen", "FIRST SEEN", Merge::Earliest, kQuiet, kAsWideAsItIs,
          kNotInTable, Text, kCsv},
    Field{&Device::lastSeen, "lastSeen", "LAST SEEN", Merge::Larger, kQuiet, kAsWideAsItIs,
          kNotInTable, Text, kCsv},
    Field{&Device::site, "site", "SITE", Merge::Ranked, kQuiet, {8, 24}, 3, Text, kCsv},
};

}  // namespace

std::span<const Field> Fields() {
    return kFields;
}

}  // namespace Lanscout
