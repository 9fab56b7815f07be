#pragma once
// Internal to zul: the few operating-system calls the portable library code
// needs, one implementation file per platform. Not for use outside share/common.
#include <cstdint>
#include <ctime>

namespace zul::platform
{
/// The local calendar time now.
std::tm LocalTimeNow();

/// The operating system's identifier of the calling thread.
std::uint32_t CurrentThreadId();
} // namespace zul::platform
