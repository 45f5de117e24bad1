// What the finder makes of a reply to its Probes, through to the line that its process writes.
//
// Input: the sender's address up to the first line feed, the datagram behind it.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "finder/source/message.h"
#include "finder/source/onvifdevice.h"
#include "finder/source/reply.h"
#include "finder/source/replymemory.h"
#include "finder/text/safetext.h"
#include "fuzz/check.h"

namespace {

using namespace Lanscout;

constexpr std::size_t kMostListed = 64;
constexpr std::size_t kLongestLineBytes = std::size_t{256} * 1024;  // that the pipe takes
constexpr std::array kOurs{Subnet{0xC0A80100, 0xFFFFFF00}};         // 192.168.1.0/24

void CheckText(const std::string& text) {
    Check(text.size() <= kLongestKeptBytes, "a kept text is short");
    Check(ToValidUtf8(text) == text, "a kept text is UTF-8");
}

void CheckList(const std::vector<std::string>& list) {
    Check(list.size() <= kMostListed, "a list is short");
    std::for_each(list.begin(), list.end(), CheckText);
}

void CheckPage(const std::string& page) {
    Check(page.empty() || page.starts_with("http://") || page.starts_with("https://"),
          "a page is an http or https URL");
    Check(std::all_of(page.begin(), page.end(),
                      [](unsigned char c) {
                          return c > 0x20 && c < 0x7F && c != '"' && c != '<' && c != '@';
                      }),
          "a page has nothing that means something elsewhere");
}

void CheckDevice(const Device& device) {
    for (const std::string* text :
         {&device.hardware, &device.name, &device.location, &device.maker, &device.serial,
          &device.firmware, &device.uuid, &device.claimedMac}) {
        CheckText(*text);
    }
    for (const auto* list : {&device.types, &device.scopes, &device.xaddrs, &device.profiles}) {
        CheckList(*list);
    }
    CheckPage(device.page);
    Check(device.port >= 0 && device.port <= 65535, "a port is one");
    Check(device.claimedMac.empty() || device.claimedMac.size() == 17, "a MAC address is one");
    Check(device.mac.empty(), "only the network tells the MAC address");
}

// The parent reads of the line what the child has written.
void CheckLine(const Device& device) {
    const std::string line =
        EncodeMessage(SightingMessage{{SourceId::Probes, {"eth0", "192.168.1.2"}, device}});
    Check(line.size() < kLongestLineBytes, "a line passes the pipe");
    Check(line.find('\n') == line.size() - 1, "a line is one");
    const auto message = DecodeMessage(std::string_view(line).substr(0, line.size() - 1));
    Check(message && std::holds_alternative<SightingMessage>(*message), "a line is read");
    Check(std::get<SightingMessage>(*message).sighting.device == device, "and is what was written");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = std::min(input.find('\n'), input.size());
    const bool routed = input.starts_with("10.");
    const bool six = input.starts_with("fe80");
    const std::string address = six ? "fe80::1%eth0" : routed ? "10.20.0.5" : "192.168.1.20";
    const std::string_view reply = input.substr(std::min(split + 1, input.size()));
    const ReplySender sender{address, routed ? Reach::Routed : Reach::Local, kOurs};
    ReplyMemory memory;
    Check(memory.IsNews(address, reply), "the first reply is news");
    Check(!memory.IsNews(address, reply), "the second is none");
    if (const auto matches = ReadReply(reply)) {
        for (const ProbeMatch& match : *matches) {
            const Device device = OnvifDevice(match, sender);
            CheckDevice(device);
            CheckLine(device);
        }
    }
    return 0;
}
