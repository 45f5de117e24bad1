// Identifiers as RFC 3986 writes them.
#pragma once

#include <string_view>

namespace lansim {

// Whether the text is a URI: a scheme, a colon, and at least one character that may follow it.
bool IsUri(std::string_view text);

}  // namespace lansim
