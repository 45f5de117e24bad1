#include "tools/lanscout-sim/base/outputfile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tools/lanscout-sim/base/setuperror.h"

using lansim::OutputFile;
using lansim::SetupError;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

namespace fs = std::filesystem;

namespace {

class SimOutputFile : public ::testing::Test {
protected:
    SimOutputFile() { fs::create_directories(m_folder); }
    ~SimOutputFile() override { fs::remove_all(m_folder); }

    std::string Path(const std::string& name) const { return (m_folder / name).string(); }
    std::string Content(const std::string& name) const {
        std::ifstream file(Path(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::size_t FileCount() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(m_folder), fs::directory_iterator()));
    }

    fs::path m_folder =
        fs::temp_directory_path() / ("sim_outputfile_test." + std::to_string(getpid()));
};

TEST_F(SimOutputFile, FileIsThereWhenAllOfItIs) {
    OutputFile file(Path("out"));
    EXPECT_FALSE(fs::exists(Path("out")));
    file.Write("text");
    EXPECT_EQ(Content("out"), "text");
    EXPECT_EQ(FileCount(), 1U);
}

TEST_F(SimOutputFile, FileThatWasThereStaysWhenNothingIsWritten) {
    std::ofstream(Path("out")) << "old";
    { const OutputFile file(Path("out")); }
    EXPECT_EQ(Content("out"), "old");
    EXPECT_EQ(FileCount(), 1U) << "a draft is left";
}

TEST_F(SimOutputFile, LinkAndModeAreKept) {
    std::ofstream(Path("real")) << "old";
    chmod(Path("real").c_str(), 0640);
    fs::create_symlink("real", Path("link"));
    OutputFile(Path("link")).Write("new");
    EXPECT_TRUE(fs::is_symlink(Path("link")));
    EXPECT_EQ(Content("real"), "new");
    EXPECT_EQ(fs::status(Path("real")).permissions(), fs::perms(0640));
}

TEST_F(SimOutputFile, FileInNoFolderIsRefusedAtOnce) {
    EXPECT_THAT([&] { OutputFile(Path("none/out")); },
                ThrowsMessage<SetupError>(HasSubstr("none/out: No such file or directory")));
    EXPECT_THAT([&] { OutputFile(m_folder.string()); },
                ThrowsMessage<SetupError>(HasSubstr(m_folder.string())));
}

TEST_F(SimOutputFile, FullDeviceIsToldWhenItIsWritten) {
    OutputFile file("/dev/full");
    EXPECT_THAT([&] { file.Write("text"); },
                ThrowsMessage<SetupError>(HasSubstr("/dev/full: No space left")));
}

}  // namespace
