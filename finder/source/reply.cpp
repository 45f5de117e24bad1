#include "finder/source/reply.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "finder/text/safetext.h"
#include "finder/text/untrustedxml.h"

namespace Lanscout {
namespace {

constexpr std::size_t kMostMatches = 256;         // a recorder names its channels, not a town's
constexpr std::size_t kMostListed = 64;           // as many as a device's lists take
constexpr std::size_t kLongestListBytes = 16384;  // so that the whole record passes the pipe
constexpr std::string_view kWhiteSpace = " \t\r\n\v\f";

// The namespace that a prefix stands for at that element; empty when it stands for none.
std::string NamespaceOf(const xmlNode* element, const std::string& prefix) {
    const auto* const text = reinterpret_cast<const xmlChar*>(prefix.c_str());
    const xmlNs* const space =
        xmlSearchNs(element->doc, const_cast<xmlNode*>(element), prefix.empty() ? nullptr : text);
    return space == nullptr || space->href == nullptr
               ? std::string()
               : std::string(reinterpret_cast<const char*>(space->href));
}

// The entries that a list has room for.
std::vector<std::string> Bounded(std::vector<std::string> entries) {
    std::size_t count = 0;
    for (std::size_t bytes = 0; count < entries.size(); ++count) {
        bytes += entries[count].size();
        if (bytes > kLongestListBytes) {
            break;
        }
    }
    entries.resize(count);
    return entries;
}

// A list's entries: white space of any kind and number stands between them.
std::vector<std::string> EntriesOf(const xmlNode* list) {
    const std::string text = WholeTextOf(list);
    std::vector<std::string> entries;
    for (std::size_t end = 0; entries.size() < kMostListed;) {
        const auto start = text.find_first_not_of(kWhiteSpace, end);
        if (start == std::string::npos) {
            break;
        }
        end = std::min(text.find_first_of(kWhiteSpace, start), text.size());
        entries.push_back(ToKeptText(std::string_view(text).substr(start, end - start)));
    }
    return entries;
}

std::string ExpandedName(const xmlNode* types, const std::string& name) {
    const auto colon = name.find(':');
    const std::string prefix = colon == std::string::npos ? "" : name.substr(0, colon);
    const std::string space = NamespaceOf(types, prefix);
    return space.empty() ? name : ToKeptText("{" + space + "}" + name.substr(colon + 1));
}

std::vector<std::string> TypesOf(const xmlNode* match) {
    const xmlNode* const types = ChildNamed(match, "Types");
    std::vector<std::string> names = EntriesOf(types);
    for (std::string& name : names) {
        name = ExpandedName(types, name);
    }
    return Bounded(std::move(names));
}

int NumberOf(const xmlNode* element) {
    const std::string text = TextOf(element);
    int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number > 0 ? number : 0;
}

ProbeMatch ReadMatch(const xmlNode* match) {
    return {TextOf(ChildNamed(ChildNamed(match, "EndpointReference"), "Address")), TypesOf(match),
            Bounded(EntriesOf(ChildNamed(match, "Scopes"))),
            Bounded(EntriesOf(ChildNamed(match, "XAddrs"))),
            NumberOf(ChildNamed(match, "MetadataVersion"))};
}

}  // namespace

std::optional<std::vector<ProbeMatch>> ReadReply(std::string_view reply) {
    if (reply.size() > kLongestReplyBytes) {
        return std::nullopt;
    }
    const XmlDoc doc = ReadUntrustedXml(reply);
    const xmlNode* const root = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
    const xmlNode* const list = ChildNamed(ChildNamed(root, "Body"), "ProbeMatches");
    if (list == nullptr) {
        return std::nullopt;
    }
    std::vector<ProbeMatch> matches;
    for (const xmlNode* match = ChildNamed(list, "ProbeMatch");
         match != nullptr && matches.size() < kMostMatches;
         match = NextNamed(match, "ProbeMatch")) {
        matches.push_back(ReadMatch(match));
    }
    return matches;
}

}  // namespace Lanscout
