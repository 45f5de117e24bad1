#include "tools/lanscout-sim/network/reassembly.h"

#include <tins/ethernetII.h>
#include <tins/exceptions.h>
#include <tins/ip_reassembler.h>

namespace lansim {
namespace {

// Beyond this all that waits is forgotten.
constexpr std::size_t kMostWaitingBytes = 1 << 20;
// An entry costs more than its bytes.
constexpr std::size_t kBytesPerFragment = 256;

unsigned ByteAt(std::string_view frame, std::size_t at) {
    return static_cast<unsigned char>(frame[at]);
}

}  // namespace

Reassembly::Reassembly() : m_reassembler(std::make_unique<Tins::IPv4Reassembler>()) {}
Reassembly::~Reassembly() = default;

std::optional<std::string> Reassembly::Add(std::string_view fragment) try {
    m_waitingBytes += fragment.size() + kBytesPerFragment;
    if (m_waitingBytes > kMostWaitingBytes) {
        m_reassembler->clear_streams();
        m_waitingBytes = fragment.size() + kBytesPerFragment;
    }
    Tins::EthernetII frame(reinterpret_cast<const std::uint8_t*>(fragment.data()),
                           static_cast<std::uint32_t>(fragment.size()));
    if (m_reassembler->process(frame) != Tins::IPv4Reassembler::REASSEMBLED) {
        return std::nullopt;
    }
    const auto bytes = frame.serialize();
    return std::string(bytes.begin(), bytes.end());
} catch (const Tins::exception_base&) {
    return std::nullopt;
}

bool IsFragment(std::string_view frame) {
    constexpr std::size_t kEthernetBytes = 14;
    constexpr std::size_t kIpBytes = 20;
    constexpr std::size_t kFlagsAt = kEthernetBytes + 6;
    constexpr unsigned kMoreOrOffset = 0x3FFF;
    return frame.size() >= kEthernetBytes + kIpBytes && ByteAt(frame, 12) == 8 &&
           ByteAt(frame, 13) == 0 &&
           ((ByteAt(frame, kFlagsAt) << 8 | ByteAt(frame, kFlagsAt + 1)) & kMoreOrOffset) != 0;
}

}  // namespace lansim
