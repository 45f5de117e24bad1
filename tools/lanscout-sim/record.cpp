#include "tools/lanscout-sim/record.h"

#include <fmt/format.h>
#include <tins/ethernetII.h>
#include <tins/exceptions.h>
#include <tins/ip.h>
#include <tins/ip_reassembler.h>
#include <tins/rawpdu.h>
#include <tins/sniffer.h>
#include <tins/udp.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iostream>
#include <map>
#include <set>

#include "tools/lanscout-sim/base/setuperror.h"
#include "tools/lanscout-sim/devicejson.h"
#include "tools/lanscout-sim/network/network.h"
#include "tools/lanscout-sim/onvif/xmldocument.h"

namespace lansim {
namespace {

using nlohmann::ordered_json;

constexpr int kWrongUse = 2;
constexpr std::string_view kHardware = "onvif://www.onvif.org/hardware/";
constexpr std::string_view kName = "onvif://www.onvif.org/name/";
constexpr std::string_view kLocation = "onvif://www.onvif.org/location/";

std::string Decoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto hex = text.substr(i + 1, 2);
        const bool isEscape =
            text[i] == '%' && hex.size() == 2 &&
            std::ranges::all_of(hex, [](unsigned char c) { return std::isxdigit(c) != 0; });
        out += isEscape ? static_cast<char>(std::stoi(std::string(hex), nullptr, 16)) : text[i];
        i += isEscape ? 2 : 0;
    }
    return out;
}

std::string FirstWith(std::string_view prefix, const std::vector<std::string>& scopes) {
    for (const auto& scope : scopes) {
        if (scope.starts_with(prefix)) {
            return Decoded(std::string_view(scope).substr(prefix.size()));
        }
    }
    return {};
}

std::vector<std::string> ListIn(const xmlNode* match, std::string_view name) {
    xmlNode* element = Child(match, kDiscoveryNs, name);
    return element == nullptr ? std::vector<std::string>{} : Words(TextOf(element));
}

// The text with every whole occurrence of `what` replaced: 10.0.0.1 does not stand in 10.0.0.10.
void ReplaceWhole(std::string& text, const std::string& what, std::string_view by) {
    const auto isPart = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        const auto end = at + what.size();
        if ((at > 0 && isPart(text[at - 1])) || (end < text.size() && isPart(text[end]))) {
            at = end;
            continue;
        }
        text.replace(at, what.size(), by);
        at += by.size();
    }
}

// By its bytes and not by its tree: the maker's way of writing is what a record is for.
std::string Template(std::string_view reply, const std::string& uuid, Ipv4 from) {
    std::string text(reply);
    const auto begin = text.find('>', text.find("RelatesTo"));
    const auto end = text.find('<', begin);
    if (begin != std::string::npos && end != std::string::npos) {
        text.replace(begin + 1, end - begin - 1, "@RELATES@");
    }
    if (!uuid.empty()) {
        ReplaceWhole(text, uuid, "@UUID@");
    }
    ReplaceWhole(text, ToText(from), "@IP@");
    return text;
}

std::string UuidOf(const xmlNode* match) {
    constexpr std::string_view kUrn = "urn:uuid:";
    xmlNode* address =
        Child(Child(match, kAddressingNs, "EndpointReference"), kAddressingNs, "Address");
    const auto words = address == nullptr ? std::vector<std::string>{} : Words(TextOf(address));
    return words.size() == 1 && words[0].starts_with(kUrn) ? words[0].substr(kUrn.size()) : "";
}

// The port of the first plain HTTP address.
std::uint16_t PortOf(const std::vector<std::string>& xaddrs) {
    constexpr std::string_view kScheme = "http://";
    constexpr std::uint16_t kHttpPort = 80;
    const auto found =
        std::ranges::find_if(xaddrs, [&](const auto& url) { return url.starts_with(kScheme); });
    if (found == xaddrs.end()) {
        return kHttpPort;
    }
    const auto authority =
        found->substr(kScheme.size(), found->find('/', kScheme.size()) - kScheme.size());
    const auto colon = authority.rfind(':');
    std::uint16_t port = 0;
    if (colon != std::string::npos) {
        const char* end = authority.data() + authority.size();
        const auto [rest, error] = std::from_chars(authority.data() + colon + 1, end, port);
        port = error == std::errc{} && rest == end ? port : 0;
    }
    return port == 0 ? kHttpPort : port;
}

void ReadTypes(const xmlNode* match, Camera& camera) {
    camera.isVideoTransmitter = camera.isDevice = false;
    xmlNode* types = Child(match, kDiscoveryNs, "Types");
    const auto words = types == nullptr ? std::vector<std::string>{} : Words(TextOf(types));
    for (const auto& word : words) {
        const auto type = ResolveName(types, word);
        if (type && type->uri == kOnvifNetworkNs && type->local == "NetworkVideoTransmitter") {
            camera.isVideoTransmitter = true;
        } else if (type && type->uri == kOnvifDeviceNs && type->local == "Device") {
            camera.isDevice = true;
        } else if (type) {
            camera.otherTypes.push_back(*type);
        }
    }
}

