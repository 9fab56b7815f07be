#include "FindingsJson.h"

using nlohmann::ordered_json;

namespace
{
template <class T> ordered_json Optional(const std::optional<T>& value)
{
    return value ? ordered_json(*value) : ordered_json(nullptr);
}

ordered_json TextOrNull(const std::string& text)
{
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}
} // namespace

ordered_json ConnectionToJson(const std::optional<ConnectionInfo>& c)
{
    if (!c)
        return nullptr;
    return {{"interface", TextOrNull(c->interfaceName)},
            {"type", ConnectionTypeName(c->type)},
            {"link_mbps", Optional(c->linkMbps)},
            {"wifi_signal_percent", Optional(c->wifiSignalPercent)},
            {"vpn_or_tunnel", c->vpnOrTunnel}};
}

ordered_json GpuToJson(const std::optional<GpuInfo>& gpu)
{
    if (!gpu)
        return nullptr;
    return {{"name", TextOrNull(gpu->name)},
            {"vendor", TextOrNull(gpu->vendor)},
            {"driver_version", TextOrNull(gpu->driverVersion)},
            {"memory_bytes", gpu->memoryBytes}};
}

ordered_json AdviceToJson(const std::vector<AdviceItem>& advice)
{
    ordered_json items = ordered_json::array();
    for (const AdviceItem& item : advice)
    {
        ordered_json evidence = ordered_json::object();
        for (const Evidence& e : item.evidence)
            std::visit([&](const auto& value) { evidence[e.key] = value; }, e.value);
        items.push_back({{"code", item.code},
                         {"severity", SeverityName(item.severity)},
                         {"text", item.text},
                         {"evidence", evidence}});
    }
    return items;
}
