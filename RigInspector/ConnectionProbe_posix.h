#pragma once
// Internal to the Linux connection probe; declared for its tests.
#include <string>

#include "Connection.h"

/// What sysfs (sysNetRoot: /sys/class/net) and the wireless table
/// (/proc/net/wireless) tell of one interface.
ConnectionInfo DescribeInterface(const std::string& sysNetRoot, const std::string& wirelessFile,
                                 const std::string& name);
