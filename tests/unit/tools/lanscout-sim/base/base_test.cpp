#include <gtest/gtest.h>

#include "tools/lanscout-sim/base/base64.h"
#include "tools/lanscout-sim/base/random.h"
#include "tools/lanscout-sim/base/shown.h"
#include "tools/lanscout-sim/base/uri.h"
#include "tools/lanscout-sim/base/xmltext.h"

using lansim::DecodeBase64;
using lansim::EncodeBase64;
using lansim::IsUri;
using lansim::KeyOf;
using lansim::Random;
using lansim::Shown;

namespace {

TEST(SimShown, TerminalIsNotSteered) {
    EXPECT_EQ(Shown("camera \"Gate\": ~"), "camera \"Gate\": ~");
    EXPECT_EQ(Shown("\x1B[31m\n\x7F\xC2\x9B"), "\\x1B[31m\\x0A\\x7F\\xC2\\x9B");
}

TEST(SimUri, SchemeAndSomethingBehindIt) {
    EXPECT_TRUE(IsUri("urn:uuid:1"));
    EXPECT_TRUE(IsUri("http://[fe80::1]:80/a?b=%20#c"));
    for (const auto* text : {"", "urn", "urn:", ":x", "1a:x", "urn:a b", "urn:\xC3\xA9", "a b:c",
                             "urn:<x>", "urn:a\n"}) {
        EXPECT_FALSE(IsUri(text)) << text;
    }
}

TEST(SimBase64, BytesComeBack) {
    EXPECT_EQ(EncodeBase64("Ma"), "TWE=");
    for (const std::string& bytes : {std::string(), std::string("\0\xFF", 2), std::string("abc")}) {
        EXPECT_EQ(DecodeBase64(EncodeBase64(bytes)), bytes);
    }
}

TEST(SimBase64, WhatIsNoneIsNone) {
    EXPECT_FALSE(DecodeBase64("TWE"));
    EXPECT_FALSE(DecodeBase64("T?E="));
    EXPECT_FALSE(DecodeBase64("TWE=TWE="));
}

TEST(SimXmlText, AttributeEndsAtNoQuote) {
    EXPECT_EQ(lansim::EscapeXmlAttribute("a'b\"<c>&"), "a&apos;b&quot;&lt;c&gt;&amp;");
}

TEST(SimRandom, KeysDecideAndTheirOrderCounts) {
    EXPECT_EQ(Random(1, {2, 3}).Next(), Random(1, {2, 3}).Next());
    EXPECT_NE(Random(1, {2, 3}).Next(), Random(1, {3, 2}).Next());
    EXPECT_NE(Random(1, {2, 3}).Next(), Random(2, {2, 3}).Next());
    EXPECT_NE(Random(1, {0}).Next(), Random(1, {0, 0}).Next());
    EXPECT_NE(KeyOf("a"), KeyOf("b"));
}

TEST(SimRandom, NeighbouringKeysDrawEvenly) {
    int heads = 0;
    for (std::uint64_t device = 0; device < 10000; ++device) {
        heads += Random(1, {device, 7}).Chance(0.3) ? 1 : 0;
    }
    EXPECT_GT(heads, 2850);
    EXPECT_LT(heads, 3150);
}

}  // namespace
