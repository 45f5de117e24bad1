// Measures what the worst replies cost: CPU time, peak and kept memory, with the guard and, in a
// child process under limits, without it. With --climb SECONDS it goes on to look for worse ones by
// changing the dearest ones at random.
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "tests/unit/support/opensearch.h"
#include "tests/unit/support/recordinghost.h"
#include "tests/unit/support/samplereply.h"
#include "tests/unit/support/worstxml.h"
#include "utils/xmlguard.h"

namespace {

std::size_t heapNow = 0;
std::size_t heapPeak = 0;
std::size_t allocations = 0;

void* Counted(void* block) {
    ++allocations;
    heapNow += malloc_usable_size(block);
    heapPeak = std::max(heapPeak, heapNow);
    return block;
}

}  // namespace

// Every allocation of the process, counted: glibc's own functions lie below.
extern "C" {
// NOLINTBEGIN(readability-identifier-naming): the C library's own names
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);
// NOLINTEND(readability-identifier-naming)

void* malloc(std::size_t size) {
    return Counted(__libc_malloc(size));
}
void* calloc(std::size_t count, std::size_t size) {
    return Counted(__libc_calloc(count, size));
}
void* realloc(void* block, std::size_t size) {
    heapNow -= block == nullptr ? 0 : malloc_usable_size(block);
    return Counted(__libc_realloc(block, size));
}
void free(void* block) {
    heapNow -= block == nullptr ? 0 : malloc_usable_size(block);
    __libc_free(block);
}
}

namespace {

struct Cost {
    double nMilliseconds = 1e9;
    std::size_t nPeak = 0;
    std::size_t nKept = 0;
    std::size_t nAllocations = 0;
};

double Milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// The fastest of `runs`.
Cost Measure(int runs, const std::function<void()>& function) {
    Cost cost;
    for (int i = 0; i < runs; ++i) {
        RecordingHost::Reset();  // the lines of former runs
        const std::size_t before = heapNow;
        const std::size_t allocated = allocations;
        heapPeak = heapNow;
        const double start = Milliseconds();
        function();
        cost.nMilliseconds = std::min(cost.nMilliseconds, Milliseconds() - start);
        cost.nPeak = heapPeak - before;
        cost.nKept = heapNow - before;
        cost.nAllocations = allocations - allocated;
    }
    return cost;
}

void Guarded(const std::string& reply) {
    static OpenSearch search("192.168.1.2", 5);
    std::string port = "80";
    std::string hardware;
    search.ParseProbeMatchMessage("192.168.1.20", reply, port, hardware);
}

const std::string kQuery =
    "//*[local-name()='ProbeMatches']//*[local-name()='ProbeMatch']//*[local-name()='";

// The same sequence of libxml2's functions, and nothing else; everything is freed where asked.
void Bare(const std::string& reply) {
    xmlDoc* const doc = xmlParseMemory(reply.data(), static_cast<int>(reply.size()));
    if (doc == nullptr) {
        return;
    }
    for (const char* const name : {"XAddrs']", "Scopes']"}) {
        xmlXPathContext* const context = xmlXPathNewContext(doc);
        for (const xmlNs* ns = xmlDocGetRootElement(doc)->ns; ns != nullptr; ns = ns->next) {
            xmlXPathRegisterNs(context, ns->prefix, ns->href);
        }
        const std::string query = kQuery + name;
        xmlXPathObject* const result =
            xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(query.c_str()), context);
        xmlXPathFreeContext(context);
        if (result != nullptr && result->nodesetval != nullptr && result->nodesetval->nodeNr > 0) {
            xmlFree(xmlNodeGetContent(result->nodesetval->nodeTab[0]));
        }
        if (LANSCOUT_BOUNDED != 0) {
            xmlXPathFreeObject(result);
        }
    }
    if (LANSCOUT_BOUNDED != 0) {
        xmlFreeDoc(doc);
    }
}

