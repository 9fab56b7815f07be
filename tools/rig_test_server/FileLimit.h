#pragma once
#include <cstdint>

/// Raises the soft limit on open descriptors towards wanted (never above the
/// hard limit, never lowers it) and returns the soft limit now in force.
std::uint64_t RaiseOpenFileLimit(std::uint64_t wanted);
