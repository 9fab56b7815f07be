#pragma once
// Internal to the POSIX probes; declared for their tests.
#include <cstdint>
#include <string>

#include "GpuProbes_posix.h"

/// The CPU clock in MHz as the kernel tells it, for CPUs without a readable
/// time-stamp counter: cpufreq's cpuinfo_max_freq (kHz), else the first
/// "cpu MHz" line of /proc/cpuinfo; 0 when neither says.
std::uint32_t ReadKernelCpuMhz(const std::string& cpufreqFile, const std::string& cpuinfoFile);
