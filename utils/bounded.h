// The one switch of the bounded build, and its limits. docs/limits.md explains them to users.
#pragma once

#include <cstddef>
#include <cstdint>

// By design, some things in a search have no limit in the default build. A build with
// LANSCOUT_BOUNDED limits them:
// - parsed documents (ParseProbeMatchMessage) and replies (ListReplies) stay in memory;
// - a receive goes on as long as datagrams arrive, from any number of senders
//   (RecvProbeMatchMessage);
// - an empty datagram ends a receive at once, and the next Probes follow at once (RunCycles);
// - a wall clock that is set back makes a search longer (RunCycles);
// - arping runs for every sender that does not answer ARP (GetMACAddr).
inline constexpr bool kBounded = LANSCOUT_BOUNDED != 0;

// For bounded builds only.
inline constexpr int kOverdueSeconds = 30;  // after its time a search ends, and arping with it
inline constexpr std::int64_t kProbeIntervalMicroseconds = 100'000;  // between two pairs of Probes
inline constexpr std::size_t kMaxSenders = 65536;  // of which one search keeps replies
