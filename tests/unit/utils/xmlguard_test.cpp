// The look at a document's prolog, and the settings of the discovery thread for libxml2.
#include "utils/xmlguard.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/unit/support/fakexml.h"
#include "tests/unit/support/samplereply.h"
#include "tests/unit/support/worstxml.h"

namespace {

class XmlGuard : public testing::Test {
protected:
    XmlGuard() {
        FakeXml::Reset();
        HardenXmlOnThisThread();
    }
};

std::string InSubset(const std::string& declaration) {
    return "<!DOCTYPE a [" + declaration + "]><a/>";
}

TEST_F(XmlGuard, OrdinaryDocumentsAreHarmless) {
    for (const std::string& document :
         {std::string("<a/>"), std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>"),
          std::string("<?xml version='1.0' encoding='utf-8' standalone='yes'?>\n<a/>"),
          std::string("<?xml version=\"1.0\"?><!-- c --><?p i?>\n<a>text</a>"),
          std::string("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>"),
          std::string("<?xml  version = '1.0'  encoding = 'UTF-8' ?><a/>"),
          std::string("<?xml version='1.1' encoding='iso-8859-1'?><a>\xE4</a>"),
          std::string("<?xml version='1.0' encoding='UTF8'?><a/>"),
          SampleReply("http://h:81/", "s"), std::string("<a/><!-- <!DOCTYPE -->"),
          std::string("<a>unfinished"), std::string("<a></b>")}) {
        EXPECT_TRUE(IsPrologHarmless(document)) << document;
    }
}

TEST_F(XmlGuard, DoctypeThatDeclaresNothingToExpandIsHarmless) {
    for (const std::string& document :
         {std::string("<!DOCTYPE a><a/>"), InSubset(""), InSubset("<!ELEMENT a ANY>"),
          InSubset("<!ATTLIST a b CDATA #IMPLIED>"), InSubset("<!ATTLIST a b (x|y) #REQUIRED>"),
          InSubset("<!NOTATION n SYSTEM 'n'>"), InSubset("<!-- <!ENTITY e 'x'> -->"),
          InSubset("<?p <!ENTITY e 'x'> ?>"), std::string("<!DOCTYPE a SYSTEM 'file:///x'><a/>"),
          std::string("<!DOCTYPE a PUBLIC 'p' 'http://127.0.0.1:9/'><a/>"),
          std::string("<!-- <!DOCTYPE a [<!ENTITY e 'x'>]> --><a/>")}) {
        EXPECT_TRUE(IsPrologHarmless(document)) << document;
    }
}

TEST_F(XmlGuard, DeclarationsThatTheParserExpandsAreRefused) {
    for (const std::string declaration :
         {"<!ENTITY e 'x'>", "<!ENTITY e ''>", "<!ENTITY % p 'x'>", "<!ENTITY e SYSTEM 'f'>",
          "<!ENTITY % p SYSTEM 'f'>", "<!ENTITY e PUBLIC 'p' 'f'>", "<!ENTITY lt '&#38;#60;'>",
          "<!NOTATION n SYSTEM 'n'><!ENTITY e SYSTEM 'f' NDATA n>", "<!ATTLIST a b CDATA 'x'>",
          "<!ATTLIST a b CDATA ''>", "<!ATTLIST a b CDATA #FIXED 'x'>",
          "<!ATTLIST a xmlns:b CDATA 'x'>", "<!ATTLIST a b (x|y) 'x'>",
          "<!ELEMENT a ANY><!ENTITY e 'x'>"}) {
        EXPECT_FALSE(IsPrologHarmless(InSubset(declaration))) << declaration;
    }
}

TEST_F(XmlGuard, NothingWithoutARootPassesForOrdinary) {
    EXPECT_FALSE(IsPrologHarmless(""));
    EXPECT_FALSE(IsPrologHarmless("\n"));
    EXPECT_FALSE(IsPrologHarmless("<"));
    EXPECT_FALSE(IsPrologHarmless("no XML"));
    EXPECT_FALSE(IsPrologHarmless("<!DOCTYPE a [<!ELEMENT a ANY>]>"));
    EXPECT_FALSE(IsPrologHarmless("<!DOCTYPE a ["));
}

TEST_F(XmlGuard, DocumentsOfImpossibleSizeAreRefused) {
    const std::string text = "<a/>";
    // Never read: the size alone decides.
    EXPECT_FALSE(IsPrologHarmless(std::string_view(text.data(), std::size_t{1} << 31)));
}

TEST_F(XmlGuard, LackOfMemoryRefuses) {
    FakeXml::Current().bRefuseParserContext = true;
    EXPECT_FALSE(IsPrologHarmless(InSubset("<!ELEMENT a ANY>")));
    EXPECT_TRUE(IsPrologHarmless("<a/>"));  // needs none
}

TEST_F(XmlGuard, OrdinaryRepliesNeedNoParserContext) {
    for (const std::string& document :
         {SampleReply("http://h:81/", "s"), std::string("<a/>"), std::string("\xEF\xBB\xBF<a/>"),
          std::string("<?xml version='1.0'?><a/>"),
          std::string("<?xml version=\"1.0\" encoding=\"Utf-8\" standalone=\"no\"?><a/>")}) {
        EXPECT_TRUE(IsPrologHarmless(document));
    }
    EXPECT_EQ(FakeXml::Current().nParserContexts, 0);
}

// Every character set that both libxml2 and the C library know: what is harmless passes, what
// declares an entity does not, however its bytes look.
TEST_F(XmlGuard, EveryCharacterSetIsSeenThrough) {
    int understood = 0;
    for (const std::string charset :
         {"UTF-16",     "UTF-16LE",   "UTF-16BE",    "UCS-4",        "UCS-4LE",     "UCS-4BE",
          "UTF-32",     "UTF-7",      "EBCDIC-US",   "IBM037",       "IBM1047",     "IBM500",
          "ISO-8859-1", "ISO-8859-2", "ISO-8859-15", "ISO-8859-16",  "KOI8-R",      "EUC-JP",
          "EUC-KR",     "SHIFT_JIS",  "ISO-2022-JP", "ISO-2022-KR",  "ISO-2022-CN", "GB18030",
          "GBK",        "BIG5",       "HZ",          "WINDOWS-1252", "CP437",       "MACINTOSH",
          "US-ASCII",   "ASCII",      "UTF-8"}) {
        const std::string plain = InCharset(InSubset("<!ELEMENT a ANY>"), charset);
        xmlDoc* const doc = xmlParseMemory(plain.data(), static_cast<int>(plain.size()));
        EXPECT_EQ(IsPrologHarmless(plain), doc != nullptr) << charset;
        understood += doc != nullptr ? 1 : 0;
        xmlFreeDoc(doc);
        EXPECT_FALSE(IsPrologHarmless(InCharset(InSubset("<!ENTITY e 'x'>"), charset))) << charset;
    }
    EXPECT_GE(understood, 20);
}

TEST_F(XmlGuard, ByteOrderMarksAreSeenThrough) {
    const std::string declared = InSubset("<!ENTITY e 'x'>");
    std::string little = "\xFF\xFE";
    std::string big = "\xFE\xFF";
    for (const char c : declared) {
        little += {c, '\0'};
        big += {'\0', c};
    }
    EXPECT_FALSE(IsPrologHarmless(little));
    EXPECT_FALSE(IsPrologHarmless(big));
    EXPECT_FALSE(IsPrologHarmless("\xEF\xBB\xBF" + declared));
}

// An oracle that asks the whole parser, in recovery so that errors do not stop it, whether it came
// upon a document type declaration.
bool ParserFindsDoctype(const std::string& document) {
    struct FreeContext {
        void operator()(xmlParserCtxt* context) const {
            xmlFreeDoc(context->myDoc);
            xmlFreeParserCtxt(context);
        }
    };
    const std::unique_ptr<xmlParserCtxt, FreeContext> context(
        xmlCreateMemoryParserCtxt(document.data(), static_cast<int>(document.size())));
    if (context == nullptr) {
        return false;
    }
    bool found = false;
    context->_private = &found;
    context->recovery = 1;
    context->sax->internalSubset = [](void* parser, const xmlChar*, const xmlChar*,
                                      const xmlChar*) {
        *static_cast<bool*>(static_cast<xmlParserCtxt*>(parser)->_private) = true;
        xmlStopParser(static_cast<xmlParserCtxt*>(parser));
    };
    xmlParseDocument(context.get());
    return found;
}

// Mutates seeds that lie around what the short way decides on.
class Mutator {
public:
    std::string Next() {
        std::string text = Pick(m_seeds);
        const auto changes = m_random() % 6;
        for (std::size_t i = 0; i < changes; ++i) {
            Change(text);
        }
        return text;
    }

private:
    template <typename T>
    const T& Pick(const std::vector<T>& from) {
        return from[m_random() % from.size()];
    }

