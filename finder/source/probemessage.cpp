#include "finder/source/probemessage.h"

#include <fmt/core.h>

namespace Lanscout {
namespace {

constexpr std::string_view kUntilId =
    R"(<?xml version="1.0" encoding="UTF-8"?>)"
    R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope")"
    R"( xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing")"
    R"( xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery")"
    R"( xmlns:dn="http://www.onvif.org/ver10/network/wsdl")"
    R"( xmlns:tds="http://www.onvif.org/ver10/device/wsdl">)"
    "<s:Header>"
    "<a:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</a:Action>"
    "<a:MessageID>";
constexpr std::string_view kUntilTypes =
    "</a:MessageID>"
    "<a:ReplyTo><a:Address>"
    "http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous"
    "</a:Address></a:ReplyTo>"
    "<a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To>"
    "</s:Header>"
    "<s:Body><d:Probe><d:Types>";
constexpr std::string_view kEnd = "</d:Types></d:Probe></s:Body></s:Envelope>";

std::mt19937_64 Seeded() {
    std::random_device device;
    std::seed_seq seed{device(), device(), device(), device()};
    return std::mt19937_64(seed);
}

constexpr std::string_view TypeText(ProbeType type) {
    return type == ProbeType::Device ? "tds:Device" : "dn:NetworkVideoTransmitter";
}

}  // namespace

MessageIds::MessageIds() : m_random(Seeded()) {}

std::string MessageIds::Next() {
    constexpr std::uint64_t kVersion = 0x4000;      // in bits 12 to 15 of the third group
    constexpr std::uint64_t kVariant = 1ULL << 63;  // the two highest bits of the fourth are 10
    const std::uint64_t high = (m_random() & ~0xF000ULL) | kVersion;
    const std::uint64_t low = (m_random() >> 2) | kVariant;
    return fmt::format("urn:uuid:{:08x}-{:04x}-{:04x}-{:04x}-{:012x}", high >> 32,
                       high >> 16 & 0xFFFF, high & 0xFFFF, low >> 48, low & 0xFFFFFFFFFFFF);
}

std::string ProbeMessage(ProbeType type, std::string_view messageId) {
    const std::string_view types = TypeText(type);
    std::string text;
    text.reserve(kUntilId.size() + messageId.size() + kUntilTypes.size() + types.size() +
                 kEnd.size());
    text.append(kUntilId).append(messageId).append(kUntilTypes).append(types).append(kEnd);
    return text;
}

}  // namespace Lanscout
