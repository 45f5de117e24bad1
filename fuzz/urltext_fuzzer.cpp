// The text services: ParseUrl, GetUpnpResultInfo, Trim, DecodingSpaces and IsSameSubnet.
//
// Input: two texts, the second behind the first byte 0x1E.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "host/zelnet.h"
#include "host/zelstring.h"
#include "utils/upnpsearchbase.h"

namespace {

class Texts : public UpnpSearchBase {
public:
    using UpnpSearchBase::GetUpnpResultInfo;
    using UpnpSearchBase::ParseUrl;
};

void CheckParseUrl(const std::string& url) {
    std::string host = "untouched";
    int port = -7;
    if (Texts::ParseUrl(url, host, port) != 0) {
        Check(!url.starts_with("http://"), "an http URL is parsed");
        Check(host == "untouched" && port == -7, "a refused URL writes nothing");
        return;
    }
    Check(url.starts_with("http://"), "only http URLs are parsed");
    Check(host.find(':') == std::string::npos, "the host ends at the colon");
    Check(url.find(host, 7) != std::string::npos, "the host stands in the URL");
    Check(host.empty() || host.front() != '/', "slashes before the host are left out");
}

void CheckResultInfo(const std::string& xml, const std::string& tag) {
    const std::string value = Texts::GetUpnpResultInfo(xml, tag);
    const std::string opening = "<" + tag + ">";
    const std::string closing = "</" + tag + ">";
    const std::size_t at = xml.find(opening);
    if (value.empty()) {
        return;
    }
    Check(at != std::string::npos, "text comes from an element");
    const std::size_t start = at + opening.size();
    if (xml.find(closing, at) < start) {
        // A tag that holds brackets itself can have its end inside its beginning.
        Check(value == xml.substr(start), "text without an end runs to the document's end");
        return;
    }
    Check(xml.compare(at, opening.size() + value.size() + closing.size(),
                      opening + value + closing) == 0,
          "text is all that stands between the tags");
}

void CheckTrim(const std::string& text, const std::string& characters) {
    // NOLINTNEXTLINE(readability-redundant-string-cstr): it ends at the first zero byte
    const std::string set = characters.c_str();
    const std::string trimmed = Trim(text, set.c_str());
    Check(text.find(trimmed) != std::string::npos, "trimmed text is a part of the text");
    Check(trimmed.empty() || (set.find(trimmed.front()) == std::string::npos &&
                              set.find(trimmed.back()) == std::string::npos),
          "nothing to trim is left");
    Check(Trim(trimmed, set.c_str()) == trimmed, "trimming once is enough");
}

void CheckDecoding(const std::string& text) {
    const std::string decoded = DecodingSpaces(text);
    std::string model;
    for (std::string_view rest = text; !rest.empty();) {
        const bool isSpace = rest.starts_with("%20");
        model += isSpace ? ' ' : rest[0];
        rest.remove_prefix(isSpace ? 3 : 1);
    }
    Check(decoded == model, "%20 and nothing else is decoded");
}

void CheckSubnet(const std::string& a, const std::string& b) {
    Check(IsSameSubnet(a, b) == IsSameSubnet(b, a), "a subnet is shared both ways");
    if (IsSameSubnet(a, "127.0.0.1")) {
        Check(a.starts_with("127."), "what shares the loopback's subnet is a loopback address");
        Check(a.find_first_not_of("0123456789.") == std::string::npos,
              "an address is digits and dots");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = input.find('\x1e');
    const std::string first = input.substr(0, split);
    const std::string second = split == std::string::npos ? "" : input.substr(split + 1);
    CheckParseUrl(first);
    CheckResultInfo(first, second);
    CheckResultInfo(first, "friendlyName");
    CheckTrim(first, second);
    CheckTrim(first, "/");
    CheckDecoding(first);
    CheckSubnet(first, second);
    return 0;
}