    void Change(std::string& text) {
        const std::size_t at = m_random() % (text.size() + 1);
        switch (m_random() % 5) {
            case 0:
                text.insert(at, Pick(m_tokens));
                break;
            case 1:
                text.erase(at, m_random() % 8);
                break;
            case 2:
                text.insert(at, 1, static_cast<char>(m_random()));
                break;
            case 3:
                text = InCharsetOrSame(text);
                break;
            default:
                if (at < text.size()) {
                    text[at] = static_cast<char>(m_random());
                }
        }
    }

    std::string InCharsetOrSame(const std::string& text) {
        const std::string other = InCharset(text, Pick(m_charsets));
        return other.empty() ? text : other;
    }

    std::mt19937 m_random{20260101};  // NOLINT: the same run every time
    std::vector<std::string> m_seeds{
        "<a/>",
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>",
        "<?xml version='1.0'?><!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>",
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><!DOCTYPE a [<!ELEMENT a ANY>]><a/>",
        "<?xml version=\"1.0\" encoding=\"UTF-7\"?>+ADwAIQ-DOCTYPE a+AFsAPAAh-ENTITY e "
        "'x'+AD4AXQA+-<a/>",
        "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!-- c --><!DOCTYPE a><a b='c'>t</a>",
        "<!DOCTYPE a [<!ENTITY % p 'x'>%p;]><a/>",
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><!DOCTYPE a><a>\xE4</a>",
    };
    std::vector<std::string> m_tokens{
        "<?xml",
        " version=\"1.0\"",
        " encoding=\"utf-8\"",
        " encoding='UTF-16'",
        " encoding=\"UTF-7\"",
        "?>",
        "<!DOCTYPE a [<!ENTITY e 'x'>]>",
        "<!DOCTYPE",
        "<!--",
        "-->",
        "\xEF\xBB\xBF",
        "\xFF\xFE",
        "\xFE\xFF",
        "\xC3",
        "\xE4\xF6",
        std::string(1, '\0'),
        " standalone='yes'",
        "<![CDATA[",
        "]]>",
        "<?p",
        "<a>",
        "</a>",
        " ",
        "\n",
        ">",
        "'",
    };
    std::vector<std::string> m_charsets{"UTF-16LE",  "UTF-16BE", "UCS-4LE",
                                        "EBCDIC-US", "UTF-7",    "ISO-8859-1"};
};

// Whatever the short way lets through, the whole parser finds no declaration in it, and the long
// way refuses it at most because nothing comes of parsing it.
TEST_F(XmlGuard, ShortWayAgreesWithTheParserOnRandomDocuments) {
    Mutator mutator;
    int shortWays = 0;
    int refused = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string document = mutator.Next();
        const int before = FakeXml::Current().nParserContexts;
        const bool harmless = IsPrologHarmless(document);
        if (!harmless || FakeXml::Current().nParserContexts != before) {
            refused += harmless ? 0 : 1;
            continue;
        }
        ++shortWays;
        ASSERT_FALSE(ParserFindsDoctype(document)) << testing::PrintToString(document);
        // A comment behind the root takes the same document the long way.
        if (!IsPrologHarmless(document + "<!--<!DOCTYPE-->")) {
            xmlDoc* const doc = xmlParseMemory(document.data(), static_cast<int>(document.size()));
            EXPECT_EQ(doc, nullptr) << testing::PrintToString(document);
            xmlFreeDoc(doc);
        }
    }
    EXPECT_GT(shortWays, 2000);
    EXPECT_GT(refused, 2000);
}

