#pragma once
// Helpers for tests that provoke assertion failures.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "share/common/Assert.h"
#include "tests/settings/TempDir.h"

/// Runs a test in a fresh directory of its own, so that the assertion log a
/// test provokes never mixes with another test's or lands in the build tree.
class TempWorkingDirectory
{
public:
    TempWorkingDirectory() { std::filesystem::current_path(m_Directory.Path()); }
    ~TempWorkingDirectory()
    {
        std::error_code ignored;
        std::filesystem::current_path(m_Previous, ignored);
    }

    /// The log as text: the platform's line ends (CR LF on Windows) read as "\n".
    static std::string ReadLog()
    {
        std::ifstream in("assertion_failed.log");
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    std::filesystem::path m_Previous = std::filesystem::current_path();
    TempDir m_Directory;
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
