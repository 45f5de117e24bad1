#include "finder/source/typeprobe.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "finder/source/onvifdevice.h"
#include "finder/text/untrustedxml.h"

namespace Lanscout {
namespace {

constexpr char kOnvifNetwork[] = "http://www.onvif.org/ver10/network/wsdl";
constexpr char kOnvifDevice[] = "http://www.onvif.org/ver10/device/wsdl";
// Every device of the Devices Profile for Web Services is one of these, whatever else it is.
constexpr char kProfile2006[] = "http://schemas.xmlsoap.org/ws/2006/02/devprof";
constexpr char kProfile2009[] = "http://docs.oasis-open.org/ws-dd/ns/dpws/2009/01";

constexpr int kDefaultPort = 80;
constexpr std::size_t kLargestDatagramBytes = 4096;  // as the search reads them
constexpr int kMostRepliesAtOnce = 512;  // so that a flood does not keep the caller from its work

enum class TypeMeaning { Nothing, Camera, OnvifDevice, Other };

TypeMeaning MeaningOf(const std::string& name, const std::string& space) {
    if (space == kOnvifNetwork) {
        return name == "NetworkVideoTransmitter" ? TypeMeaning::Camera : TypeMeaning::Other;
    }
    if (name == "Device" && space == kOnvifDevice) {
        return TypeMeaning::OnvifDevice;
    }
    const bool general = name == "Device" && (space == kProfile2006 || space == kProfile2009);
    return space.empty() || general ? TypeMeaning::Nothing : TypeMeaning::Other;
}

// The namespace that a prefix stands for at that element; empty when it stands for none.
std::string NamespaceOf(const xmlNode* element, const std::string& prefix) {
    const auto* const text = reinterpret_cast<const xmlChar*>(prefix.c_str());
    const xmlNs* const space =
        xmlSearchNs(element->doc, const_cast<xmlNode*>(element), prefix.empty() ? nullptr : text);
    return space == nullptr || space->href == nullptr
               ? std::string()
               : std::string(reinterpret_cast<const char*>(space->href));
}

Kind KindOfTypes(const xmlNode* types) {
    bool onvifDevice = false;
    bool other = false;
    std::istringstream names(TextOf(types));
    for (std::string name; names >> name;) {
        const auto colon = name.find(':');
        const std::string prefix = colon == std::string::npos ? "" : name.substr(0, colon);
        const std::string local = colon == std::string::npos ? name : name.substr(colon + 1);
        switch (MeaningOf(local, NamespaceOf(types, prefix))) {
            case TypeMeaning::Camera:
                return Kind::Camera;
            case TypeMeaning::OnvifDevice:
                onvifDevice = true;
                break;
            case TypeMeaning::Other:
                other = true;
                break;
            case TypeMeaning::Nothing:
                break;
        }
    }
    return other && !onvifDevice ? Kind::Other : Kind::Unknown;
}

int OpenSocket(const std::string& address) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    inet_pton(AF_INET, address.c_str(), &local.sin_addr);
    if (fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

std::string SenderText(const sockaddr_in& sender) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &sender.sin_addr, text.data(), text.size());
    return text.data();
}

}  // namespace

std::optional<Kind> KindOfReply(std::string_view reply) {
    const XmlDoc doc = ReadUntrustedXml(reply);
    const xmlNode* const root = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
    const xmlNode* const matches = ChildNamed(ChildNamed(root, "Body"), "ProbeMatches");
    std::optional<Kind> kind;
    for (const xmlNode* match = ChildNamed(matches, "ProbeMatch"); match != nullptr;
         match = match->next) {
        const xmlNode* const types = ChildNamed(match, "Types");
        kind = std::max(kind.value_or(Kind::Unknown),
                        types == nullptr ? Kind::Unknown : KindOfTypes(types));
    }
    return kind;
}

TypeProbe::TypeProbe(const std::string& address)
    : WSDiscoveryBase(address, 0), m_sockets{OpenSocket(address), OpenSocket(address)} {}

TypeProbe::~TypeProbe() {
    for (const int fd : m_sockets) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

void TypeProbe::Ask() {
    if (m_sockets[0] >= 0 && m_sockets[1] >= 0) {
        SendProbeMessage(m_sockets[0], ONVIF_PROBE_NVT);
        SendProbeMessage(m_sockets[1], ONVIF_PROBE_DEVICE);
    }
}

std::vector<Device> TypeProbe::Listen(std::chrono::milliseconds time) {
    std::array<pollfd, 2> entries{pollfd{m_sockets[0], POLLIN, 0}, pollfd{m_sockets[1], POLLIN, 0}};
    std::vector<Device> news;
    if (poll(entries.data(), entries.size(), static_cast<int>(time.count())) > 0) {
        for (const pollfd& entry : entries) {
            if (entry.revents != 0) {
                TakeReplies(entry.fd, news);
            }
        }
    }
    return news;
}

Device TypeProbe::DeviceFrom(const std::string& ip, std::string_view reply, Kind kind) {
    std::string port = std::to_string(kDefaultPort);
    std::string hardware;
    ParseProbeMatchMessage(ip, std::string(reply), port, hardware);
    return OnvifDevice(ip, static_cast<int>(std::strtol(port.c_str(), nullptr, 10)), hardware,
                       kind);
}

void TypeProbe::TakeReplies(int fd, std::vector<Device>& news) {
    std::string buffer(kLargestDatagramBytes, '\0');
    for (int i = 0; i < kMostRepliesAtOnce; ++i) {
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        const ssize_t count = recvfrom(fd, buffer.data(), buffer.size(), 0,
                                       reinterpret_cast<sockaddr*>(&sender), &length);
        if (count < 0) {
            return;
        }
        Take(SenderText(sender), {buffer.data(), static_cast<std::size_t>(count)}, news);
    }
}

void TypeProbe::Take(const std::string& ip, std::string_view reply, std::vector<Device>& news) {
    const auto known = m_kinds.find(ip);
    const bool isNew = known == m_kinds.end();
    if (isNew ? m_kinds.size() >= kMostSenders : known->second == Kind::Camera) {
        return;
    }
    const std::optional<Kind> kind = KindOfReply(reply);
    if (kind && (isNew || *kind > known->second)) {
        m_kinds[ip] = *kind;
        news.push_back(DeviceFrom(ip, reply, *kind));
    }
}

Kind TypeProbe::KindOf(const std::string& ip) const {
    const auto found = m_kinds.find(ip);
    return found == m_kinds.end() ? Kind::Unknown : found->second;
}

}  // namespace Lanscout
