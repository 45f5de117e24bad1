#include "tools/lanscout-sim/onvif/probe.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <array>
#include <memory>
#include <optional>
#include <sstream>

namespace lansim {
namespace {

// WS-Discovery asks for Probes that fit one frame; ten times that is generous.
constexpr std::size_t kMaxProbeBytes = 16384;
constexpr std::string_view kSoap12Ns = "http://www.w3.org/2003/05/soap-envelope";
constexpr std::string_view kSoap11Ns = "http://schemas.xmlsoap.org/soap/envelope/";

struct ContextFree {
    void operator()(xmlParserCtxt* context) const {
        xmlFreeDoc(context->myDoc);
        context->myDoc = nullptr;
        xmlFreeParserCtxt(context);
    }
};
using Context = std::unique_ptr<xmlParserCtxt, ContextFree>;

std::string_view View(const xmlChar* text) {
    return text == nullptr ? std::string_view{} : reinterpret_cast<const char*>(text);
}

// Called at the DOCTYPE's name, before the parser reads a single declaration.
void StopAtDoctype(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
    auto* parser = static_cast<xmlParserCtxt*>(context);
    *static_cast<bool*>(parser->_private) = true;
    xmlStopParser(parser);
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

std::optional<QualifiedName> Resolve(xmlNode* node, const std::string& word) {
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

std::optional<ProbeError> ReadTypes(const xmlNode* element, Probe& probe) {
    xmlNode* types = Child(element, kDiscoveryNs, "Types");
    if (types == nullptr) {
        return std::nullopt;
    }
    for (const auto& word : Words(TextOf(types))) {
        const auto name = Resolve(types, word);
        if (!name) {
            return ProbeError::UnknownPrefix;
        }
        probe.types.push_back(*name);
    }
    return std::nullopt;
}

void ReadScopes(const xmlNode* element, Probe& probe) {
    xmlNode* scopes = Child(element, kDiscoveryNs, "Scopes");
    if (scopes == nullptr) {
        return;
    }
    probe.scopes = Words(TextOf(scopes));
    const std::unique_ptr<xmlChar, decltype(xmlFree)> rule(
        xmlGetNoNsProp(scopes, reinterpret_cast<const xmlChar*>("MatchBy")), xmlFree);
    probe.matchBy = View(rule.get());
}

std::variant<Probe, ProbeError> ReadEnvelope(const xmlNode* root) {
    const auto soap = Is(root, kSoap12Ns, "Envelope") ? kSoap12Ns : kSoap11Ns;
    if (!Is(root, soap, "Envelope")) {
        return ProbeError::NotSoap;
    }
    const xmlNode* element = Child(Child(root, soap, "Body"), kDiscoveryNs, "Probe");
    if (element == nullptr) {
        return ProbeError::OtherMessage;
    }

    Probe probe;
    xmlNode* messageId = Child(Child(root, soap, "Header"), kAddressingNs, "MessageID");
    const auto ids = messageId == nullptr ? std::vector<std::string>{} : Words(TextOf(messageId));
    if (ids.size() != 1) {
        return ProbeError::NoMessageId;
    }
    probe.messageId = ids.front();
    if (const auto error = ReadTypes(element, probe)) {
        return *error;
    }
    ReadScopes(element, probe);
    return probe;
}

}  // namespace

std::string_view NameOf(ProbeError error) {
    constexpr std::array<std::string_view, 7> kNames = {
        "tooLong", "doctype", "notXml", "notSoap", "otherMessage", "noMessageId", "unknownPrefix"};
    return kNames.at(static_cast<std::size_t>(error));
}

std::variant<Probe, ProbeError> ParseProbe(std::string_view bytes) {
    if (bytes.size() > kMaxProbeBytes) {
        return ProbeError::TooLong;
    }
    const Context context(xmlNewParserCtxt());
    if (!context) {
        return ProbeError::NotXml;
    }
    bool doctypeSeen = false;
    context->_private = &doctypeSeen;
    context->sax->internalSubset = StopAtDoctype;
    const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
        xmlCtxtReadMemory(context.get(), bytes.data(), static_cast<int>(bytes.size()), nullptr,
                          nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeDoc);
    if (doctypeSeen) {
        return ProbeError::Doctype;
    }
    const xmlNode* root = document ? xmlDocGetRootElement(document.get()) : nullptr;
    if (root == nullptr) {
        return ProbeError::NotXml;
    }
    return ReadEnvelope(root);
}

}  // namespace lansim
