#include "host/standalone/seam.h"

// ONVIF scopes are URIs, and a URI has one encoding of a space: RFC 3986 percent-encoding, "%20".
// A "+" in a URI's path is a plus sign (only HTML forms write spaces so, and only in queries), and
// device names such as "PTZ+IR" have one. Other escapes stay as they are: the text is shown, not
// resolved. One pass, so that "%2520", the encoded form of the text "%20", is not decoded twice.
std::string DecodingSpaces(const std::string& text) {
    constexpr std::string_view kEncodedSpace = "%20";
    std::string decoded;
    decoded.reserve(text.size());
    std::size_t from = 0;
    for (std::size_t at = text.find(kEncodedSpace); at != std::string::npos;
         at = text.find(kEncodedSpace, from)) {
        decoded.append(text, from, at - from).push_back(' ');
        from = at + kEncodedSpace.size();
    }
    return decoded.append(text, from);
}

std::string Trim(const std::string& text, const char* characters) {
    if (characters == nullptr) {
        return text;
    }
    const std::size_t begin = text.find_first_not_of(characters);
    if (begin == std::string::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(characters) - begin + 1);
}
