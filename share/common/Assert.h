#pragma once
// Assertions stay in the shipped program: nothing here depends on NDEBUG.
#include <exception>
#include <string>

namespace zul
{
/// What a failed assertion throws: catchable as std::exception, what() is the
/// record "Assertion Failed at FILE(LINE)\n\tEXPR\n\tMESSAGE\n".
class AssertionFailure : public std::exception
{
public:
    explicit AssertionFailure(std::string record) : m_Record(std::move(record)) {}
    const char* what() const noexcept override { return m_Record.c_str(); }

private:
    std::string m_Record;
};

/// Appends the time-stamped record to "assertion_failed.log" in the current
/// directory under the process-wide assertion lock; returns the record
/// without the time stamp. Failures to open or write the file are silent.
std::string WriteAssertionLog(const char* expression, const char* file, int line, const char* message);

/// Logs the record, then throws AssertionFailure carrying it.
[[noreturn]] void FailAssertion(const char* expression, const char* file, int line, const char* message);
} // namespace zul

/// The name that stands for false in branches that must never be reached, so
/// that the record reads "NEVER_GET_HERE".
#define NEVER_GET_HERE false

#define ZUL_ASSERT(expression)                                                                               \
    do                                                                                                       \
    {                                                                                                        \
        if (!static_cast<bool>(expression))                                                                  \
            ::zul::FailAssertion(#expression, __FILE__, __LINE__, "");                                       \
    } while (false)
