#include "tools/lanscout-sim/base/xmltext.h"

namespace lansim {

std::string EscapeXml(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string EscapeXmlAttribute(std::string_view text) {
    std::string out;
    for (const char c : text) {
        out += c == '"' ? "&quot;" : c == '\'' ? "&apos;" : EscapeXml(std::string_view(&c, 1));
    }
    return out;
}

}  // namespace lansim
