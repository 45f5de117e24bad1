#include "finder/text/untrustedxml.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <utility>

#include "finder/text/safetext.h"

namespace Lanscout {
namespace {

struct FreeContext {
    void operator()(xmlParserCtxt* context) const {
        xmlFreeDoc(context->myDoc);
        xmlFreeParserCtxt(context);
    }
};

// Comes before anything inside the declaration is read.
void RefuseDocumentType(void* cookie, const xmlChar* /*name*/, const xmlChar* /*externalId*/,
                        const xmlChar* /*systemId*/) {
    auto* const context = static_cast<xmlParserCtxt*>(cookie);
    context->_private = context;  // the mark of a refused document
    xmlStopParser(context);
}

std::string_view View(const xmlChar* text) {
    return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

// libxml2 takes a zero byte for the end of the document.
std::string WithoutZeroBytes(std::string_view text) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    const int looked = static_cast<int>(std::min<std::size_t>(text.size(), 4));
    std::string clean(text);
    switch (xmlDetectCharEncoding(bytes, looked)) {
        case XML_CHAR_ENCODING_UTF16LE:
        case XML_CHAR_ENCODING_UTF16BE:
        case XML_CHAR_ENCODING_UCS4LE:
        case XML_CHAR_ENCODING_UCS4BE:
        case XML_CHAR_ENCODING_UCS4_2143:
        case XML_CHAR_ENCODING_UCS4_3412:
            return clean;
        default:
            std::erase(clean, '\0');
            return clean;
    }
}

// The name of a prefix that was never declared stays in front of the element's.
std::string_view LocalName(const xmlNode* element) {
    const std::string_view name = View(element->name);
    const auto colon = name.rfind(':');
    return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

const xmlNode* FirstNamed(const xmlNode* node, std::string_view name) {
    while (node != nullptr && (node->type != XML_ELEMENT_NODE || LocalName(node) != name)) {
        node = node->next;
    }
    return node;
}

}  // namespace

XmlDoc ReadUntrustedXml(std::string_view bytes) {
    if (bytes.size() > kLongestXmlBytes) {
        return nullptr;
    }
    const std::string text = WithoutZeroBytes(bytes);
    if (text.empty()) {
        return nullptr;
    }
    const std::unique_ptr<xmlParserCtxt, FreeContext> context(
        xmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size())));
    if (!context) {
        return nullptr;
    }
    xmlCtxtUseOptions(context.get(), XML_PARSE_RECOVER | XML_PARSE_NONET | XML_PARSE_NOERROR |
                                         XML_PARSE_NOWARNING | XML_PARSE_NOCDATA);
    context->sax->internalSubset = &RefuseDocumentType;
    context->_private = nullptr;
    xmlParseDocument(context.get());
    if (context->_private != nullptr) {
        return nullptr;
    }
    return XmlDoc(std::exchange(context->myDoc, nullptr));
}

const xmlNode* ChildNamed(const xmlNode* parent, std::string_view name) {
    return parent == nullptr ? nullptr : FirstNamed(parent->children, name);
}

const xmlNode* NextNamed(const xmlNode* element, std::string_view name) {
    return FirstNamed(element->next, name);
}

std::string WholeTextOf(const xmlNode* element) {
    std::string text;
    for (const xmlNode* child = element == nullptr ? nullptr : element->children; child != nullptr;
         child = child->next) {
        if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) {
            text += View(child->content);
        }
    }
    return text;
}

std::string TextOf(const xmlNode* element) {
    return ToKeptText(WholeTextOf(element));
}

}  // namespace Lanscout
