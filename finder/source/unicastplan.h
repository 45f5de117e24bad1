// When which single address is asked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "finder/source/probeschedule.h"
#include "finder/source/request.h"
#include "finder/source/subnet.h"

namespace Lanscout {

// Three tries a second apart or more, the second and the third for those who have not answered:
// first a Probe for cameras alone, then one of each type. So many a second in all; in our own
// subnets no more than the kernel can ask for by ARP.
class UnicastPlan {
public:
    struct Due {
        std::uint32_t address = 0;  // host byte order
        ProbeType type = ProbeType::NetworkVideoTransmitter;
    };

    // Each address once, kMostSingleAddresses at most; not the first and last of a subnet of ours,
    // which are nobody's.
    UnicastPlan(std::span<const AddressRange> ranges, std::span<const Subnet> ours, int rate,
                ProbeTime start);

    // What may be sent by that time; nothing when all of that has been taken. To be called again
    // at Next().
    std::optional<Due> Take(ProbeTime now);

    ProbeTime Next() const { return m_next; }  // ProbeTime::max(): no more

    // That address needs no further try. False when it was not asked.
    bool NoteAnswer(std::uint32_t address);

    std::size_t AddressCount() const { return m_addresses.size(); }

private:
    struct Address {
        std::uint32_t value = 0;
        bool ours = false;
        bool answered = false;
    };

    void SkipAnswered();
    void Advance();
    void EndTry();

    std::vector<Address> m_addresses;
    std::unordered_map<std::uint32_t, std::size_t> m_numberOf;
    int m_rate;
    int m_try = 0;
    std::size_t m_at = 0;
    bool m_second = false;  // the address at m_at has had its first Probe of this try
    ProbeTime m_tryStart;
    ProbeTime m_next;
};

}  // namespace Lanscout
