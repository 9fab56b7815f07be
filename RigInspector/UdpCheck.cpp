#include "NetworkReport.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/Inspector.h"
#include "UdpChecker.h"
#include "WorkerFailure.h"

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

    // A worker that stopped early (no socket, say) is named on a line of its
    // own; the port-forwarding steps would send the user the wrong way then,
    // so they follow only a real loss.
    if (!result.failure.empty())
        PrintWorkerFailure(result.failure);
    // Pongs lost among junk are not a blocked port: say what came instead.
    if (result.lost > 0 && result.ignored > 0)
        g_inspector.Print(u"<br><font color=red>\t%d datagrams that answered no ping came to port %d.</font>",
                          static_cast<int>(result.ignored), static_cast<int>(checker.m_LocalPort));
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
