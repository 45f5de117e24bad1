#include "finder/source/replymemory.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace Lanscout {
namespace {

// Of what stands before the header and behind it. Texts of another shape count as a whole.
std::uint64_t HashOf(std::string_view reply) {
    const std::hash<std::string_view> hash;
    const auto header = reply.find("Header");
    const auto body = header == std::string_view::npos ? header : reply.find("Body", header);
    if (body == std::string_view::npos) {
        return hash(reply);
    }
    return hash(reply.substr(0, header)) * 31 + hash(reply.substr(body));
}

}  // namespace

bool ReplyMemory::IsNews(const std::string& sender, std::string_view reply) {
    const auto known = m_senders.find(sender);
    if (known == m_senders.end() && m_senders.size() >= kMostSenders) {
        return false;
    }
    const std::uint64_t hash = HashOf(reply);
    std::vector<std::uint64_t>& replies =
        known == m_senders.end() ? m_senders[sender].replies : known->second.replies;
    if (replies.size() >= kMostRepliesOfOne || m_count >= kMostReplies ||
        std::find(replies.begin(), replies.end(), hash) != replies.end()) {
        return false;
    }
    replies.push_back(hash);
    ++m_count;
    return true;
}

bool ReplyMemory::NoteListed(const std::string& sender) {
    bool& listed = m_senders[sender].listed;
    return !std::exchange(listed, true);
}

}  // namespace Lanscout
