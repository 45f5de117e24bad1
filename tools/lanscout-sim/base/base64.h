// Bytes as text (RFC 4648).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lansim {

std::string EncodeBase64(std::string_view bytes);
// Nothing when it is not that.
std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace lansim
