// What the server provides for text.
#pragma once

#include <string>

// Turns the encoded spaces of an ONVIF scope value back into spaces; other characters stay.
std::string DecodingSpaces(const std::string& text);

// The text without any of `characters` (NUL-terminated set) at both ends.
std::string Trim(const std::string& text, const char* characters);
