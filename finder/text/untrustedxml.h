// XML that anyone on the network may have written.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

namespace Lanscout {

struct FreeXmlDoc {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using XmlDoc = std::unique_ptr<xmlDoc, FreeXmlDoc>;

inline constexpr std::size_t kLongestXmlBytes = std::size_t{256} * 1024;

// The document, or as much of it as stands before its first error. Null for one that is longer than
// kLongestXmlBytes or has a document type declaration: neither SOAP messages nor device
// descriptions have one, and it is where entities come from. Opens no file and no connection, and
// writes nothing.
XmlDoc ReadUntrustedXml(std::string_view text);

// The first child element of that local name in whatever namespace, or null.
const xmlNode* ChildNamed(const xmlNode* parent, std::string_view name);

// The text right inside an element (null: none), as ToKeptText leaves it.
std::string TextOf(const xmlNode* element);

}  // namespace Lanscout
