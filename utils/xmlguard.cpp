#include "utils/xmlguard.h"

#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <limits>
#include <memory>

namespace {

struct Verdict {
    bool bRootReached = false;
    bool bRefused = false;
};

Verdict& VerdictOf(void* context) {
    return *static_cast<Verdict*>(static_cast<xmlParserCtxt*>(context)->_private);
}

void Refuse(void* context) {
    VerdictOf(context).bRefused = true;
    xmlStopParser(static_cast<xmlParserCtxt*>(context));
}

void OnEntity(void* context, const xmlChar*, int, const xmlChar*, const xmlChar*, xmlChar*) {
    Refuse(context);
}

void OnUnparsedEntity(void* context, const xmlChar*, const xmlChar*, const xmlChar*,
                      const xmlChar*) {
    Refuse(context);
}

// A declared attribute is harmless unless it has a default, which the parser copies into every
// element of that name.
void OnAttribute(void* context, const xmlChar*, const xmlChar*, int, int,
                 const xmlChar* defaultValue, xmlEnumeration* values) {
    xmlFreeEnumeration(values);  // libxml2 hands the list over with the call
    if (defaultValue != nullptr) {
        Refuse(context);
    }
}

void OnRoot(void* context, const xmlChar*, const xmlChar*, const xmlChar*, int, const xmlChar**,
            int, int, const xmlChar**) {
    VerdictOf(context).bRootReached = true;
    xmlStopParser(static_cast<xmlParserCtxt*>(context));
}

void IgnoreMessage(void*, const char*, ...) {}

#if LIBXML_VERSION >= 21200
void IgnoreError(void*, const xmlError*) {}
#else
void IgnoreError(void*, xmlError*) {}
#endif

// Everything that is not set stays null: the parser then builds nothing, resolves nothing and
// reports to nobody.
xmlSAXHandler PrologHandler() {
    xmlSAXHandler handler{};
    handler.initialized = XML_SAX2_MAGIC;
    handler.entityDecl = OnEntity;
    handler.unparsedEntityDecl = OnUnparsedEntity;
    handler.attributeDecl = OnAttribute;
    handler.startElementNs = OnRoot;
    handler.serror = IgnoreError;
    return handler;
}

struct FreeContext {
    void operator()(xmlParserCtxt* context) const {
        xmlFreeDoc(context->myDoc);
        xmlFreeParserCtxt(context);
    }
};

}  // namespace

bool IsPrologHarmless(std::string_view document) {
    if (document.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return false;
    }
    const std::unique_ptr<xmlParserCtxt, FreeContext> context(
        xmlCreateMemoryParserCtxt(document.data(), static_cast<int>(document.size())));
    if (context == nullptr) {
        return false;
    }
    static const xmlSAXHandler kHandler = PrologHandler();
    *context->sax = kHandler;
    Verdict verdict;
    context->_private = &verdict;
    context->loadsubset = 0;
    context->validate = 0;
    context->replaceEntities = 0;
    xmlParseDocument(context.get());
    return verdict.bRootReached && !verdict.bRefused;
}

void HardenXmlOnThisThread() {
    xmlSetGenericErrorFunc(nullptr, IgnoreMessage);
    xmlSetStructuredErrorFunc(nullptr, IgnoreError);
    xmlSubstituteEntitiesDefault(0);
    xmlLoadExtDtdDefaultValue = 0;
    xmlDoValidityCheckingDefaultValue = 0;
}
