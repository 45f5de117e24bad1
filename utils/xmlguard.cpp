#include "utils/xmlguard.h"

#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <strings.h>

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

// Everything that is not set stays null: the parser then builds nothing and resolves nothing, and
// reports to nobody but the thread's own handlers.
xmlSAXHandler PrologHandler() {
    xmlSAXHandler handler{};
    handler.initialized = XML_SAX2_MAGIC;
    handler.entityDecl = OnEntity;
    handler.unparsedEntityDecl = OnUnparsedEntity;
    handler.attributeDecl = OnAttribute;
    handler.startElementNs = OnRoot;
    return handler;
}

struct FreeContext {
    void operator()(xmlParserCtxt* context) const {
        xmlFreeDoc(context->myDoc);
        xmlFreeParserCtxt(context);
    }
};

bool SkipIgnoringCase(std::string_view& text, std::string_view word) {
    if (text.size() < word.size() || strncasecmp(text.data(), word.data(), word.size()) != 0) {
        return false;
    }
    text.remove_prefix(word.size());
    return true;
}

// Whether the document plainly opens as UTF-8: by its first bytes (XML 1.0, appendix F), and by an
// XML declaration, if it has one, that names UTF-8 or nothing. Other ways to write the same
// declaration are not worth recognising here.
bool OpensAsUtf8(std::string_view document) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (document.starts_with(kByteOrderMark)) {
        document.remove_prefix(kByteOrderMark.size());
    }
    if (document.size() < 2 || document[0] != '<' || document[1] == '\0') {
        return false;
    }
    if (!document.starts_with("<?xml")) {
        return true;
    }
    return (SkipIgnoringCase(document, "<?xml version=\"1.0\"") ||
            SkipIgnoringCase(document, "<?xml version='1.0'")) &&
           (document.starts_with("?>") || SkipIgnoringCase(document, " encoding=\"utf-8\"") ||
            SkipIgnoringCase(document, " encoding='utf-8'"));
}

// Whether the parser cannot come upon a document type declaration. A document that opens as UTF-8
// is parsed as the bytes that it consists of: libxml2 puts a converter in front of the parser only
// for the first bytes or for a declared encoding, or, since 2.12, for bytes that are not UTF-8, and
// that one (ISO 8859-1) leaves ASCII alone. So the bytes of the declaration must be there to be
// found. This spares nearly every reply the parser context below, which costs a quarter of the
// parse itself.
bool CannotDeclareType(std::string_view document) {
    return OpensAsUtf8(document) && document.find("<!DOCTYPE") == std::string_view::npos;
}

}  // namespace

bool IsPrologHarmless(std::string_view document) {
    if (document.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return false;
    }
    if (CannotDeclareType(document)) {
        return true;
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
