// WSDiscoveryBase's reading of ProbeMatches replies.
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <memory>
#include <string_view>

#include "host/zelstring.h"
#include "utils/bounded.h"
#include "utils/wsdiscoverybase.h"
#include "utils/wslog.h"
#include "utils/xmlguard.h"

namespace {

constexpr const char* kXAddrsQuery =
    "//*[local-name()='ProbeMatches']//*[local-name()='ProbeMatch']//*[local-name()='XAddrs']";
constexpr const char* kScopesQuery =
    "//*[local-name()='ProbeMatches']//*[local-name()='ProbeMatch']//*[local-name()='Scopes']";

// ONVIF Core, section "Scope parameters".
constexpr std::string_view kHardwareScope = "onvif://www.onvif.org/hardware/";
constexpr std::string_view kHttpScheme = "http://";

// How many of libxml2's operations one query may take if elements contain others of the same name.
// libxml2 needs quadratic time for those: 4096 bytes of nested ProbeMatches would take 30 ms.
// A device's reply nests nothing and takes some hundred operations. Without nesting even the most
// expensive reply takes less than 1 ms, and has no limit.
constexpr unsigned long kMaxNestedOperations = 5000;

const xmlChar* XmlText(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

const char* TextOrEmpty(const xmlChar* text) {
    return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

bool AreNamesakes(const xmlNode& a, const xmlNode& b) {
    return a.name[0] == b.name[0] && xmlStrEqual(a.name, b.name) != 0;
}

bool HasNamesakeAbove(const xmlNode* element) {
    const xmlNode* above = element->parent;
    while (above->type == XML_ELEMENT_NODE && !AreNamesakes(*above, *element)) {
        above = above->parent;
    }
    return above->type == XML_ELEMENT_NODE;
}

// When memory runs out, libxml2 may leave an element without a name and still call the document
// complete; local-name() would then read through the null pointer. The parser has limited the depth
// of this recursion.
bool HasNamelessElement(const xmlNode* node) {
    for (; node != nullptr; node = node->next) {
        if (node->type == XML_ELEMENT_NODE &&
            (node->name == nullptr || HasNamelessElement(node->children))) {
            return true;
        }
    }
    return false;
}

bool NestsNamesakes(const xmlNode* element) {
    for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && (HasNamesakeAbove(child) || NestsNamesakes(child))) {
            return true;
        }
    }
    return false;
}

// The default build deliberately keeps the documents and the results of successful queries, one
// reply per camera: this is no leak to fix. It also keeps the context of a query that fails. The
// bounded build frees all of them, so that no sender can fill the memory.
struct FreeInBoundedBuild {
    void operator()(xmlDoc* doc) const {
        if constexpr (kBounded) {
            xmlFreeDoc(doc);
        }
    }
    void operator()(xmlXPathObject* result) const {
        if constexpr (kBounded) {
            xmlXPathFreeObject(result);
        }
    }
    void operator()(xmlXPathContext* context) const {
        if constexpr (kBounded) {
            xmlXPathFreeContext(context);
        }
    }
};
template <typename T>
using KeptUnlessBounded = std::unique_ptr<T, FreeInBoundedBuild>;

struct FreeXmlText {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

}  // namespace

void WSDiscoveryBase::ParseProbeMatchMessage(const std::string& ip, const std::string& reply,
                                             std::string& port, std::string& hardware) {
    const KeptUnlessBounded<xmlDoc> doc(
        IsPrologHarmless(reply) ? xmlParseMemory(reply.data(), static_cast<int>(reply.size()))
                                : nullptr);
    if (doc == nullptr || HasNamelessElement(doc->children)) {
        WS_LOG(LOG_LEVEL_INFO, "Parse Probe Match Message to XML Failed: %s\n", ip.c_str());
        return;
    }
    xmlXPathObject* result = nullptr;
    if (GetXmlNodeSet(doc.get(), kXAddrsQuery, result) == 0) {
        const KeptUnlessBounded<xmlXPathObject> owner(result);
        std::string xaddrs;
        GetNodeContent(result->nodesetval->nodeTab[0], xaddrs);  // on failure empty: port stays
        ParsePortFromXAddrs(xaddrs, port);
    } else {
        WS_LOG(LOG_LEVEL_INFO, "Failed to get XAddrs node set.\n");
    }
    if (GetXmlNodeSet(doc.get(), kScopesQuery, result) == 0) {
        const KeptUnlessBounded<xmlXPathObject> owner(result);
        std::string scopes;
        GetNodeContent(result->nodesetval->nodeTab[0], scopes);
        ParseHardwareFromScopes(scopes, hardware);
    } else {
        WS_LOG(LOG_LEVEL_INFO, "Failed to get scopes node set.\n");
    }
}

int WSDiscoveryBase::GetXmlNodeSet(xmlDoc* doc, const std::string& xpath, xmlXPathObject*& result) {
    xmlXPathContext* const context = xmlXPathNewContext(doc);
    if (context == nullptr) {
        WS_LOG(LOG_LEVEL_NOTICE, "Error: unable to create new XPath context.\n");
        return -1;
    }
    const xmlNode* const root = xmlDocGetRootElement(doc);
    if (root == nullptr) {
        WS_LOG(LOG_LEVEL_NOTICE, "Error: unable to get xml root element.\n");
        return -1;  // the context is kept, as on the other early return
    }
    // Begins at the root's own namespace, so declarations written before it are left out. The
    // queries use local names and do not need them.
    for (const xmlNs* ns = root->ns; ns != nullptr; ns = ns->next) {
        if (xmlXPathRegisterNs(context, ns->prefix, ns->href) != 0) {
            WS_LOG(LOG_LEVEL_INFO, "Unable to register xml namespace [%s, %s].\n",
                   TextOrEmpty(ns->prefix), TextOrEmpty(ns->href));
        }
    }
    context->opLimit = NestsNamesakes(root) ? kMaxNestedOperations : 0;
    result = xmlXPathEvalExpression(XmlText(xpath.c_str()), context);
    if (result == nullptr) {
        const KeptUnlessBounded<xmlXPathContext> owner(context);
        WS_LOG(LOG_LEVEL_NOTICE, "Error: unable to evaluate XPath expression %s.\n", xpath.c_str());
        return -1;
    }
    xmlXPathFreeContext(context);
    if (result == nullptr) {  // cannot be, see above; a guard if the order changes
        WS_LOG(LOG_LEVEL_NOTICE, "Error: xmlXPathEvalExpression return NULL.\n");
        return -1;
    }
    const xmlNodeSet* const nodes = result->nodesetval;
    if (nodes == nullptr || nodes->nodeNr == 0 || nodes->nodeTab == nullptr) {
        WS_LOG(LOG_LEVEL_NOTICE, "Notice: xmlXPathObj is empty.\n");
        xmlXPathFreeObject(result);  // `result` keeps pointing there; callers must not use it
        return -1;
    }
    return 0;
}

int WSDiscoveryBase::GetNodeContent(xmlNode* node, std::string& content) {
    if (node == nullptr) {
        WS_LOG(LOG_LEVEL_NOTICE, "NULL xml node.\n");
        return -1;
    }
    content.clear();
    const std::unique_ptr<xmlChar, FreeXmlText> text(xmlNodeGetContent(node));
    if (text == nullptr) {
        WS_LOG(LOG_LEVEL_NOTICE, "Get node content failed.\n");
        return -1;
    }
    content = reinterpret_cast<const char*>(text.get());
    return 0;
}

void WSDiscoveryBase::ParsePortFromXAddrs(const std::string& xaddrs, std::string& port) {
    std::string kept = xaddrs;
    const std::size_t scheme = kept.find(kHttpScheme);
    if (scheme != std::string::npos) {
        kept.erase(0, scheme + kHttpScheme.size());
    }
    // Deliberately simple and frozen: the first colon and the first slash count. Callers rely on
    // the result, also for addresses with https, an IPv6 literal or no path.
    const std::size_t colon = kept.find(':');
    const std::size_t slash = kept.find('/');
    if (colon == std::string::npos || slash == std::string::npos || colon > slash) {
        return;
    }
    port = kept.substr(colon + 1, slash - colon - 1);
}

void WSDiscoveryBase::ParseHardwareFromScopes(const std::string& scopes, std::string& hardware) {
    const std::size_t prefix = scopes.find(kHardwareScope);
    if (prefix == std::string::npos) {
        return;
    }
    const std::size_t end = scopes.find(' ', prefix);  // a space alone ends a scope
    const std::size_t value = prefix + kHardwareScope.size();
    hardware = scopes.substr(value, end == std::string::npos ? end : end - value);
    hardware = DecodingSpaces(hardware);
}
