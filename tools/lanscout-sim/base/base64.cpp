#include "tools/lanscout-sim/base/base64.h"

#include <nettle/base64.h>

namespace lansim {

std::string EncodeBase64(std::string_view bytes) {
    std::string text(BASE64_ENCODE_RAW_LENGTH(bytes.size()), '\0');
    base64_encode_raw(text.data(), bytes.size(),
                      reinterpret_cast<const std::uint8_t*>(bytes.data()));
    return text;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
    base64_decode_ctx context{};
    base64_decode_init(&context);
    std::string bytes(BASE64_DECODE_LENGTH(text.size()), '\0');
    std::size_t size = bytes.size();
    if (base64_decode_update(&context, &size, reinterpret_cast<std::uint8_t*>(bytes.data()),
                             text.size(), text.data()) != 1 ||
        base64_decode_final(&context) != 1) {
        return std::nullopt;
    }
    bytes.resize(size);
    return bytes;
}

}  // namespace lansim
