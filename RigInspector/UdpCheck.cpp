#include "Connection.h"
#include "Diagnostics.h"
#include "NetworkReport.h"
#include "PortOwners.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/Inspector.h"
#include "UdpChecker.h"
#include "WorkerFailure.h"
#include "share/common/StringUtil.h"

void Inspector::CheckUdp()
{
    UdpChecker checker(u"UdpChecker");
    checker.Reset();
    checker.m_Host = g_settings.m_UdpHost;
    checker.m_Port = static_cast<std::uint16_t>(g_settings.m_UdpPort);
    Print(u"<br>Checking UDP(%s:%d)...", checker.m_Host, checker.m_Port);
    checker.Start(false);
    checker.Wait(zul::INFINITE_WAIT);
    ReportUdpResult(checker, DescribeWorkerFailure(checker));
    m_Results.udp.pongPort = checker.m_LocalPort;
    if (!checker.m_bPongPortBound)
    {
        m_Results.udp.pongPortOwners = FindUdpPortOwners(checker.m_LocalPort);
        DiagnosePongPortHeld(checker.m_LocalPort, m_Results.udp.pongPortOwners);
    }
    m_Results.connection = ProbeConnection(zul::ToMultiByte(checker.m_Host));
}

void DiagnosePongPortHeld(std::uint16_t port, const std::vector<PortOwner>& owners)
{
    tstring holders;
    for (const PortOwner& owner : owners)
    {
        if (!holders.empty())
            holders += u", ";
        holders += owner.executable.empty()
                       ? zul::FormatString(u"process %d", static_cast<int>(owner.pid))
                       : zul::FormatString(u"process %d, %s", static_cast<int>(owner.pid), owner.executable);
    }
    GetDiagnostics().Add(
        "pong_port_held",
        holders.empty()
            ? zul::FormatString(u"Port %d is held by another program that the system does not name, so no "
                                u"pong could be received.",
                                static_cast<int>(port))
            : zul::FormatString(u"Port %d is held by another program (%s), so no pong could be received.",
                                static_cast<int>(port), holders));
}

// Pongs lost among junk are not a blocked port: say what came instead.
void DiagnoseRefusedPongs(const UdpResult& result, std::uint16_t port)
{
    if (result.ignored > 0)
    {
        tstring reasons;
        const struct
        {
            std::uint32_t count;
            const char16_t* reason;
        } kinds[] = {{result.malformed, u"not a pong"},
                     {result.unknownSequence, u"a sequence number never sent"},
                     {result.badRoundTrip, u"a round trip of 0 ms or a tick count of 0 or below"}};
        for (const auto& kind : kinds)
        {
            if (kind.count == 0)
                continue;
            if (!reasons.empty())
                reasons += u"; ";
            reasons += zul::FormatString(u"%d with %s", static_cast<int>(kind.count), kind.reason);
        }
        GetDiagnostics().Add("pongs_refused",
                             zul::FormatString(u"%d datagrams that answered no ping came to port %d (%s).",
                                               static_cast<int>(result.ignored), static_cast<int>(port),
                                               reasons));
    }
    if (result.duplicates > 0)
        GetDiagnostics().Add(
            "pongs_duplicated",
            zul::FormatString(u"%d pongs answered a ping already answered; their round trips "
                              u"count again in the figures.",
                              static_cast<int>(result.duplicates)));
}

void ReportUdpResult(const UdpChecker& checker, const tstring& failure)
{
    UdpResult& result = g_inspector.m_Results.udp;
    result = UdpResult{};
    result.failure = failure;

    result.sent = checker.SentCount();
    result.answered = checker.AnsweredCount();
    result.lost = checker.LossCount();
    result.lossPercent = result.sent == 0 ? 0.0 : static_cast<double>(result.lost) / result.sent * 100.0;
    result.minPingMs = checker.m_MinPing;
    result.maxPingMs = checker.m_MaxPing;
    result.ignored = checker.m_IgnoredCount;
    result.malformed = checker.m_MalformedCount;
    result.unknownSequence = checker.m_UnknownSequenceCount;
    result.badRoundTrip = checker.m_BadRoundTripCount;
    result.duplicates = checker.m_DuplicateCount;
    result.pongPortBound = checker.m_bPongPortBound;
    // Divided by the pings sent, not answered: each loss pulls the average down.
    result.avgPingMs =
        result.sent == 0
            ? -1
            : static_cast<std::int32_t>(checker.m_TotalPing / static_cast<std::uint32_t>(result.sent));

    g_inspector.Print(u"<br>\t    send : %3d packets", result.sent);
    g_inspector.Print(u"<br>\treceived : %3d packets", result.answered);
    if (result.lost > 0)
        g_inspector.Print(u"<font color=red><br>\t    loss : %3d packets (%.0f%%)</font>", result.lost,
                          result.lossPercent);
    else
        g_inspector.Print(u"<font color=blue><br>\t    loss : %3d packets (%.0f%%)</font>", result.lost,
                          result.lossPercent);
    g_inspector.Print(u"<br>\tmin ping : %3d ms", result.minPingMs);
    g_inspector.Print(u"<br>\tavg ping : %3d ms", result.avgPingMs);
    g_inspector.Print(u"<br>\tmax ping : %3d ms", result.maxPingMs);

    // A worker that stopped early (no socket, say) sent nothing, so nothing
    // was lost: the port-forwarding steps would send the user the wrong way.
    if (!result.failure.empty())
        DiagnoseWorkerFailure(u"UDP echo", result.failure);
    DiagnoseRefusedPongs(result, checker.m_LocalPort);
    if (result.lost > 0)
    {
        const tstring& guide = g_settings.m_PortForwardUrl;
        g_inspector.Print(
            u"<br><font color=red>UDP test failed. UDP ports for the game may be blocked.</font>");
        g_inspector.Print(
            u"<br><font color=black>1. Please go to <a href=\"%s\" target=_blank>%s</a>.</font>", guide,
            kPortForwardGuideHost);
        g_inspector.Print(
            u"<br><font color=black>2. Click on the router section or go <a "
            u"href=\"%senglish/routers/port_forwarding/routerindex.htm\" target=_blank>here</a>.</font>",
            guide);
        g_inspector.Print(u"<br><font color=black>3. Choose your router's make and model.</font>");
        g_inspector.Print(u"<br><font color=black>4. Choose Dunmore Nine.</font>");
        g_inspector.Print(
            u"<br><font color=black>5. Follow the instructions on the page to forward the ports.</font>");
    }
    result.passed = result.lost == 0 && result.failure.empty();
    result.ran = true;
}
