#pragma once
// The JSON of the connection, the GPU and the advice.
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "RigInspector/Connection.h"
#include "RigInspector/Gpu.h"
#include "RigInspectorApp/Advice.h"

/// {interface, type, link_mbps, wifi_signal_percent, vpn_or_tunnel}; null when no route was found.
nlohmann::ordered_json ConnectionToJson(const std::optional<ConnectionInfo>& connection);
/// {name, vendor, driver_version, memory_bytes}; null without a GPU.
nlohmann::ordered_json GpuToJson(const std::optional<GpuInfo>& gpu);
/// [{code, severity, text, evidence}], in the advice's order.
nlohmann::ordered_json AdviceToJson(const std::vector<AdviceItem>& advice);
