#pragma once
// The report of each network check, made from its ended checker, apart from
// running it so that every text and threshold can be tested from figures.
#include "share/common/TString.h"

class TcpChecker;
class UdpChecker;

/// Prints the speed test's lines from the checker's figures and fills
/// g_inspector.m_Results.tcp. failure: DescribeWorkerFailure's line, or empty.
void ReportTcpResult(const TcpChecker& checker, const tstring& failure);

/// Prints the echo test's lines from the checker's counts and round trips and
/// fills g_inspector.m_Results.udp. failure: as above.
void ReportUdpResult(const UdpChecker& checker, const tstring& failure);
