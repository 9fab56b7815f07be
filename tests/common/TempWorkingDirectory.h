#pragma once
// Runs a test in a fresh directory of its own, so that the assertion log a
// test provokes never mixes with another test's or lands in the build tree.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

class TempWorkingDirectory
{
public:
    TempWorkingDirectory() : m_Previous(std::filesystem::current_path())
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zul_test_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("mkdtemp failed");
        m_Path = pattern;
        std::filesystem::current_path(m_Path);
    }
    ~TempWorkingDirectory()
    {
        std::error_code ignored;
        std::filesystem::current_path(m_Previous, ignored);
        std::filesystem::remove_all(m_Path, ignored);
    }
    TempWorkingDirectory(const TempWorkingDirectory&) = delete;
    TempWorkingDirectory& operator=(const TempWorkingDirectory&) = delete;

    static std::string ReadLog()
    {
        std::ifstream in("assertion_failed.log", std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

private:
    std::filesystem::path m_Previous;
    std::filesystem::path m_Path;
};
