#include "NetworkReport.h"

#include "Diagnostics.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/Inspector.h"
#include "TcpChecker.h"
#include "UdpChecker.h"
#include "WorkerFailure.h"

namespace
{
// Single precision on purpose, both the factor and the comparison, as the
// verdict has always been made: 32768 bytes per second passes, and 32767.99
// fails although it prints as 32.00.
constexpr float kKilobyte = 1.0f / 1024.0f;
constexpr float kMinKBs = 32.0f;
} // namespace

void ReportTcpResult(const TcpChecker& checker, const tstring& failure)
{
    TcpResult& result = g_inspector.m_Results.tcp;
    result = TcpResult{};
    result.failure = failure;
    result.connected = checker.m_bConnected;
    result.uploadCompleted = checker.m_bUploadCompleted;
    result.uploadBytes = checker.m_UploadBytes;
    result.downloadBytes = checker.m_DownloadBytes;
    result.downloadCompleted = checker.m_DownloadBytes >=
                               static_cast<std::uint32_t>(TcpChecker::kBlockSize * TcpChecker::kBlockCount);
    result.uploadBytesPerSec = checker.m_UploadSpeed;
    result.downloadBytesPerSec = checker.m_DownloadSpeed;
    if (result.connected)
        g_inspector.Print(u"<br>\tconnected to server");
    else
        g_inspector.Print(u"<br><font color=red>\tnot connected to server</font>");

    result.uploadKBs = static_cast<float>(checker.m_UploadSpeed * kKilobyte);
    result.downloadKBs = static_cast<float>(checker.m_DownloadSpeed * kKilobyte);
    g_inspector.Print(u"<br>\tUpload Speed : %5.2f KB/Sec", result.uploadKBs);
    g_inspector.Print(u"<br>\tDownload Speed : %5.2f KB/Sec", result.downloadKBs);

    // A worker that did not finish has measured nothing it can vouch for.
    if (!result.failure.empty())
        DiagnoseWorkerFailure(u"speed", result.failure);
    DiagnoseShortDownload(result);
    result.passed = result.failure.empty() && !(result.uploadKBs < kMinKBs) &&
                    !(result.downloadKBs < kMinKBs) && result.uploadCompleted;
    if (!result.passed)
    {
        g_inspector.Print(u"<br><font color=red>We could not finish the speed test completely.</font>");
        g_inspector.Print(
            u"<br><font color=red>Internet connection speed test failed. Game performance may be affected, "
            u"please <a href=\"%s\" target=_blank>click here</a> for more info.</font>",
            g_settings.m_MinRequirementUrl);
    }
    result.ran = true;
}

void DiagnoseShortDownload(const TcpResult& result)
{
    // Without a connection there was no download to cut short.
    if (!result.connected || result.downloadCompleted)
        return;
    GetDiagnostics().Add("download_incomplete",
                         zul::FormatString(u"The download stopped after %d of 524288 bytes, so its speed is "
                                           u"measured over what arrived.",
                                           static_cast<int>(result.downloadBytes)));
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
