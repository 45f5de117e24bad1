#include "tools/lanscout-sim/onvif/xmldocument.h"

#include <libxml/parser.h>

#include <sstream>

namespace lansim {
namespace {

struct ContextFree {
    void operator()(xmlParserCtxt* context) const {
        xmlFreeDoc(context->myDoc);
        context->myDoc = nullptr;
        xmlFreeParserCtxt(context);
    }
};
using Context = std::unique_ptr<xmlParserCtxt, ContextFree>;

// Called at the DOCTYPE's name, before the parser reads a single declaration.
void StopAtDoctype(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    auto* parser = static_cast<xmlParserCtxt*>(context);
    *static_cast<bool*>(parser->_private) = true;
    xmlStopParser(parser);
}

}  // namespace

const xmlNode* XmlDocument::Root() const {
    return tree ? xmlDocGetRootElement(tree.get()) : nullptr;
}

XmlDocument ParseXml(std::string_view bytes) {
    XmlDocument document;
    const Context context(xmlNewParserCtxt());
    if (!context) {
        return document;
    }
    context->_private = &document.hasDoctype;
    context->sax->internalSubset = StopAtDoctype;
    document.tree.reset(
        xmlCtxtReadMemory(context.get(), bytes.data(), static_cast<int>(bytes.size()), nullptr,
                          nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    // The parser stops at a zero byte as if the text ended there.
    document.hasTrailingBytes =
        context->input != nullptr && context->input->cur < context->input->end;
    if (document.hasDoctype) {
        document.tree.reset();
    }
    return document;
}

std::string_view View(const xmlChar* text) {
    return text == nullptr ? std::string_view{} : reinterpret_cast<const char*>(text);
}

bool Is(const xmlNode* node, std::string_view ns, std::string_view name) {
    return node->type == XML_ELEMENT_NODE && node->ns != nullptr && View(node->ns->href) == ns &&
           View(node->name) == name;
}

xmlNode* Child(const xmlNode* parent, std::string_view ns, std::string_view name) {
    if (parent == nullptr) {
        return nullptr;
    }
    for (xmlNode* node = parent->children; node != nullptr; node = node->next) {
        if (Is(node, ns, name)) {
            return node;
        }
    }
    return nullptr;
}

std::string TextOf(xmlNode* node) {
    const std::unique_ptr<xmlChar, decltype(xmlFree)> text(xmlNodeGetContent(node), xmlFree);
    return std::string(View(text.get()));
}

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

std::optional<QualifiedName> ResolveName(xmlNode* node, const std::string& word) {
    const auto colon = word.find(':');
    const bool hasPrefix = colon != std::string::npos;
    const std::string prefix = hasPrefix ? word.substr(0, colon) : "";
    const auto* prefixText = hasPrefix ? reinterpret_cast<const xmlChar*>(prefix.c_str()) : nullptr;
    const xmlNs* ns = xmlSearchNs(node->doc, node, prefixText);
    if (ns == nullptr && hasPrefix) {
        return std::nullopt;
    }
    return QualifiedName{ns == nullptr ? "" : std::string(View(ns->href)),
                         hasPrefix ? word.substr(colon + 1) : word};
}

}  // namespace lansim
