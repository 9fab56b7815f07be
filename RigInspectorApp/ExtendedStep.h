#pragma once
// Where the extended network-quality step points, from the settings record:
// the UDP test's host and the [extended] port. Both front ends use it.
#include "AnalyzerSettings.h"
#include "RigInspector/ExtendedChecker.h"
#include "share/common/StringUtil.h"

inline ExtendedSettings ExtendedSettingsFrom(const AnalyzerSettings& settings)
{
    ExtendedSettings extended;
    extended.host = zul::ToMultiByte(settings.m_UdpHost);
    extended.port = static_cast<std::uint16_t>(settings.m_ExtendedPort);
    return extended;
}
