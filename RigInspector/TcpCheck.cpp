#include "Diagnostics.h"
#include "NetworkReport.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/Inspector.h"
#include "TcpChecker.h"
#include "WorkerFailure.h"

namespace
{
// Single precision on purpose, both the factor and the comparison, as the
// verdict has always been made: 32768 bytes per second passes, and 32767.99
// fails although it prints as 32.00.
constexpr float kKilobyte = 1.0f / 1024.0f;
constexpr float kMinKBs = 32.0f;
} // namespace

void Inspector::CheckTcp()
{
    TcpChecker checker(u"TcpChecker");
    checker.Reset();
    checker.m_Host = g_settings.m_TcpHost;
    checker.m_Port = static_cast<std::uint16_t>(g_settings.m_TcpPort);
    checker.Start(false);
    Print(u"<br>Checking Internet Speed Test(%s:%d)...", checker.m_Host, checker.m_Port);
    checker.Wait(zul::INFINITE_WAIT);
    ReportTcpResult(checker, DescribeWorkerFailure(checker));
}

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
