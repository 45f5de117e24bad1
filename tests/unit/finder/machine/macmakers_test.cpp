#include "finder/machine/macmakers.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <map>

#include "tests/unit/support/scratchfolder.h"

using namespace Lanscout;

namespace {

// The hardware database: what it knows, by name, or none.
std::map<std::string, std::string> knownNames;
bool hasDatabase = false;
int databases = 0;
std::string askedProperty;

struct Database {
    Database() {
        knownNames.clear();
        hasDatabase = true;
        databases = 0;
    }
    Database(const char* name, const char* maker) : Database() { knownNames[name] = maker; }
    ~Database() { hasDatabase = false; }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
};

void WriteLists(const ScratchFolder& folder) {
    folder.Write("oui.txt",
                 "OUI/MA-L      Organization\r\ncompany_id\r\n\r\n"
                 "00-1B-FF   (hex)\t\tBig Maker, Inc.\r\n"
                 "001BFF     (base 16)\t\tBig Maker, Inc.\r\n\t\t\t\tA Street\r\n\r\n"
                 "70-B3-D4   (hex)\t\tRegistry\r\n70B3D4     (base 16)\t\tRegistry\r\n");
    folder.Write("mam.txt",
                 "70-B3-D4   (hex)\t\tMedium\r\n"
                 "A00000-AFFFFF     (base 16)\t\tMedium\r\n");
    folder.Write("oui36.txt",
                 "70-B3-D4   (hex)\t\tSmall\r\n"
                 "719000-719FFF     (base 16)\t\tSmall\r\n");
}

}  // namespace

extern "C" {

int __wrap_sd_hwdb_new(sd_hwdb** result) {
    if (!hasDatabase) {
        return -ENOENT;
    }
    ++databases;
    *result = reinterpret_cast<sd_hwdb*>(&hasDatabase);
    return 0;
}

sd_hwdb* __wrap_sd_hwdb_unref(sd_hwdb* /*database*/) {
    --databases;
    return nullptr;
}

int __wrap_sd_hwdb_get(sd_hwdb* /*database*/, const char* name, const char* property,
                       const char** value) {
    askedProperty = property;
    const auto found = knownNames.find(name);
    if (found == knownNames.end()) {
        return -ENOENT;
    }
    *value = found->second.c_str();
    return 0;
}
}

TEST(MacMakers, HardwareDatabaseIsAskedForTheWholeAddress) {
    const Database database("OUI:001BFF010203", "Big \xFF Maker");
    EXPECT_EQ(MacMakers("/none").MakerOf("00:1b:ff:01:02:03"), "Big \uFFFD Maker");
    EXPECT_EQ(askedProperty, "ID_OUI_FROM_DATABASE");
    EXPECT_EQ(databases, 0);
}

TEST(MacMakers, ListsAreForMachinesWithoutADatabase) {
    const ScratchFolder folder;
    WriteLists(folder);
    const Database database;
    EXPECT_EQ(MacMakers(folder.Path()).MakerOf("00:1B:FF:01:02:03"), "");
}

TEST(MacMakers, DatabaseIsOpenedOnce) {
    const Database database("OUI:001BFF010203", "Big Maker");
    MacMakers makers("/none");
    makers.Open();
    makers.MakerOf("00:1B:FF:01:02:03");
    makers.MakerOf("00:1B:FF:01:02:04");
    EXPECT_EQ(databases, 1);
}

TEST(MacMakers, ListsAreReadOnceAndNotBeforeTheFirstQuestion) {
    const ScratchFolder folder;
    WriteLists(folder);
    MacMakers makers(folder.Path());
    folder.Write("oui.txt", "00-1B-FF   (hex)\tLater\n001BFF     (base 16)\tLater\n");
    EXPECT_EQ(makers.MakerOf("00:1B:FF:01:02:03"), "Later");
    folder.Write("oui.txt.new", "00-1B-FF   (hex)\tLast\n001BFF     (base 16)\tLast\n");
    std::filesystem::rename(folder.Path() / "oui.txt.new", folder.Path() / "oui.txt");
    EXPECT_EQ(makers.MakerOf("00:1B:FF:01:02:03"), "Later");
}

TEST(MacMakers, WhatIsOpenIsReadAfterTheFilesAreGone) {
    const ScratchFolder folder;
    WriteLists(folder);
    MacMakers makers(folder.Path());
    makers.Open();
    std::filesystem::remove(folder.Path() / "oui.txt");
    EXPECT_EQ(makers.MakerOf("00:1B:FF:01:02:03"), "Big Maker, Inc.");
}

TEST(MacMakers, ProcessHasOne) {
    EXPECT_EQ(&SharedMacMakers(), &SharedMacMakers());
}

TEST(MacMakers, BlockIsFound) {
    const ScratchFolder folder;
    WriteLists(folder);
    EXPECT_EQ(MacMakers(folder.Path()).MakerOf("00:1B:FF:01:02:03"), "Big Maker, Inc.");
}

TEST(MacMakers, SmallerAssignmentsComeFirst) {
    const ScratchFolder folder;
    WriteLists(folder);
    MacMakers makers(folder.Path());
    EXPECT_EQ(makers.MakerOf("70:B3:D4:A1:02:03"), "Medium");
    EXPECT_EQ(makers.MakerOf("70:B3:D4:71:92:03"), "Small");
    EXPECT_EQ(makers.MakerOf("70:B3:D4:71:82:03"), "Registry");
}

TEST(MacMakers, UnassignedAndChosenAddressesHaveNoMaker) {
    const ScratchFolder folder;
    WriteLists(folder);
    folder.Write("mam.txt", "");
    MacMakers makers(folder.Path());
    EXPECT_EQ(makers.MakerOf("00:00:01:01:02:03"), "");
    EXPECT_EQ(makers.MakerOf("02:1B:FF:01:02:03"), "");
    EXPECT_EQ(makers.MakerOf(""), "");
    EXPECT_EQ(makers.MakerOf("00:1B"), "");
}

TEST(MacMakers, EveryAddressThatSoftwareChoseHasNoMaker) {
    for (const char digit : std::string("2367abefABEF")) {
        const std::string start = std::string("0") + digit;
        const std::string name =
            "OUI:0" + std::string(1, static_cast<char>(std::toupper(digit))) + "1BFF010203";
        const Database database(name.c_str(), "Nobody");
        EXPECT_EQ(MacMakers("/none").MakerOf(start + ":1B:FF:01:02:03"), "") << start;
    }
}

TEST(MacMakers, MissingListsAreNoError) {
    const ScratchFolder folder;
    EXPECT_EQ(MacMakers(folder.Path() / "none").MakerOf("00:1B:FF:01:02:03"), "");
}
