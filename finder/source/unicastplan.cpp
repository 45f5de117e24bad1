#include "finder/source/unicastplan.h"

#include <algorithm>

#include "finder/source/addressrange.h"

namespace Lanscout {
namespace {

constexpr int kTries = 3;
constexpr std::chrono::seconds kBetweenTries{1};  // an answer over a slow line has come by then

// An address that nobody has stays in the kernel's neighbour table for about 3 s, and by default
// that has room for 1024 (gc_thresh3 in arp(7)).
constexpr int kMostOfOursASecond = 250;

// What a process that had to wait makes up for.
constexpr std::chrono::milliseconds kMostLate{50};

bool IsNobodys(std::uint32_t address, std::span<const Subnet> ours) {
    return std::any_of(ours.begin(), ours.end(), [&](const Subnet& subnet) {
        return subnet.Contains(address) && ~subnet.mask > 1 &&
               (address == subnet.network || address == (subnet.network | ~subnet.mask));
    });
}

bool IsOneOf(std::uint32_t address, std::span<const Subnet> ours) {
    return std::any_of(ours.begin(), ours.end(),
                       [&](const Subnet& subnet) { return subnet.Contains(address); });
}

}  // namespace

UnicastPlan::UnicastPlan(std::span<const AddressRange> ranges, std::span<const Subnet> ours,
                         int rate, ProbeTime start)
    : m_rate(std::max(rate, 1)), m_tryStart(start), m_next(start) {
    for (const AddressRange& range : ranges) {
        for (std::uint64_t value = range.first;
             value <= range.last && m_addresses.size() < kMostSingleAddresses; ++value) {
            const auto address = static_cast<std::uint32_t>(value);
            if (!IsNobodys(address, ours) &&
                m_numberOf.emplace(address, m_addresses.size()).second) {
                m_addresses.push_back({address, IsOneOf(address, ours), false});
            }
        }
    }
    SkipAnswered();
}

std::optional<UnicastPlan::Due> UnicastPlan::Take(ProbeTime now) {
    SkipAnswered();
    if (m_next > now) {
        return std::nullopt;
    }
    const Address& address = m_addresses[m_at];
    const int rate = address.ours ? std::min(m_rate, kMostOfOursASecond) : m_rate;
    m_next = std::max(m_next, now - kMostLate) +
             std::chrono::nanoseconds(std::chrono::seconds(1)) / rate;
    const Due due{address.value, m_second ? ProbeType::Device : ProbeType::NetworkVideoTransmitter};
    Advance();
    return due;
}

bool UnicastPlan::NoteAnswer(std::uint32_t address) {
    const auto number = m_numberOf.find(address);
    if (number == m_numberOf.end()) {
        return false;
    }
    m_addresses[number->second].answered = true;
    return true;
}

// To the next Probe of this try.
void UnicastPlan::Advance() {
    if (m_try > 0 && !m_second) {
        m_second = true;
        return;
    }
    m_second = false;
    ++m_at;
    SkipAnswered();
}

void UnicastPlan::SkipAnswered() {
    while (m_try < kTries) {
        while (m_at < m_addresses.size() && m_addresses[m_at].answered) {
            ++m_at;
            m_second = false;
        }
        if (m_at < m_addresses.size()) {
            return;
        }
        EndTry();
    }
    m_next = ProbeTime::max();
}

void UnicastPlan::EndTry() {
    ++m_try;
    m_at = 0;
    m_second = false;
    const bool all = std::all_of(m_addresses.begin(), m_addresses.end(),
                                 [](const Address& address) { return address.answered; });
    if (all) {
        m_try = kTries;
        return;
    }
    m_tryStart = std::max(m_tryStart + kBetweenTries, m_next);
    m_next = m_tryStart;
}

}  // namespace Lanscout
