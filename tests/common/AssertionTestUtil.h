#pragma once
// Helpers for tests that provoke assertion failures.
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "share/common/Assert.h"

/// Runs a test in a fresh directory of its own, so that the assertion log a
/// test provokes never mixes with another test's or lands in the build tree.
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
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

private:
    std::filesystem::path m_Previous;
    std::filesystem::path m_Path;
};

/// The expression line of the assertion failure the call ends in.
template <class Call> std::string FailedExpression(Call call)
{
    try
    {
        call();
    }
    catch (const zul::AssertionFailure& failure)
    {
        const std::string record = failure.what();
        const auto start = record.find("\n\t") + 2;
        return record.substr(start, record.find('\n', start) - start);
    }
    return "(no failure)";
}
