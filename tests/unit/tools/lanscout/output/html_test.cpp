#include "tools/lanscout/output/html.h"

#include <gmock/gmock.h>

#include "finder/device/devicejson.h"

using namespace Lanscout;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string Page(const std::string& name) {
    Report report;
    Device device;
    device.ip = "192.168.1.20";
    device.name = name;
    report.devices = {device};
    return PageDocument(report);
}

std::string DataOf(const std::string& page) {
    const std::string start = R"(<script type="application/json" id="data">)";
    const auto at = page.find(start) + start.size();
    return page.substr(at, page.find("</script>", at) - at);
}

std::size_t FieldIndex(std::string_view name) {
    return static_cast<std::size_t>(FieldNamed(name) - Fields().data());
}

}  // namespace

TEST(Page, ScriptInANameStaysData) {
    const std::string name = "</script><script>alert(1)</script><!--";
    const std::string page = Page(name);
    EXPECT_THAT(page, Not(HasSubstr("alert(1)</script>")));
    EXPECT_EQ(Json::parse(DataOf(page))["rows"][0]["texts"][FieldIndex("name")], name);
}

TEST(Page, LineSeparatorsAreEscaped) {
    EXPECT_THAT(Page("a\u2028b&amp;"), HasSubstr("a\\u2028b\\u0026amp;"));
}

TEST(Page, PlacesInANameAreNotFilled) {
    const Json data = Json::parse(DataOf(Page("@DATA@ @NONCE@")));
    EXPECT_EQ(data["rows"][0]["texts"][FieldIndex("name")], "@DATA@ @NONCE@");
}

TEST(Page, OnlyItsOwnScriptMayRun) {
    const std::string page = Page("x");
    EXPECT_THAT(page, HasSubstr("default-src 'none'; script-src 'nonce-"));
    EXPECT_THAT(page, Not(HasSubstr("unsafe-inline")));
    EXPECT_THAT(page, Not(HasSubstr("@NONCE@")));
}

TEST(Page, NonceIsAnotherEachTime) {
    const auto nonce = [](const std::string& page) { return page.substr(page.find("nonce-"), 38); };
    EXPECT_NE(nonce(Page("x")), nonce(Page("x")));
}

TEST(Page, NothingIsLoadedFromElsewhere) {
    const std::string page = Page("x");
    EXPECT_THAT(page, Not(HasSubstr("src=\"http")));
    EXPECT_THAT(page, Not(HasSubstr("<link")));
    EXPECT_THAT(page, Not(HasSubstr("@import")));
}
