// A folder for one test's files, gone with it.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

class ScratchFolder {
public:
    ScratchFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "lanscout-XXXXXX").string();
        m_path = mkdtemp(name.data());
    }
    ~ScratchFolder() { std::filesystem::remove_all(m_path); }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    std::filesystem::path Write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories((m_path / name).parent_path());
        std::ofstream(m_path / name, std::ios::binary) << text;
        return m_path / name;
    }

private:
    std::filesystem::path m_path;
};
