// Addresses to be asked one by one, as people write them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "finder/source/request.h"

namespace Lanscout {

// Of all ranges together.
inline constexpr std::uint64_t kMostSingleAddresses = 65536;

// Adds what the text means: "10.20.0.0/24" is a subnet without its first and last address,
// "10.30.0.5-10.30.0.40" a range with both its ends, "10.30.0.5" one address, and "@FILE" a file
// with one of these on each line, in which # begins a comment. Throws std::invalid_argument when it
// means nothing, or would make more than kMostSingleAddresses; the text says what is wrong and
// where, with the file and its line where it is in one. The ranges are then as they were.
void AddAddressRanges(const std::string& text, std::vector<AddressRange>& ranges);

// How many addresses that is; one that is in two ranges counts twice.
std::uint64_t CountAddresses(std::span<const AddressRange> ranges);

}  // namespace Lanscout
