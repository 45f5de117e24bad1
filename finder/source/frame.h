// What one Ethernet frame says: a UDP datagram's beginning, or who asks for an address by ARP.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Lanscout {

// A datagram or the first fragment of one.
struct DatagramFrame {
    std::string mac;  // of the frame's sender: "00:1B:FF:01:02:03"
    std::string from;
    std::string to;
    std::uint16_t fromPort = 0;
    std::uint16_t toPort = 0;
    std::string_view payload;  // as far as it is in the frame
};

struct ArpRequestFrame {
    std::string mac;
    std::string from;  // 0.0.0.0 while it has no address yet (RFC 5227)
    std::string wanted;
};

using Frame = std::variant<DatagramFrame, ArpRequestFrame>;

// Nothing for any other frame, for one that is cut short, and for one whose sender is no single
// machine. Anyone on the wire may have written it.
std::optional<Frame> ReadFrame(std::string_view bytes);

// What of all frames reaches the finder: replies of WS-Discovery, its own Probes and ARP requests;
// in the words of pcap-filter(7).
extern const char* const kFrameFilter;

}  // namespace Lanscout
