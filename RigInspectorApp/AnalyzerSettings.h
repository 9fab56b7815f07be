#pragma once
// The settings record: every tunable value of the analyzer, read once from
// the settings file during static initialisation and only read afterwards.
#include <cstdint>
#include <string>

#include "share/common/TString.h"

class Diagnostics;

/// The settings file, relative to the working directory (not the executable's folder).
inline constexpr char16_t g_settingsFile[] = u"./rig_inspector.ini";

/// Host name of the port-forwarding guide site of the default link; the UDP
/// check names it as the link text of its instructions.
inline constexpr char16_t kPortForwardGuideHost[] = u"portforward-guide.example";

/// The port check probes at most this many ports: past it every port number
/// (taken modulo 65536) would only repeat.
inline constexpr std::int64_t kMaxPortRangeProbes = 65536;

class AnalyzerSettings
{
public:
    /// Loads g_settingsFile; a missing file, section or key gives the default.
    AnalyzerSettings();
    /// Loads the given file instead, so that tests never depend on the
    /// directory they are started in. Values that cannot work as given, and a
    /// file that exists but cannot be read, are told to pDiagnostics; they are
    /// still stored unchanged.
    explicit AnalyzerSettings(const std::string& path, Diagnostics* pDiagnostics = nullptr);

    tstring m_TcpHost;
    std::int32_t m_TcpPort = 0;
    tstring m_UdpHost;
    std::int32_t m_UdpPort = 0;
    std::int32_t m_CheckPortMin = 0;
    std::int32_t m_CheckPortMax = 0;
    tstring m_FirewallInfoUrl;
    tstring m_MinRequirementUrl;
    tstring m_PortForwardUrl;
    std::int32_t m_MinSystemMemory = 0;
    std::int32_t m_MinVideoMemory = 0;
    std::int32_t m_MinCpuSpeed = 0;
    /// The extended network-quality step after the sequence (desktop), and
    /// the server's port for it; the host is the UDP test's.
    bool m_bExtendedEnable = false;
    std::int32_t m_ExtendedPort = 0;
};

/// The one settings record; the checks read it directly and nothing writes it.
extern AnalyzerSettings g_settings;
