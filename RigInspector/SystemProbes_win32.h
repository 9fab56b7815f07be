#pragma once
// Internal to the Windows probes; declared for their tests.
#include <cstdint>

/// The fields of a version record the two version rules read.
struct VersionRecord
{
    std::uint32_t platformId = 0;
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    /// Only the long record carries it; 0 when the short one was read.
    std::uint16_t servicePackMajor = 0;
};

/// Windows 98 or later from a version record.
bool IsWindows98OrLaterRecord(const VersionRecord& version);
/// Windows XP with service pack 2 or later from a version record.
bool IsWindowsXpSp2Record(const VersionRecord& version);
