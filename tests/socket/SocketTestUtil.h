#pragma once
// Small helpers shared by the socket library's tests.
#include <functional>
#include <string>

#include "share/common/Assert.h"

namespace socket_test
{
/// The record of the assertion failure that call raises, or "" when none.
inline std::string AssertionRecord(const std::function<void()>& call)
{
    try
    {
        call();
    }
    catch (const zul::AssertionFailure& failure)
    {
        return failure.what();
    }
    return std::string();
}

/// The record's expression line, as the assertion log shows it.
inline std::string ExpressionLine(const std::string& expression)
{
    return "\n\t" + expression + "\n";
}
} // namespace socket_test
