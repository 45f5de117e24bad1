// A socket that gets the frames of one interface.
#pragma once

#include <string>
#include <string_view>

#include "finder/machine/descriptor.h"

namespace Lanscout {

// Needs CAP_NET_RAW. Never waits.
class PacketSocket {
public:
    // Only frames that the filter (pcap-filter(7)) lets through arrive, from the first one on.
    // Throws std::system_error, or std::runtime_error for an interface without Ethernet frames.
    PacketSocket(const std::string& interface, const char* filter);

    int Fd() const { return m_socket.Fd(); }

    enum class Way { In, Out, Other };
    struct Got {
        Way way = Way::Other;    // Other: to another machine, or to a group
        std::string_view bytes;  // into the buffer
    };

    // The next frame, or nothing (no bytes) where none waits.
    Got Receive(std::string& buffer);

private:
    Descriptor m_socket;
};

// Whether this process may have such sockets.
bool MayOpenPacketSockets();

}  // namespace Lanscout
