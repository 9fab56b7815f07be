#pragma once
// The network connection that carries the route to the test server: whether
// the player is on a cable, Wi-Fi, a mobile link or a VPN, which support
// teams ask first and the report never said.
#include <cstdint>
#include <optional>
#include <string>

enum class ConnectionType
{
    Ethernet,
    Wifi,
    Cellular,
    Loopback,
    Tunnel,
    Other
};

/// "ethernet", "wifi", "cellular", "loopback", "tunnel", "other".
const char* ConnectionTypeName(ConnectionType type);

struct ConnectionInfo
{
    std::string interfaceName; // as the system names it ("eth0", "Wi-Fi")
    ConnectionType type = ConnectionType::Other;
    std::optional<std::uint64_t> linkMbps; // nothing when the system does not tell
    std::optional<int> wifiSignalPercent;  // Wi-Fi only, where the system tells
    bool vpnOrTunnel = false;
};

/// The interface through which the system would send to host, a dotted IPv4
/// address (never looked up by name); nothing when it is not one or no route
/// leads there.
std::optional<ConnectionInfo> ProbeConnection(const std::string& host);
