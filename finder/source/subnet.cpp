#include "finder/source/subnet.h"

#include <charconv>

#include "finder/text/addresstext.h"

namespace Lanscout {

std::optional<Subnet> SubnetFrom(std::string_view text) {
    const auto slash = text.find('/');
    const auto address = Ipv4Value(text.substr(0, slash));
    if (!address || slash == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view digits = text.substr(slash + 1);
    unsigned int length = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), length);
    if (digits.empty() || read.ptr != digits.data() + digits.size() || length > 32) {
        return std::nullopt;
    }
    const std::uint32_t mask = length == 0 ? 0 : ~std::uint32_t{0} << (32 - length);
    return Subnet{*address & mask, mask};
}

}  // namespace Lanscout
