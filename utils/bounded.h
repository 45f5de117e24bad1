// What a search leaves without bound, and the one switch that bounds it.
#pragma once

#include <cstddef>
#include <cstdint>

// Three things in a search are without bound by design: the parsed documents stay allocated
// (ParseProbeMatchMessage), a receive goes on while datagrams keep coming (RecvProbeMatchMessage),
// and an empty datagram ends a receive at once, so that the next Probes follow at once
// (ThreadFunc). A build with LANSCOUT_BOUNDED bounds all three, and what a flood of senders brings
// with it: how many are kept (RecvProbeMatchMessage) and how long arping runs for those who do not
// answer (GetMACAddr). A wall clock that is set back lengthens a search in the same way
// (RunCycles). These places ask this constant and nothing else depends on it.
inline constexpr bool kBounded = LANSCOUT_BOUNDED != 0;

// Bounded builds only. Receive and search end, and arping runs no more, when a search is so long
// beyond its time; two pairs of Probes are at least so far apart; a search keeps replies of so many
// senders.
inline constexpr int kOverdueSeconds = 30;
inline constexpr std::int64_t kProbeIntervalMicroseconds = 100'000;
inline constexpr std::size_t kMaxSenders = 65536;
