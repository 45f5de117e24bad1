// Texts of others on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace lansim {

// The text with everything but printable ASCII as \xNN: what a scenario or a network brought must
// not steer the terminal that shows it.
std::string Shown(std::string_view text);

}  // namespace lansim