TEST_F(XmlGuard, LongWayRefusesWhateverDeclaresAnEntityAtRandom) {
    Mutator mutator;
    int declared = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string document = mutator.Next();
        if (!IsPrologHarmless(document)) {
            continue;
        }
        xmlDoc* const doc = xmlParseMemory(document.data(), static_cast<int>(document.size()));
        if (doc != nullptr && doc->intSubset != nullptr) {
            ++declared;
            EXPECT_EQ(doc->intSubset->entities, nullptr) << testing::PrintToString(document);
            EXPECT_EQ(doc->intSubset->pentities, nullptr) << testing::PrintToString(document);
        }
        xmlFreeDoc(doc);
    }
    EXPECT_GT(declared, 100);  // harmless declarations come through
}

void Ignore(void*, const char*, ...) {}
void IgnoreStructured(void*, xmlError*) {}

// As hosts do before they start threads.
class InitialisedParser : public testing::Environment {
public:
    void SetUp() override { xmlInitParser(); }
};

const auto* const kInitialisedParser =
    testing::AddGlobalTestEnvironment(new InitialisedParser);  // NOLINT: gtest owns it

TEST(XmlSettings, AreThisThreadsAlone) {
    xmlSetGenericErrorFunc(nullptr, Ignore);
    xmlSetStructuredErrorFunc(nullptr, IgnoreStructured);
    xmlSubstituteEntitiesDefault(1);
    xmlLoadExtDtdDefaultValue = 1;
    xmlDoValidityCheckingDefaultValue = 1;
    std::thread([] {
        HardenXmlOnThisThread();
        EXPECT_NE(xmlGenericError, &Ignore);
        EXPECT_NE(xmlStructuredError, nullptr);
    }).join();
    EXPECT_EQ(xmlGenericError, &Ignore);
    EXPECT_EQ(xmlStructuredError, reinterpret_cast<xmlStructuredErrorFunc>(&IgnoreStructured));
    EXPECT_EQ(xmlSubstituteEntitiesDefaultValue, 1);
    EXPECT_EQ(xmlLoadExtDtdDefaultValue, 1);
    EXPECT_EQ(xmlDoValidityCheckingDefaultValue, 1);
    HardenXmlOnThisThread();
    EXPECT_EQ(xmlSubstituteEntitiesDefaultValue, 0);
    EXPECT_EQ(xmlLoadExtDtdDefaultValue, 0);
    EXPECT_EQ(xmlDoValidityCheckingDefaultValue, 0);
}

