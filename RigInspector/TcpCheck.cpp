#include "NetworkReport.h"
#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/Inspector.h"
#include "TcpChecker.h"
#include "WorkerFailure.h"

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
