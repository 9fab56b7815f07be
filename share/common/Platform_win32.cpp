#include "Platform.h"

#include <windows.h>

namespace zul::platform
{
std::tm LocalTimeNow()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_s(&local, &now);
    return local;
}

std::uint32_t CurrentThreadId()
{
    return static_cast<std::uint32_t>(::GetCurrentThreadId());
}
} // namespace zul::platform
