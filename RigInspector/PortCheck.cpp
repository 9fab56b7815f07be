#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/Inspector.h"
#include "share/socket/PortProbe.h"

namespace
{
constexpr const char16_t* kFreeMark = u".";
constexpr const char16_t* kBusyMark = u"<font color=red>x</font>";

// Every fragment re-renders the whole report, so a range of tens of thousands
// of ports printed mark by mark takes minutes. Above this many ports the
// marks (and the busy list) are joined into fragments as long as a fragment
// may be; the report text is the same, only the number of renders drops.
constexpr std::int64_t kMarkByMarkLimit = 256;

/// Prints pieces one by one, or joined up to the fragment limit.
class FragmentWriter
{
public:
    FragmentWriter(Inspector& inspector, bool bJoin) : m_Inspector(inspector), m_bJoin(bJoin) {}
    ~FragmentWriter() { Flush(); }
    FragmentWriter(const FragmentWriter&) = delete;
    FragmentWriter& operator=(const FragmentWriter&) = delete;

    void Add(const tstring& piece)
    {
        if (!m_bJoin)
        {
            m_Inspector.Print(u"%s", piece);
            return;
        }
        if (m_Pending.size() + piece.size() > Inspector::kPrintMaxChars)
            Flush();
        m_Pending += piece;
    }

    void Flush()
    {
        if (!m_Pending.empty())
            m_Inspector.Print(u"%s", m_Pending);
        m_Pending.clear();
    }

private:
    Inspector& m_Inspector;
    bool m_bJoin;
    tstring m_Pending;
};
} // namespace

// Ports below 1024 can be bound only by root on Linux (or with
// CAP_NET_BIND_SERVICE), so for a normal user such a range reads "x" and is
// listed as busy: the game, run by the same user, could not use them either.
void Inspector::CheckUdpPorts()
{
    PortsResult& result = m_Results.ports;
    result = PortsResult{};
    result.firstPort = g_settings.m_CheckPortMin;
    result.endPort = g_settings.m_CheckPortMax;

    const bool bJoin =
        static_cast<std::int64_t>(result.endPort) - static_cast<std::int64_t>(result.firstPort) >
        kMarkByMarkLimit;

    Print(u"<br>Checking UDP port");
    {
        FragmentWriter marks(*this, bJoin);
        // Past 65,536 ports every port number (taken modulo 65536) would
        // only come again, and the range the settings can hold would take
        // hours: the check stops there (the settings' diagnostics say so).
        for (std::int32_t port = result.firstPort;
             port < result.endPort && result.probed < kMaxPortRangeProbes; ++port)
        {
            ++result.probed;
            if (zul::socket::IsUdpPortFree(static_cast<std::uint16_t>(port)))
                marks.Add(kFreeMark);
            else
            {
                marks.Add(kBusyMark);
                result.busyPorts.push_back(port);
            }
        }
    }

    result.passed = result.busyPorts.empty();
    if (result.passed)
        Print(u"<font color=blue>passed.</font>");
    else
    {
        Print(u"failed. ");
        {
            FragmentWriter list(*this, bJoin);
            for (const std::int32_t port : result.busyPorts)
                list.Add(zul::FormatString(u"%d ", port));
        }
        Print(u"<font color=red>ports are already used.</font>");
    }
    result.ran = true;
}
