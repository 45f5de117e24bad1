#include "tests/unit/support/worstxml.h"

#include <iconv.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

namespace {

constexpr std::size_t kDatagramBytes = 4096;

std::string Repeat(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

// `begin`, as often `filler` as the datagram has room for, `end`.
std::string Fill(const std::string& begin, const std::string& filler, const std::string& end) {
    std::string text = begin;
    while (text.size() + filler.size() + end.size() <= kDatagramBytes) {
        text += filler;
    }
    return text + end;
}

// The same with a filler that knows its number.
std::string FillCounting(const std::string& begin, const std::string& end,
                         const std::function<std::string(int)>& filler) {
    std::string text = begin;
    for (int i = 0;; ++i) {
        const std::string next = filler(i);
        if (text.size() + next.size() + end.size() > kDatagramBytes) {
            return text + end;
        }
        text += next;
    }
}

// `levels` of one element around a filling.
std::string Nest(const std::string& name, int levels, const std::string& filler) {
    return Fill(Repeat("<" + name + ">", levels), filler, Repeat("</" + name + ">", levels));
}

// Short distinct names: a, b, ... aa, ab, ...
std::string Name(int number) {
    std::string name;
    do {
        name += static_cast<char>('a' + number % 26);
        number /= 26;
    } while (number-- > 0);
    return name;
}

const std::string kMatch = "<ProbeMatches><ProbeMatch>";
const std::string kMatchEnd = "</ProbeMatch></ProbeMatches>";

// Each entity is ten of the one before.
std::string NestedEntities() {
    std::string text = "<!DOCTYPE a [<!ENTITY a 'xxxxxxxxxx'>";
    for (char name = 'b'; name < 'k'; ++name) {
        const std::string former(1, static_cast<char>(name - 1));
        text += "<!ENTITY " + std::string(1, name) + " '" + Repeat("&" + former + ";", 10) + "'>";
    }
    return text + "]>" + kMatch + "<XAddrs>&j;</XAddrs>" + kMatchEnd;
}

std::string QuadraticEntity() {
    const std::string begin =
        "<!DOCTYPE a [<!ENTITY a '" + std::string(1900, 'x') + "'>]>" + kMatch + "<XAddrs>";
    return Fill(begin, "&a;", "</XAddrs>" + kMatchEnd);
}

// Parameter entities that include one another: the parser never comes to an end.
std::string ParameterEntityLoop() {
    std::string text = "<!DOCTYPE a [";
    for (int i = 0; i < 9; ++i) {
        const std::string next = "&#37;p" + std::to_string(i + 1) + ";";
        text += "<!ENTITY % p" + std::to_string(i) + " '" + Repeat(next, 9) + "'>";
    }
    return text + "<!ENTITY % p9 '<!ENTITY x \"y\">'>%p0;]>" + kMatch + kMatchEnd;
}

std::string EntityInAttribute() {
    const std::string begin = "<!DOCTYPE a [<!ENTITY a '" + std::string(1200, 'x') + "'>]>";
    return Fill(begin + "<b>", "<a c='&a;&a;&a;'/>", "</b>");
}

std::string ExternalThing(const std::string& what) {
    return "<!DOCTYPE a [" + what + "]>" + kMatch + "<XAddrs>&e;</XAddrs>" + kMatchEnd;
}

void AddEntities(std::vector<WorstXml>& all) {
    all.push_back({"nested entities", NestedEntities(), ""});
    all.push_back({"quadratic entity", QuadraticEntity(), ""});
    all.push_back({"parameter entity loop", ParameterEntityLoop(), ""});
    all.push_back({"entity in attributes", EntityInAttribute(), ""});
    all.push_back(
        {"external entity, file", ExternalThing("<!ENTITY e SYSTEM 'file:///etc/passwd'>"), ""});
    all.push_back(
        {"external entity, http", ExternalThing("<!ENTITY e SYSTEM 'http://127.0.0.1:9/'>"), ""});
    all.push_back({"external parameter entity",
                   ExternalThing("<!ENTITY % e SYSTEM 'file:///etc/passwd'>%e;"), ""});
    all.push_back({"unparsed entity",
                   ExternalThing("<!NOTATION n SYSTEM 'n'><!ENTITY e SYSTEM 'f' NDATA n>"), ""});
    all.push_back({"undeclared parameter entity", ExternalThing("%e;"), ""});
    all.push_back({"external DTD, file",
                   "<!DOCTYPE a SYSTEM 'file:///etc/passwd'>" + kMatch + kMatchEnd, ""});
    all.push_back({"external DTD, http",
                   "<!DOCTYPE a PUBLIC 'p' 'http://127.0.0.1:9/'>" + kMatch + kMatchEnd, ""});
}

void AddDeclarations(std::vector<WorstXml>& all) {
    all.push_back({"attribute defaults, one long",
                   Fill("<!DOCTYPE b [<!ATTLIST a c CDATA '" + std::string(1900, 'x') + "'>]><b>",
                        "<a/>", "</b>"),
                   ""});
    std::string attributes = "<!DOCTYPE b [<!ATTLIST a";
    for (int i = 0; i < 160; ++i) {
        attributes += " " + Name(i) + " CDATA ''";
    }
    all.push_back(
        {"attribute defaults, many short", Fill(attributes + ">]><b>", "<a/>", "</b>"), ""});
    all.push_back(
        {"attribute declarations without default",
         FillCounting("<!DOCTYPE b [", "]><b/>",
                      [](int i) { return "<!ATTLIST a " + Name(i) + " CDATA #IMPLIED>"; }),
         ""});
    all.push_back({"attribute enumerations",
                   FillCounting("<!DOCTYPE b [<!ATTLIST a b (z", ") #IMPLIED>]><b/>",
                                [](int i) { return "|" + Name(i); }),
                   ""});
    all.push_back({"element declarations",
                   FillCounting("<!DOCTYPE b [", "]><b/>",
                                [](int i) { return "<!ELEMENT " + Name(i) + " ANY>"; }),
                   ""});
    all.push_back(
        {"nested content model",
         "<!DOCTYPE b [<!ELEMENT b " + Repeat("(", 1900) + "a" + Repeat(")", 1900) + ">]><b/>",
         ""});
    all.push_back({"wide content model",
                   FillCounting("<!DOCTYPE b [<!ELEMENT b (z", ")>]><b/>",
                                [](int i) { return "|" + Name(i); }),
                   ""});
    all.push_back({"notations",
                   FillCounting("<!DOCTYPE b [", "]><b/>",
                                [](int i) { return "<!NOTATION " + Name(i) + " SYSTEM 'n'>"; }),
                   ""});
    all.push_back({"comments in the subset", Fill("<!DOCTYPE b [", "<!---->", "]><b/>"), ""});
}

void AddShapes(std::vector<WorstXml>& all) {
    all.push_back({"deep nesting", Repeat("<a>", 585) + Repeat("</a>", 585), ""});
    all.push_back({"deepest nesting that parses", Nest("a", 255, "<b/>x"), ""});
    all.push_back({"many elements", Fill("<a>", "<b/>x", "</a>"), ""});
    all.push_back({"many elements in a match", Fill(kMatch, "<b/>x", kMatchEnd), ""});
    all.push_back({"many instructions", Fill("<a>", "<?b?>", "</a>"), ""});
    all.push_back({"many comments", Fill("<a>", "<!---->", "</a>"), ""});
    all.push_back({"many sections", Fill("<a>", "<![CDATA[]]>x", "</a>"), ""});
    all.push_back({"many character references", Fill("<a>", "&#9;", "</a>"), ""});
    all.push_back({"many predefined entities", Fill("<a>", "&lt;", "</a>"), ""});
    all.push_back({"many attributes",
                   FillCounting("<a", "/>", [](int i) { return " " + Name(i) + "=''"; }), ""});
    all.push_back({"attributes on many elements", Fill("<a>", "<b c='d'/>", "</a>"), ""});
    all.push_back({"attribute twice", Fill("<a", " b=''", "/>"), ""});
    all.push_back({"many namespaces",
                   FillCounting("<a", "/>", [](int i) { return " xmlns:" + Name(i) + "='u'"; }),
                   ""});
    all.push_back({"namespaces on many levels",
                   FillCounting("<z>", "", [](int i) { return "<a xmlns:" + Name(i) + "='u'>"; }),
                   ""});
    all.push_back({"namespace looked up on every level",
                   Fill(Repeat("<p:a xmlns:p='u'>", 60), "<p:b/>", Repeat("</p:a>", 60)), ""});
    std::string prefixes = "<z";
    std::string used;
    for (int i = 0; i < 150; ++i) {
        prefixes += " xmlns:" + Name(i) + "='u'";
        used += " " + Name(i) + ":b='c'";
    }
    all.push_back({"attributes with namespaces", prefixes + used + "/>", ""});
    all.push_back({"long name", "<" + std::string(4000, 'n') + "/>", ""});
    all.push_back({"unfinished long name", "<" + std::string(4095, 'n'), ""});
    all.push_back({"unfinished elements", Fill("<a>", "<b>", ""), ""});
    all.push_back({"control characters", "<a>" + std::string(4000, '\x01') + "</a>", ""});
    all.push_back({"bytes that are no UTF-8", "<a>" + std::string(4000, '\xC3') + "</a>", ""});
    all.push_back({"errors without end", Fill("<a>", "&", "</a>"), ""});
    all.push_back({"unfinished comment", "<a><!--" + std::string(4000, '-'), ""});
    all.push_back({"brackets", "<a>" + std::string(4000, ']') + "</a>", ""});
    all.push_back({"blanks before the root", std::string(4000, '\n') + "<a/>", ""});
}

// Names that collide with the queries, in one another: libxml2 merges their descendants in
// quadratic time.
void AddCollisions(std::vector<WorstXml>& all) {
    for (const int levels : {2, 4, 8, 20, 47}) {
        all.push_back({"nested ProbeMatches, " + std::to_string(levels) + " levels",
                       Nest("ProbeMatches", levels, "<a/>x"), ""});
    }
    for (const int levels : {2, 3, 4, 5, 8, 40}) {
        const std::string number = std::to_string(levels);
        all.push_back({"nested ProbeMatch, " + number + " levels",
                       Fill("<ProbeMatches>" + Repeat("<ProbeMatch>", levels), "<a/>x",
                            Repeat("</ProbeMatch>", levels) + "</ProbeMatches>"),
                       ""});
        all.push_back(
            {"both nested, " + number + " levels",
             Fill(Repeat("<ProbeMatches>", levels) + Repeat("<ProbeMatch>", levels), "<?a?>",
                  Repeat("</ProbeMatch>", levels) + Repeat("</ProbeMatches>", levels)),
             ""});
    }
    all.push_back({"nested in turn", Fill(Repeat(kMatch, 20), "<a/>x", Repeat(kMatchEnd, 20)), ""});
    all.push_back({"side by side", Fill("<z>", kMatch + "<XAddrs/>" + kMatchEnd, "</z>"), ""});
    all.push_back({"many XAddrs", Fill(kMatch, "<XAddrs/>", kMatchEnd), ""});
    all.push_back(
        {"nested XAddrs",
         Fill(kMatch + Repeat("<XAddrs>", 100), "x<a/>", Repeat("</XAddrs>", 100) + kMatchEnd),
         ""});
}

void AddCharsets(std::vector<WorstXml>& all) {
    const std::string bomb = "<!DOCTYPE a [<!ENTITY e '" + std::string(300, 'x') + "'>]><a>" +
                             Repeat("&e;", 100) + "</a>";
    const std::string wide = "<a>" + Repeat("<b/>x", 180) + "</a>";
    for (const std::string charset :
         {"UTF-16LE", "UTF-16BE", "UTF-16", "UCS-4LE", "UCS-4BE", "UTF-7", "EBCDIC-US", "IBM037",
          "ISO-8859-1", "ISO-8859-15", "KOI8-R", "EUC-JP", "SHIFT_JIS", "ISO-2022-JP", "GB18030",
          "BIG5", "HZ", "WINDOWS-1252"}) {
        for (const auto& [what, document] :
             {std::pair("entities", &bomb), std::pair("elements", &wide)}) {
            const std::string text = InCharset(*document, charset);
            if (!text.empty() && text.size() <= kDatagramBytes) {
                all.push_back({charset + ", " + what, text, charset});
            }
        }
    }
    all.push_back({"unknown character set",
                   "<?xml version='1.0' encoding='" + std::string(3000, 'x') + "'?><a/>", ""});
}

struct CloseConverter {
    void operator()(void* converter) const { iconv_close(converter); }
};

}  // namespace

std::vector<WorstXml> AllWorstXml() {
    std::vector<WorstXml> all;
    AddEntities(all);
    AddDeclarations(all);
    AddShapes(all);
    AddCollisions(all);
    AddCharsets(all);
    return all;
}

std::string InCharset(const std::string& document, const std::string& charset) {
    iconv_t const opened = iconv_open(charset.c_str(), "UTF-8");
    if (opened == reinterpret_cast<iconv_t>(-1)) {  // NOLINT: the C library's sign of failure
        return "";
    }
    const std::unique_ptr<void, CloseConverter> converter(opened);
    std::string from = "<?xml version=\"1.0\" encoding=\"" + charset + "\"?>" + document;
    std::string to(from.size() * 8 + 16, '\0');
    char* in = from.data();
    char* out = to.data();
    std::size_t inLeft = from.size();
    std::size_t outLeft = to.size();
    if (charset == "UTF-7") {  // every character of the markup is to be encoded
        in += from.find("?>") + 2;
        inLeft -= static_cast<std::size_t>(in - from.data());
        out = std::copy_n(from.data(), from.size() - inLeft, out);
        outLeft -= from.size() - inLeft;
    }
    iconv(converter.get(), &in, &inLeft, &out, &outLeft);
    to.resize(to.size() - outLeft);
    return inLeft == 0 ? to : "";
}
