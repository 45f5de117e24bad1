#include "finder/source/addressrange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

using namespace Lanscout;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::uint32_t Address(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    return a << 24 | b << 16 | c << 8 | d;
}

std::vector<AddressRange> Read(const std::string& text) {
    std::vector<AddressRange> ranges;
    AddAddressRanges(text, ranges);
    return ranges;
}

// The message for a wrong text; empty when it is none.
std::string WrongIn(const std::string& text, std::vector<AddressRange> ranges = {}) {
    const auto before = ranges;
    try {
        AddAddressRanges(text, ranges);
    } catch (const std::invalid_argument& wrong) {
        EXPECT_EQ(ranges, before) << text;
        return wrong.what();
    }
    return "";
}

class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& text)
        : m_path(std::filesystem::temp_directory_path() /
                 ("lanscout-ranges-" + std::to_string(getpid()))) {
        std::ofstream(m_path) << text;
    }
    ~TemporaryFile() { std::filesystem::remove(m_path); }
    std::string Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

}  // namespace

TEST(AddressRange, SubnetIsItsHosts) {
    EXPECT_THAT(Read("10.20.0.0/24"),
                ElementsAre(AddressRange{Address(10, 20, 0, 1), Address(10, 20, 0, 254)}));
    EXPECT_THAT(Read("10.20.0.77/30"),
                ElementsAre(AddressRange{Address(10, 20, 0, 77), Address(10, 20, 0, 78)}));
    EXPECT_EQ(CountAddresses(Read("10.20.0.0/16")), 65534U);
}

TEST(AddressRange, SmallestSubnetsAreWhole) {
    EXPECT_EQ(CountAddresses(Read("10.20.0.0/31")), 2U);
    EXPECT_THAT(Read("10.20.0.5/32"),
                ElementsAre(AddressRange{Address(10, 20, 0, 5), Address(10, 20, 0, 5)}));
}

TEST(AddressRange, BothEndsAreIncluded) {
    EXPECT_THAT(Read("10.30.0.5-10.30.0.40"),
                ElementsAre(AddressRange{Address(10, 30, 0, 5), Address(10, 30, 0, 40)}));
    EXPECT_THAT(Read(" 10.30.0.5 - 10.30.0.5 "),
                ElementsAre(AddressRange{Address(10, 30, 0, 5), Address(10, 30, 0, 5)}));
}

TEST(AddressRange, SingleAddressIsOne) {
    EXPECT_THAT(Read("10.30.0.5"),
                ElementsAre(AddressRange{Address(10, 30, 0, 5), Address(10, 30, 0, 5)}));
}

TEST(AddressRange, WrongOnesSayWhatIsWrong) {
    EXPECT_THAT(WrongIn(""), HasSubstr("no IPv4 address"));
    EXPECT_THAT(WrongIn("camera"), HasSubstr("\"camera\" is no IPv4 address"));
    EXPECT_THAT(WrongIn("10.20.0.0/33"), HasSubstr("\"10.20.0.0/33\" is no subnet"));
    EXPECT_THAT(WrongIn("10.20.0/24"), HasSubstr("is no subnet"));
    EXPECT_THAT(WrongIn("10.20.0.0/"), HasSubstr("is no subnet"));
    EXPECT_THAT(WrongIn("10.20.0.5-10.20.0.400"), HasSubstr("has \"10.20.0.400\""));
    EXPECT_THAT(WrongIn("10.20.0.5-9"), HasSubstr("has \"9\""));
    EXPECT_THAT(WrongIn("10.20.0.9-10.20.0.5"), HasSubstr("ends before it starts"));
    EXPECT_THAT(WrongIn("fe80::1"), HasSubstr("no IPv4 address"));
    EXPECT_THAT(WrongIn(std::string(1000, 'x')).size(), testing::Lt(200U));
}

TEST(AddressRange, AddressesOfNoSingleDeviceAreRefused) {
    for (const char* text : {"239.255.255.250", "224.0.0.0/24", "255.255.255.255", "0.0.0.0",
                             "223.255.255.0-224.0.0.5"}) {
        EXPECT_THAT(WrongIn(text), HasSubstr("no single device")) << text;
    }
}

TEST(AddressRange, TooManyAreRefused) {
    EXPECT_THAT(WrongIn("10.0.0.0/15"), HasSubstr("more than 65536 addresses"));
    EXPECT_THAT(WrongIn("10.0.0.1-200.0.0.1"), HasSubstr("more than 65536 addresses"));
    EXPECT_THAT(WrongIn("10.1.0.0/29", Read("10.0.0.0/16")), HasSubstr("more than 65536"));
    EXPECT_EQ(WrongIn("10.1.0.0/31", Read("10.0.0.0/16")), "");
}

TEST(AddressRange, FileHasOneALine) {
    const TemporaryFile file(
        "# sites\n10.20.0.0/24 # Hamburg\r\n\n  10.30.0.5\n10.30.0.7-10.30.0.9");
    EXPECT_EQ(CountAddresses(Read("@" + file.Path())), 254U + 1 + 3);
}

TEST(AddressRange, WrongLineIsNamed) {
    const TemporaryFile file("10.20.0.0/24\n# fine\n10.30.0.x # bad\n");
    EXPECT_THAT(WrongIn("@" + file.Path()),
                HasSubstr(file.Path() + ", line 3: \"10.30.0.x\" is no IPv4 address"));
}

TEST(AddressRange, FilesDoNotNameFiles) {
    const TemporaryFile file("@/etc/passwd\n");
    EXPECT_THAT(WrongIn("@" + file.Path()), HasSubstr("line 1"));
}

TEST(AddressRange, FileThatIsNotThereIsNamed) {
    EXPECT_THAT(WrongIn("@/nonexistent/sites.txt"), HasSubstr("/nonexistent/sites.txt"));
}
