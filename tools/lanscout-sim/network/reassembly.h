// Whole frames from the fragments of IP packets.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Tins {
class IPv4Reassembler;
}

namespace lansim {

// A Probe with many scopes comes in fragments, as every datagram longer than the MTU does.
class Reassembly {
public:
    Reassembly();
    Reassembly(const Reassembly&) = delete;
    Reassembly& operator=(const Reassembly&) = delete;
    ~Reassembly();

    // The frame with the whole packet when this was its last fragment; nothing while more are to
    // come. Whoever sends first fragments only makes earlier ones be forgotten.
    std::optional<std::string> Add(std::string_view fragment);

private:
    std::unique_ptr<Tins::IPv4Reassembler> m_reassembler;
    std::size_t m_waitingBytes = 0;
};

// Whether the Ethernet frame carries a fragment of an IPv4 packet.
bool IsFragment(std::string_view frame);

}  // namespace lansim
