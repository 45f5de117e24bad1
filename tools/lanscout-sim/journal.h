// What the searchers asked, and what became of it.
#pragma once

#include <deque>
#include <nlohmann/json.hpp>

#include "tools/lanscout-sim/base/timepoint.h"
#include "tools/lanscout-sim/network/address.h"
#include "tools/lanscout-sim/onvif/responder.h"
#include "tools/lanscout-sim/upnp/upnpresponder.h"

namespace lansim {

// The latest thousand datagrams of searchers.
class Journal {
public:
    explicit Journal(TimePoint start) : m_start(start) {}

    void Add(const Datagram& datagram, const ProbeOutcome& outcome, TimePoint now);
    void Add(const Datagram& datagram, const SearchOutcome& outcome, TimePoint now);

    // The oldest first; the format is described in docs/simulator.md.
    nlohmann::ordered_json Entries() const;

private:
    void Add(nlohmann::ordered_json entry);

    TimePoint m_start;
    std::deque<nlohmann::ordered_json> m_entries;
};

}  // namespace lansim
