#include "Platform.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace zul::platform
{
std::tm LocalTimeNow()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

std::uint32_t CurrentThreadId()
{
    return static_cast<std::uint32_t>(::syscall(SYS_gettid));
}
} // namespace zul::platform