class Recorder {
public:
    void Take(const Tins::PDU& packet) {
        const auto* ip = packet.find_pdu<Tins::IP>();
        const auto* udp = packet.find_pdu<Tins::UDP>();
        const auto* raw = packet.find_pdu<Tins::RawPDU>();
        if (ip == nullptr || udp == nullptr || raw == nullptr || udp->sport() != kDiscoveryPort) {
            return;
        }
        const auto* ethernet = packet.find_pdu<Tins::EthernetII>();
        Mac mac{};
        if (ethernet != nullptr) {
            std::ranges::copy(ethernet->src_addr(), mac.begin());
        }
        const Ipv4 from{ntohl(static_cast<std::uint32_t>(ip->src_addr()))};
        // A router or a repeater shows its own MAC address for all behind it; in a scenario each
        // device then has one of its own.
        if (m_owners.try_emplace(mac, from).first->second != from) {
            mac = Mac{};
        }
        const std::string reply(raw->payload().begin(), raw->payload().end());
        auto device = RecordReply(reply, from, mac);
        if (device.is_null()) {
            return;
        }
        // One machine may be several devices, each of which answered several Probes.
        const std::string key = ToText(from) + ToText(mac) + device["endpoint"].dump();
        if (m_known.insert(key).second) {
            m_devices.push_back(std::move(device));
        }
    }

    const ordered_json& Devices() const { return m_devices; }

private:
    ordered_json m_devices = ordered_json::array();
    std::set<std::string> m_known;
    std::map<Mac, Ipv4> m_owners;
};

}  // namespace

ordered_json RecordReply(std::string_view reply, Ipv4 from, const Mac& mac) {
    const XmlDocument document = ParseXml(reply);
    const xmlNode* root = document.Root();
    const xmlNode* body = nullptr;
    for (const xmlNode* node = root == nullptr ? nullptr : root->children; node != nullptr;
         node = node->next) {
        if (node->type == XML_ELEMENT_NODE && View(node->name) == "Body") {
            body = node;
        }
    }
    const xmlNode* match =
        Child(Child(body, kDiscoveryNs, "ProbeMatches"), kDiscoveryNs, "ProbeMatch");
    if (match == nullptr) {
        return nullptr;
    }
    Camera camera;
    camera.ip = from;
    camera.mac = mac;
    camera.uuid = UuidOf(match);
    camera.scopes = ListIn(match, "Scopes");
    camera.xaddrs = ListIn(match, "XAddrs");
    camera.port = PortOf(camera.xaddrs);
    camera.name = FirstWith(kName, camera.scopes);
    camera.hardware = FirstWith(kHardware, camera.scopes);
    camera.location = FirstWith(kLocation, camera.scopes);
    ReadTypes(match, camera);
    camera.recordedReply = std::make_shared<const std::string>(Template(reply, camera.uuid, from));
    auto truth = TruthOf(camera);
    for (const auto* key :
         {"foreign", "maker", "metadataVersion", "channels", "shape", "delayMs"}) {
        truth.erase(key);
    }
    if (mac == Mac{}) {
        truth.erase("mac");
    }
    return truth;
}

ordered_json RecordScenario(const std::string& captureFile) try {
    Tins::FileSniffer sniffer(captureFile);
    Tins::IPv4Reassembler reassembler;
    Recorder recorder;
    sniffer.sniff_loop([&](Tins::PDU& packet) {
        if (reassembler.process(packet) != Tins::IPv4Reassembler::FRAGMENTED) {
            recorder.Take(packet);
        }
        return true;
    });
    return {{"title", "Recorded from " + captureFile}, {"devices", recorder.Devices()}};
} catch (const Tins::exception_base& error) {
    throw SetupError(fmt::format("cannot read the capture {}: {}", captureFile, error.what()));
}

int RunRecord(int argc, const char* const* argv) {
    if (argc != 1 || std::string_view(argv[0]).starts_with('-')) {
        fmt::print(stderr,
                   "Usage: lanscout-sim record FILE.pcap > scenario.json\n"
                   "Makes a scenario of the devices that answered Probes in a capture.\n");
        return argc == 1 && std::string_view(argv[0]) == "--help" ? 0 : kWrongUse;
    }
    std::cout << RecordScenario(argv[0]).dump(2, ' ', true, ordered_json::error_handler_t::replace)
              << "\n";
    return std::cout.flush() ? 0 : 1;
}

}  // namespace lansim
