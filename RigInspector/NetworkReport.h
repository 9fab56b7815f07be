#pragma once
// The report of each network check, made from its ended checker, apart from
// running it so that every text and threshold can be tested from figures.
#include <cstdint>
#include <vector>

#include "CheckResults.h"
#include "PortOwners.h"
#include "share/common/TString.h"

class TcpChecker;
class UdpChecker;

/// Prints the speed test's lines from the checker's figures and fills
/// g_inspector.m_Results.tcp. failure: DescribeWorkerFailure's line, or empty.
void ReportTcpResult(const TcpChecker& checker, const tstring& failure);

/// Prints the echo test's lines from the checker's counts and round trips and
/// fills g_inspector.m_Results.udp. failure: as above.
void ReportUdpResult(const UdpChecker& checker, const tstring& failure);

/// The diagnostics of datagrams on the pong port that answered no ping, and
/// of pongs that answered a ping twice.
void DiagnoseRefusedPongs(const UdpResult& result, std::uint16_t port);

/// The diagnostic for a pong port another program held, naming the owners
/// the system lists.
void DiagnosePongPortHeld(std::uint16_t port, const std::vector<PortOwner>& owners);

/// The diagnostic for a download that stopped short of its 512 blocks.
void DiagnoseShortDownload(const TcpResult& result);
