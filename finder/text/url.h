// URLs that strangers wrote.
#pragma once

#include <optional>
#include <string>

namespace Lanscout {

// An http or https URL without a user name.
struct Url {
    bool secure = false;  // https
    std::string host;     // as written; an IPv6 address in brackets
    int port = 0;         // the scheme's usual one where none is written
    std::string text;     // all of it, its scheme in lower case
};

// Nothing for anything else, also where the host is written in a way that programs read differently
// (as a number, percent-encoded, with a zone).
std::optional<Url> ReadUrl(const std::string& text);

// `reference` made absolute with `base` (RFC 3986, 5); nothing unless that gives such a URL.
std::optional<Url> ResolveUrl(const std::string& reference, const std::string& base);

}  // namespace Lanscout
