#include "finder/text/untrustedxml.h"

#include <libxml/parser.h>
#include <libxml/parserInternals.h>

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

}  // namespace

XmlDoc ReadUntrustedXml(std::string_view text) {
    if (text.empty() || text.size() > kLongestXmlBytes) {
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
    if (parent == nullptr) {
        return nullptr;
    }
    for (const xmlNode* child = parent->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && View(child->name) == name) {
            return child;
        }
    }
    return nullptr;
}

std::string TextOf(const xmlNode* element) {
    std::string text;
    for (const xmlNode* child = element == nullptr ? nullptr : element->children; child != nullptr;
         child = child->next) {
        if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) {
            text += View(child->content);
        }
    }
    return ToKeptText(text);
}

}  // namespace Lanscout
