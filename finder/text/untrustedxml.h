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
// writes nothing. In encodings that have no zero bytes these are passed over: some devices send
// them between two lines, and all of their buffer behind the end.
XmlDoc ReadUntrustedXml(std::string_view bytes);

// The first child element of that local name in whatever namespace, declared or not, or null.
const xmlNode* ChildNamed(const xmlNode* parent, std::string_view name);

// The next sibling element of that local name, or null.
const xmlNode* NextNamed(const xmlNode* element, std::string_view name);

// The text right inside an element (null: none), as it is: valid UTF-8, of any length.
std::string WholeTextOf(const xmlNode* element);

// The same, as ToKeptText leaves it.
std::string TextOf(const xmlNode* element);

}  // namespace Lanscout
