// XML from strangers, and what SOAP messages are made of.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/lanscout-sim/onvif/qualifiedname.h"

namespace lansim {

struct XmlDocFree {
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};

struct XmlDocument {
    std::unique_ptr<xmlDoc, XmlDocFree> tree;  // null when it is not well-formed
    bool hasDoctype = false;                   // refused before a declaration of it was read
    bool hasTrailingBytes = false;             // behind a zero byte, where the parser stops

    const xmlNode* Root() const;
};

// Opens nothing, prints nothing, and its time and memory are bounded by the text's size.
XmlDocument ParseXml(std::string_view bytes);

std::string_view View(const xmlChar* text);
bool Is(const xmlNode* node, std::string_view ns, std::string_view name);
// The first such child; null when there is none, or no parent.
xmlNode* Child(const xmlNode* parent, std::string_view ns, std::string_view name);
std::string TextOf(xmlNode* node);
std::vector<std::string> Words(const std::string& text);
// A word of the node's text as a name; nothing when its prefix is not declared there.
std::optional<QualifiedName> ResolveName(xmlNode* node, const std::string& word);

}  // namespace lansim
