// Texts as they stand in an XML document.
#pragma once

#include <string>
#include <string_view>

namespace lansim {

// The text as the content of an XML element.
std::string EscapeXml(std::string_view text);
// And as an attribute's value, in quotes of either kind.
std::string EscapeXmlAttribute(std::string_view text);

}  // namespace lansim