// Without the guard some loop for ever or take gigabytes: in a child with limits.
std::string WithoutGuard(const std::string& reply) {
    auto* const cost = static_cast<Cost*>(
        mmap(nullptr, sizeof(Cost), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t child = fork();
    if (child == 0) {
        const rlimit seconds{5, 5};
        const rlimit bytes{std::size_t{4} << 30, std::size_t{4} << 30};
        setrlimit(RLIMIT_CPU, &seconds);
        setrlimit(RLIMIT_AS, &bytes);
        *cost = Measure(1, [&] { Bare(reply); });
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    char text[80];
    if (WIFSIGNALED(status)) {
        snprintf(text, sizeof(text), "killed after 5 s");
    } else {
        snprintf(text, sizeof(text), "%9.3f ms %9zu KiB", cost->nMilliseconds, cost->nPeak / 1024);
    }
    munmap(cost, sizeof(Cost));
    return static_cast<const char*>(text);
}

void Print(const WorstXml& worst, const Cost& cost, const std::string& without) {
    printf("%-40s %5zu %9.3f ms %6zu KiB %6zu KiB | %s\n", worst.name.c_str(), worst.text.size(),
           cost.nMilliseconds, cost.nPeak / 1024, cost.nKept / 1024, without.c_str());
    fflush(stdout);
}

// One random change of a document that keeps it within a datagram.
std::string Change(const std::string& from, const std::string& other, std::mt19937_64& random) {
    static const std::vector<std::string> kTokens{"<ProbeMatches>",
                                                  "</ProbeMatches>",
                                                  "<ProbeMatch>",
                                                  "</ProbeMatch>",
                                                  "<XAddrs>",
                                                  "</XAddrs>",
                                                  "<Scopes>",
                                                  "</Scopes>",
                                                  "<a/>",
                                                  "<a/>x",
                                                  "<?a?>",
                                                  "<!---->",
                                                  "x",
                                                  "<a>",
                                                  "</a>",
                                                  " b=''",
                                                  " xmlns:p='u'",
                                                  "<p:a/>",
                                                  "&lt;",
                                                  "&#9;",
                                                  "<![CDATA[x]]>",
                                                  "<XAddrs/>",
                                                  "<!DOCTYPE a [",
                                                  "]>",
                                                  "<!ELEMENT a ANY>",
                                                  "<!ATTLIST a b (x|y) #IMPLIED>",
                                                  "(a|",
                                                  "(a,",
                                                  "%p;",
                                                  "<ProbeMatches><ProbeMatch>",
                                                  "</ProbeMatch></ProbeMatches>",
                                                  "<?xml version='1.0' encoding='UTF-16'?>",
                                                  "]]>",
                                                  "&",
                                                  "<",
                                                  ">",
                                                  "'",
                                                  "\""};
    std::string text = from;
    const std::size_t at = random() % (text.size() + 1);
    const std::size_t length = random() % 64;
    switch (random() % 6) {
        case 0:
            text.insert(at, kTokens[random() % kTokens.size()]);
            break;
        case 1: {
            const std::string& token = kTokens[random() % kTokens.size()];
            for (std::size_t i = 0; i < length; ++i) {
                text.insert(at, token);
            }
            break;
        }
        case 2:
            text.erase(at, length);
            break;
        case 3:
            text.insert(at, text.substr(random() % (text.size() + 1), length * 4));
            break;
        case 4:
            text.replace(at, length, kTokens[random() % kTokens.size()]);
            break;
        default:
            text = text.substr(0, at) + (at < other.size() ? other.substr(at) : "");
    }
    while (text.size() > 4096) {  // cut in the middle, so that beginning and end stay
        text.erase(text.size() / 2 + random() % 40, std::min<std::size_t>(5, text.size() - 4096));
    }
    return text;
}

struct Candidate {
    std::string text;
    double nScore = 0;
};

void Climb(double seconds, const char* what, const std::function<double(const Cost&)>& score) {
    std::mt19937_64 random(std::random_device{}());
    std::vector<Candidate> best;
    for (const WorstXml& worst : AllWorstXml()) {
        best.push_back({worst.text, score(Measure(2, [&] { Guarded(worst.text); }))});
    }
    const auto dearer = [](const Candidate& a, const Candidate& b) { return a.nScore > b.nScore; };
    const std::time_t end = std::time(nullptr) + static_cast<std::time_t>(seconds);
    long tries = 0;
    while (std::time(nullptr) < end) {
        const Candidate& from = best[std::min(random() % best.size(), random() % best.size())];
        std::string text = Change(from.text, best[random() % best.size()].text, random);
        ++tries;
        double nScore = score(Measure(1, [&] { Guarded(text); }));
        if (nScore > best.back().nScore) {
            nScore = score(Measure(5, [&] { Guarded(text); }));
            best.push_back({std::move(text), nScore});
            std::sort(best.begin(), best.end(), dearer);
            best.resize(std::min<std::size_t>(best.size(), 60));
        }
    }
    printf("climbed by %s: %ld tries, worst %.3f\n", what, tries, best.front().nScore);
    std::ofstream(std::string("worst-by-") + what + ".xml") << best.front().text;
}

// What the guard adds to an ordinary reply.
void MeasureOrdinary() {
    std::string scopes;
    for (const char* const scope :
         {"type/video_encoder", "type/audio_encoder", "hardware/IPC-100", "name/Camera%20One",
          "location/country/none", "Profile/Streaming", "Profile/T", "Profile/G"}) {
        scopes += std::string(scopes.empty() ? "" : " ") + "onvif://www.onvif.org/" + scope;
    }
    const std::string reply = SampleReply(
        "http://192.168.1.20:8080/onvif/device_service http://[fe80::1]/onvif/device_service",
        scopes);
    constexpr int kBlock = 200;
    const auto block = [&](void (*parse)(const std::string&)) {
        return Measure(1, [&] {
            for (int i = 0; i < kBlock; ++i) {
                parse(reply);
            }
        });
    };
    double whole = 1e9;
    double bare = 1e9;
    std::size_t wholeAllocations = 0;
    std::size_t bareAllocations = 0;
    for (int i = 0; i < 100; ++i) {  // in turn, so that both see the same machine
        const Cost a = block(Guarded);
        const Cost b = block(Bare);
        whole = std::min(whole, a.nMilliseconds / kBlock);
        bare = std::min(bare, b.nMilliseconds / kBlock);
        wholeAllocations = a.nAllocations / kBlock;
        bareAllocations = b.nAllocations / kBlock;
    }
    printf(
        "ordinary reply of %zu bytes: whole %.2f us, %zu allocations; bare %.2f us, %zu; "
        "ratios %.3f and %.3f\n",
        reply.size(), whole * 1e3, wholeAllocations, bare * 1e3, bareAllocations, whole / bare,
        static_cast<double>(wholeAllocations) / static_cast<double>(bareAllocations));
}

}  // namespace

int main(int argc, char** argv) {
    xmlInitParser();
    HardenXmlOnThisThread();
    const double seconds =
        argc > 2 && strcmp(argv[1], "--climb") == 0 ? strtod(argv[2], nullptr) : 0;
    MeasureOrdinary();
    printf("%-40s %5s %12s %10s %10s | without the guard: CPU, peak\n", "reply", "bytes", "CPU",
           "peak", "kept");
    for (const WorstXml& worst : AllWorstXml()) {
        const Cost cost = Measure(5, [&] { Guarded(worst.text); });
        Print(worst, cost, WithoutGuard(worst.text));
    }
    if (seconds > 0) {
        Climb(seconds / 2, "time", [](const Cost& cost) { return cost.nMilliseconds; });
        Climb(seconds / 2, "memory",
              [](const Cost& cost) { return static_cast<double>(cost.nPeak) / 1024; });
    }
    return 0;
}
