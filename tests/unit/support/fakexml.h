// libxml2's functions that the search calls, counted, and refused where the test says so. For tests
// that link fake_xml; there they are wrapped at the link.
#pragma once

#include <libxml/xpath.h>

#include <atomic>

namespace FakeXml {

struct State {
    // Refuse these from now on, as a lack of memory would.
    bool bRefuseParse = false;
    bool bRefuseParserContext = false;
    bool bRefuseContext = false;
    bool bRefuseRoot = false;
    bool bRefuseNamespaces = false;
    bool bRefuseEvaluation = false;
    bool bRefuseContent = false;
    bool bLoseNodeTable = false;  // results come without their node table

    std::atomic<int> nDocsParsed = 0;
    std::atomic<int> nDocsFreed = 0;
    std::atomic<int> nParserContexts = 0;
    std::atomic<int> nContexts = 0;
    std::atomic<int> nContextsFreed = 0;
    std::atomic<int> nResultsFreed = 0;

    xmlXPathContext* pLastContext = nullptr;  // for a test that has to free what the search keeps
};

State& Current();
void Reset();

}  // namespace FakeXml
