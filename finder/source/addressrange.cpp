#include "finder/source/addressrange.h"

#include <fmt/core.h>

#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "finder/machine/files.h"
#include "finder/source/subnet.h"
#include "finder/text/addresstext.h"

namespace Lanscout {
namespace {

constexpr std::size_t kLongestFileBytes = std::size_t{4} * 1024 * 1024;
constexpr std::size_t kLongestQuote = 60;                 // of a wrong text in a message
constexpr std::uint32_t kFirstMulticast = 0xE0000000;     // 224.0.0.0: these, and what is reserved
constexpr std::uint32_t kLastOfThisNetwork = 0x00FFFFFF;  // 0.255.255.255

[[noreturn]] void Refuse(std::string_view text, std::string_view why) {
    throw std::invalid_argument(fmt::format("\"{}\" {}", text.substr(0, kLongestQuote), why));
}

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kWhiteSpace = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(kWhiteSpace);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

std::uint32_t AddressIn(std::string_view part, std::string_view whole) {
    const auto value = Ipv4Value(Trimmed(part));
    if (!value) {
        Refuse(whole, part.size() == whole.size()
                          ? std::string("is no IPv4 address, no subnet and no range of addresses")
                          : fmt::format("has \"{}\", which is no IPv4 address",
                                        part.substr(0, kLongestQuote)));
    }
    return *value;
}

AddressRange HostsOf(std::string_view text) {
    const auto subnet = SubnetFrom(text);
    if (!subnet) {
        Refuse(text, "is no subnet: that is an IPv4 address, a slash and a number up to 32");
    }
    const std::uint32_t last = subnet->network | ~subnet->mask;
    return last - subnet->network < 2 ? AddressRange{subnet->network, last}  // RFC 3021
                                      : AddressRange{subnet->network + 1, last - 1};
}

AddressRange RangeFrom(std::string_view text) {
    if (text.find('/') != std::string_view::npos) {
        return HostsOf(text);
    }
    const auto dash = text.find('-');
    if (dash == std::string_view::npos) {
        const std::uint32_t one = AddressIn(text, text);
        return {one, one};
    }
    const AddressRange range{AddressIn(text.substr(0, dash), text),
                             AddressIn(text.substr(dash + 1), text)};
    if (range.first > range.last) {
        Refuse(text, "ends before it starts");
    }
    return range;
}

void AddRange(std::string_view text, std::vector<AddressRange>& ranges, std::uint64_t& count) {
    const AddressRange range = RangeFrom(text);
    if (range.last >= kFirstMulticast || range.first <= kLastOfThisNetwork) {
        Refuse(text, "has addresses that no single device can have");
    }
    ranges.push_back(range);
    count += CountAddresses({&range, 1});
    if (count > kMostSingleAddresses) {
        Refuse(text, fmt::format("makes more than {} addresses in all", kMostSingleAddresses));
    }
}

// Line by line; a wrong one is told with its number.
void AddFile(const std::string& path, std::vector<AddressRange>& ranges, std::uint64_t& count) {
    std::string text;
    try {
        text = ReadWholeFile(path, kLongestFileBytes);
    } catch (const std::exception& failure) {
        throw std::invalid_argument(failure.what());
    }
    int number = 0;
    for (std::string_view rest = text; !rest.empty();) {
        ++number;
        const auto end = rest.find('\n');
        const std::string_view line = Trimmed(rest.substr(0, end).substr(0, rest.find('#')));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        try {
            if (!line.empty()) {
                AddRange(line, ranges, count);
            }
        } catch (const std::invalid_argument& wrong) {
            throw std::invalid_argument(fmt::format("{}, line {}: {}", path, number, wrong.what()));
        }
    }
}

}  // namespace

void AddAddressRanges(const std::string& text, std::vector<AddressRange>& ranges) {
    std::vector<AddressRange> added = ranges;
    std::uint64_t count = CountAddresses(added);
    if (text.starts_with('@')) {
        AddFile(text.substr(1), added, count);
    } else {
        AddRange(Trimmed(text), added, count);
    }
    ranges = std::move(added);
}

std::uint64_t CountAddresses(std::span<const AddressRange> ranges) {
    std::uint64_t count = 0;
    for (const AddressRange& range : ranges) {
        count += std::uint64_t{range.last} - range.first + 1;
    }
    return count;
}

}  // namespace Lanscout
