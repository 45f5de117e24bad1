#include "tests/unit/support/fakexml.h"

#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <memory>

using FakeXml::Current;

namespace {

std::unique_ptr<FakeXml::State>& Owner() {
    static auto state = std::make_unique<FakeXml::State>();
    return state;
}

}  // namespace

FakeXml::State& FakeXml::Current() {
    return *Owner();
}

void FakeXml::Reset() {
    Owner() = std::make_unique<State>();
}

extern "C" {

xmlDoc* __real_xmlParseMemory(const char*, int);
void __real_xmlFreeDoc(xmlDoc*);
xmlNode* __real_xmlDocGetRootElement(const xmlDoc*);
xmlParserCtxt* __real_xmlCreateMemoryParserCtxt(const char*, int);
xmlXPathContext* __real_xmlXPathNewContext(xmlDoc*);
void __real_xmlXPathFreeContext(xmlXPathContext*);
int __real_xmlXPathRegisterNs(xmlXPathContext*, const xmlChar*, const xmlChar*);
xmlXPathObject* __real_xmlXPathEvalExpression(const xmlChar*, xmlXPathContext*);
void __real_xmlXPathFreeObject(xmlXPathObject*);
xmlChar* __real_xmlNodeGetContent(const xmlNode*);

xmlDoc* __wrap_xmlParseMemory(const char* data, int size) {
    xmlDoc* const doc = Current().bRefuseParse ? nullptr : __real_xmlParseMemory(data, size);
    Current().nDocsParsed += doc != nullptr ? 1 : 0;
    return doc;
}

void __wrap_xmlFreeDoc(xmlDoc* doc) {
    Current().nDocsFreed += doc != nullptr ? 1 : 0;
    __real_xmlFreeDoc(doc);
}

xmlNode* __wrap_xmlDocGetRootElement(const xmlDoc* doc) {
    return Current().bRefuseRoot ? nullptr : __real_xmlDocGetRootElement(doc);
}

xmlParserCtxt* __wrap_xmlCreateMemoryParserCtxt(const char* data, int size) {
    ++Current().nParserContexts;
    return Current().bRefuseParserContext ? nullptr : __real_xmlCreateMemoryParserCtxt(data, size);
}

xmlXPathContext* __wrap_xmlXPathNewContext(xmlDoc* doc) {
    if (Current().bRefuseContext) {
        return nullptr;
    }
    ++Current().nContexts;
    Current().pLastContext = __real_xmlXPathNewContext(doc);
    return Current().pLastContext;
}

void __wrap_xmlXPathFreeContext(xmlXPathContext* context) {
    ++Current().nContextsFreed;
    __real_xmlXPathFreeContext(context);
}

int __wrap_xmlXPathRegisterNs(xmlXPathContext* context, const xmlChar* prefix, const xmlChar* uri) {
    return Current().bRefuseNamespaces ? -1 : __real_xmlXPathRegisterNs(context, prefix, uri);
}

xmlXPathObject* __wrap_xmlXPathEvalExpression(const xmlChar* text, xmlXPathContext* context) {
    if (Current().bRefuseEvaluation) {
        return nullptr;
    }
    xmlXPathObject* const result = __real_xmlXPathEvalExpression(text, context);
    if (Current().bLoseNodeTable && result != nullptr && result->nodesetval != nullptr) {
        xmlFree(result->nodesetval->nodeTab);
        result->nodesetval->nodeTab = nullptr;
        result->nodesetval->nodeMax = 0;
    }
    return result;
}

void __wrap_xmlXPathFreeObject(xmlXPathObject* result) {
    ++Current().nResultsFreed;
    __real_xmlXPathFreeObject(result);
}

xmlChar* __wrap_xmlNodeGetContent(const xmlNode* node) {
    return Current().bRefuseContent ? nullptr : __real_xmlNodeGetContent(node);
}

}  // extern "C"
