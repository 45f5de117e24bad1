#include "tools/lanscout-sim/base/shown.h"

#include <fmt/format.h>

namespace lansim {

std::string Shown(std::string_view text) {
    std::string out;
    for (const char c : text) {
        out += c >= ' ' && c <= '~' ? std::string(1, c)
                                    : fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
    }
    return out;
}

}  // namespace lansim
