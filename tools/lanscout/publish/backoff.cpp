#include "tools/lanscout/publish/backoff.h"

#include <algorithm>

namespace Lanscout {

// The first pause may be none at all; later ones are at least half of what they are drawn from.
std::chrono::milliseconds Backoff::Next() {
    const auto within = m_within.count();
    const auto least = m_within == kFirst ? 0 : within / 2;
    m_within = std::min(2 * m_within, kLongest);
    return std::chrono::milliseconds(
        std::uniform_int_distribution<std::chrono::milliseconds::rep>(least, within)(m_random));
}

}  // namespace Lanscout
