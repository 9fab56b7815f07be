#include "Connection.h"

const char* ConnectionTypeName(ConnectionType type)
{
    switch (type)
    {
    case ConnectionType::Ethernet:
        return "ethernet";
    case ConnectionType::Wifi:
        return "wifi";
    case ConnectionType::Cellular:
        return "cellular";
    case ConnectionType::Loopback:
        return "loopback";
    case ConnectionType::Tunnel:
        return "tunnel";
    case ConnectionType::Other:
        break;
    }
    return "other";
}
