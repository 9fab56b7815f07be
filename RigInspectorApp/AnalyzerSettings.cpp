#include "AnalyzerSettings.h"

#include <algorithm>

#include "IniFile.h"
#include "RigInspector/Diagnostics.h"
#include "share/common/Format.h"
#include "share/common/StringUtil.h"

namespace
{
// Deployment values: the test server runs beside the analyzer unless the file
// says otherwise, and the links use reserved example domains.
constexpr char16_t kDefaultHost[] = u"127.0.0.1";
constexpr char16_t kGameSite[] = u"http://www.dunmore-nine.example";

std::string NarrowPath(const char16_t* path)
{
    std::string out;
    for (const char16_t* p = path; *p != 0; ++p)
        out.push_back(static_cast<char>(*p)); // the fixed name is ASCII
    return out;
}
/// The value up to its first NUL. Hosts and addresses reach the sockets and
/// the report as C strings, which end there; the checks of the settings below
/// must judge the text those see, or a warning would contradict the result.
tstring UpToNul(tstring value)
{
    value.resize(std::min(value.find(u'\0'), value.size()));
    return value;
}

bool IsDottedIPv4(const tstring& host)
{
    int parts = 0;
    std::size_t i = 0;
    while (parts < 4)
    {
        int value = 0;
        std::size_t digits = 0;
        while (i < host.size() && host[i] >= u'0' && host[i] <= u'9' && digits < 4)
        {
            value = value * 10 + (host[i] - u'0');
            ++i;
            ++digits;
        }
        if (digits == 0 || digits > 3 || value > 255)
            return false;
        ++parts;
        if (parts < 4 && (i >= host.size() || host[i++] != u'.'))
            return false;
    }
    return i == host.size();
}

void CheckHost(Diagnostics& diagnostics, const char16_t* section, const tstring& host)
{
    if (!IsDottedIPv4(host))
        diagnostics.Add("host_not_ipv4",
                        zul::FormatString(u"The [%s] host \"%s\" is not an IPv4 address in dotted form, and "
                                          u"hosts are never looked up by name, so this test cannot reach "
                                          u"its server.",
                                          section, host));
}

void CheckPort(Diagnostics& diagnostics, const char16_t* section, std::int32_t port)
{
    if (port < 1 || port > 65535)
        diagnostics.Add("port_out_of_range",
                        zul::FormatString(u"The [%s] port %d is outside 1 to 65535, so port %d is used "
                                          u"instead.",
                                          section, port, static_cast<int>(static_cast<std::uint16_t>(port))));
}

void CheckSettings(Diagnostics& diagnostics, const AnalyzerSettings& s)
{
    CheckHost(diagnostics, u"tcp", s.m_TcpHost);
    CheckPort(diagnostics, u"tcp", s.m_TcpPort);
    CheckHost(diagnostics, u"udp", s.m_UdpHost);
    CheckPort(diagnostics, u"udp", s.m_UdpPort);
    const std::int64_t span = static_cast<std::int64_t>(s.m_CheckPortMax) - s.m_CheckPortMin;
    if (span < 0)
        diagnostics.Add("port_range_reversed",
                        zul::FormatString(u"The [udp] check_port_min %d is above check_port_max %d, so no "
                                          u"local port is checked.",
                                          s.m_CheckPortMin, s.m_CheckPortMax));
    else if (span > kMaxPortRangeProbes)
        diagnostics.Add("port_range_too_wide",
                        zul::FormatString(u"The [udp] port range %d to %d spans more than 65,536 ports, so "
                                          u"only its first 65,536 ports are checked.",
                                          s.m_CheckPortMin, s.m_CheckPortMax));
}
} // namespace

AnalyzerSettings::AnalyzerSettings() : AnalyzerSettings(NarrowPath(g_settingsFile), &GetDiagnostics()) {}

AnalyzerSettings::AnalyzerSettings(const std::string& path, Diagnostics* pDiagnostics)
{
    if (pDiagnostics != nullptr)
    {
        const tstring why = DescribeUnreadableProfile(path);
        if (!why.empty())
            pDiagnostics->Add("settings_file_unreadable",
                              zul::FormatString(u"The settings file %s cannot be read (%s), so every setting "
                                                u"takes its default.",
                                                zul::Utf8ToUtf16(path), why));
    }
    m_TcpHost = UpToNul(GetPrivateProfileString(u"tcp", u"host", kDefaultHost, path));
    m_TcpPort = GetPrivateProfileInt(u"tcp", u"port", 9999, path);
    m_UdpHost = UpToNul(GetPrivateProfileString(u"udp", u"host", kDefaultHost, path));
    m_UdpPort = GetPrivateProfileInt(u"udp", u"port", 9998, path);
    m_CheckPortMin = GetPrivateProfileInt(u"udp", u"check_port_min", 20000, path);
    m_CheckPortMax = GetPrivateProfileInt(u"udp", u"check_port_max", 20031, path);
    m_FirewallInfoUrl = UpToNul(GetPrivateProfileString(u"firewall", u"url_more_info", kGameSite, path));
    m_MinSystemMemory = GetPrivateProfileInt(u"system", u"min_system_memory", 127, path);
    m_MinVideoMemory = GetPrivateProfileInt(u"system", u"min_video_memory", 15, path);
    m_MinCpuSpeed = GetPrivateProfileInt(u"system", u"min_cpu_speed", 1000, path);
    m_MinRequirementUrl = UpToNul(GetPrivateProfileString(
        u"url", u"min_requirement", tstring(kGameSite) + u"/Gameguide/systemreq.asp", path));
    m_PortForwardUrl = UpToNul(GetPrivateProfileString(
        u"url", u"portforward", tstring(u"http://") + kPortForwardGuideHost + u"/", path));
    m_bExtendedEnable = GetPrivateProfileInt(u"extended", u"enable", 0, path) != 0;
    m_ExtendedPort = GetPrivateProfileInt(u"extended", u"port", 9997, path);
    if (pDiagnostics != nullptr)
        CheckSettings(*pDiagnostics, *this);
}

AnalyzerSettings g_settings;
