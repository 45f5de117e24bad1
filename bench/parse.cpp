// One reply parsed, against the same calls of libxml2 with nothing around them: time, and how often
// memory was asked for.
#include <benchmark/benchmark.h>
#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "control/standalonehost.h"
#include "host/zellog.h"
#include "utils/wsdiscoverybase.h"
#include "utils/xmlguard.h"

namespace {

constexpr bool kBounded = LANSCOUT_BOUNDED != 0;
// The default build keeps what it parses, about 20 KB a reply: many runs of many replies would
// measure how the machine finds gigabytes for them.
constexpr int kRepliesInRun = 300;
constexpr int kRuns = 25;

constexpr const char* kXAddrsQuery =
    "//*[local-name()='ProbeMatches']//*[local-name()='ProbeMatch']//*[local-name()='XAddrs']";
constexpr const char* kScopesQuery =
    "//*[local-name()='ProbeMatches']//*[local-name()='ProbeMatch']//*[local-name()='Scopes']";

std::size_t g_allocations = 0;

void* CountedMalloc(std::size_t size) {
    ++g_allocations;
    return std::malloc(size);
}

void* CountedRealloc(void* old, std::size_t size) {
    ++g_allocations;
    return std::realloc(old, size);
}

char* CountedStrdup(const char* text) {
    ++g_allocations;
    return ::strdup(text);
}

class Search : public WSDiscoveryBase {
public:
    Search() : WSDiscoveryBase("127.0.0.1", 0) {}
    using WSDiscoveryBase::ParseProbeMatchMessage;
};

std::string ReadSeed(const std::string& name) {
    std::ifstream file(std::string(BENCH_SEEDS) + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What the queries of a reply cost in any case.
void BareQuery(xmlDoc* doc, const char* query) {
    xmlXPathContext* const context = xmlXPathNewContext(doc);
    for (const xmlNs* ns = xmlDocGetRootElement(doc)->ns; ns != nullptr; ns = ns->next) {
        xmlXPathRegisterNs(context, ns->prefix, ns->href);
    }
    xmlXPathObject* const result =
        xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(query), context);
    xmlXPathFreeContext(context);
    xmlChar* const text = xmlNodeGetContent(result->nodesetval->nodeTab[0]);
    benchmark::DoNotOptimize(text);
    xmlFree(text);
    if constexpr (kBounded) {
        xmlXPathFreeObject(result);
    }
}

void BareCalls(const std::string& reply) {
    xmlDoc* const doc = xmlParseMemory(reply.data(), static_cast<int>(reply.size()));
    BareQuery(doc, kXAddrsQuery);
    BareQuery(doc, kScopesQuery);
    if constexpr (kBounded) {
        xmlFreeDoc(doc);
    }
}

void Library(Search& search, const std::string& reply) {
    std::string port = "80";
    std::string hardware;
    search.ParseProbeMatchMessage("10.0.0.1", reply, port, hardware);
    benchmark::DoNotOptimize(port);
    benchmark::DoNotOptimize(hardware);
}

template <typename Function>
void Measure(benchmark::State& state, Function parse) {
    const std::size_t before = g_allocations;
    for (auto _ : state) {
        parse();
    }
    state.counters["allocations"] = benchmark::Counter(static_cast<double>(g_allocations - before),
                                                       benchmark::Counter::kAvgIterations);
}

double Least(const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
}

template <typename Function>
void Register(const std::string& name, Function parse) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [parse](benchmark::State& state) { Measure(state, parse); })
        ->Iterations(kRepliesInRun)
        ->Repetitions(kRuns)
        ->ComputeStatistics("least", Least);
}

}  // namespace

void* operator new(std::size_t size) {
    if (void* const memory = CountedMalloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

int main(int argc, char** argv) {
    xmlMemSetup(std::free, CountedMalloc, CountedRealloc, CountedStrdup);
    HardenXmlOnThisThread();
    StandaloneHost::AttachLogConfig();
    Search search;
    // The default build's documents stay: an arena for each would not be measured again.
    for (const char* name : {"brightwater_no_declaration.xml", "northgate_many_prefixes.xml",
                             "kestrel_pretty_s_a_d.xml", "utf16le.xml"}) {
        const std::string reply = ReadSeed(name);
        const std::string text = reply.substr(0, reply.size());
        Register(std::string("bare/") + name, [text] { BareCalls(text); });
        Register(std::string("library/") + name, [text, &search] { Library(search, text); });
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
