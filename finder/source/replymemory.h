// Which datagrams are worth reading: devices answer each Probe with the same words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Lanscout {

class ReplyMemory {
public:
    // A network has thousands of devices; a flood of forged replies has more.
    static constexpr std::size_t kMostSenders = 65536;
    // A recorder may answer with a datagram for each of its channels.
    static constexpr std::size_t kMostRepliesOfOne = 256;
    static constexpr std::size_t kMostReplies = 4 * kMostSenders;

    // Whether the sender has said nothing of the kind before, and it is not too much in all. The
    // header of a SOAP message, which has a new MessageID each time, does not count.
    bool IsNews(const std::string& sender, std::string_view reply);

    // Notes that the sender has told of a device; false when it had done so before.
    bool NoteListed(const std::string& sender);

private:
    struct Sender {
        std::vector<std::uint64_t> replies;  // their hashes
        bool listed = false;
    };

    std::unordered_map<std::string, Sender> m_senders;
    std::size_t m_count = 0;
};

}  // namespace Lanscout
