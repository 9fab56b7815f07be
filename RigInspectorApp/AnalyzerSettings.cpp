#include "AnalyzerSettings.h"

#include "IniFile.h"

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
} // namespace

AnalyzerSettings::AnalyzerSettings() : AnalyzerSettings(NarrowPath(g_settingsFile)) {}

AnalyzerSettings::AnalyzerSettings(const std::string& path)
{
    m_TcpHost = GetPrivateProfileString(u"tcp", u"host", kDefaultHost, path);
    m_TcpPort = GetPrivateProfileInt(u"tcp", u"port", 9999, path);
    m_UdpHost = GetPrivateProfileString(u"udp", u"host", kDefaultHost, path);
    m_UdpPort = GetPrivateProfileInt(u"udp", u"port", 9998, path);
    m_CheckPortMin = GetPrivateProfileInt(u"udp", u"check_port_min", 20000, path);
    m_CheckPortMax = GetPrivateProfileInt(u"udp", u"check_port_max", 20031, path);
    m_FirewallInfoUrl = GetPrivateProfileString(u"firewall", u"url_more_info", kGameSite, path);
    m_MinSystemMemory = GetPrivateProfileInt(u"system", u"min_system_memory", 127, path);
    m_MinVideoMemory = GetPrivateProfileInt(u"system", u"min_video_memory", 15, path);
    m_MinCpuSpeed = GetPrivateProfileInt(u"system", u"min_cpu_speed", 1000, path);
    m_MinRequirementUrl = GetPrivateProfileString(u"url", u"min_requirement",
                                                  tstring(kGameSite) + u"/Gameguide/systemreq.asp", path);
    m_PortForwardUrl = GetPrivateProfileString(u"url", u"portforward",
                                               tstring(u"http://") + kPortForwardGuideHost + u"/", path);
    m_bExtendedEnable = GetPrivateProfileInt(u"extended", u"enable", 0, path) != 0;
    m_ExtendedPort = GetPrivateProfileInt(u"extended", u"port", 9997, path);
}

AnalyzerSettings g_settings;