TEST(XmlSettings, OverrideWhatTheHostSetForNewThreads) {
    xmlThrDefSubstituteEntitiesDefaultValue(1);
    xmlThrDefLoadExtDtdDefaultValue(1);
    xmlThrDefDoValidityCheckingDefaultValue(1);
    std::thread([] {
        EXPECT_EQ(xmlSubstituteEntitiesDefaultValue, 1);
        HardenXmlOnThisThread();
        EXPECT_EQ(xmlSubstituteEntitiesDefaultValue, 0);
        EXPECT_EQ(xmlLoadExtDtdDefaultValue, 0);
        EXPECT_EQ(xmlDoValidityCheckingDefaultValue, 0);
    }).join();
    xmlThrDefSubstituteEntitiesDefaultValue(0);
    xmlThrDefLoadExtDtdDefaultValue(0);
    xmlThrDefDoValidityCheckingDefaultValue(0);
}

TEST(XmlSettings, MalformedDocumentWritesNothingToStandardError) {
    testing::internal::CaptureStderr();
    std::thread([] {
        HardenXmlOnThisThread();
        for (const WorstXml& worst : AllWorstXml()) {
            if (IsPrologHarmless(worst.text)) {
                xmlFreeDoc(xmlParseMemory(worst.text.data(), static_cast<int>(worst.text.size())));
            }
        }
    }).join();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
