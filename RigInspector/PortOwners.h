#pragma once
// Who holds a local UDP port, as far as the system says: the UDP echo test
// names the program that took its pong port, so the player knows what to
// close instead of only reading that every ping was lost.
#include <cstdint>
#include <vector>

#include "share/common/TString.h"

struct PortOwner
{
    std::uint32_t pid = 0;
    tstring executable; // the file name only; empty when the system hides it
};

/// Every process with a UDP socket bound to the local port (IPv4 or IPv6),
/// each once, in ascending process id. Empty when none is found or the
/// system does not tell (another user's processes without the right).
std::vector<PortOwner> FindUdpPortOwners(std::uint16_t port);
