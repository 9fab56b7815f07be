#include "NetworkReport.h"
#include "PortOwners.h"
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
    if (!checker.m_bPongPortBound)
        DiagnosePongPortHeld(checker.m_LocalPort, FindUdpPortOwners(checker.m_LocalPort));
}
