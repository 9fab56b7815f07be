#include "Connection.h"
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
