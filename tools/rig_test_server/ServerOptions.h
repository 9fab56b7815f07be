#pragma once
// What an operator (or a test) can set on rig_test_server's command line.
#include <asio/ip/tcp.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "ServerLimits.h"

struct ServerOptions
{
    std::string m_Address = "127.0.0.1";
    std::uint16_t m_TcpPort = 9999;
    std::uint16_t m_UdpPort = 9998;
    std::uint16_t m_PongPort = 20000;
    std::uint16_t m_ExtendedPort = 9997; // UDP and TCP; 0: no extended service

    unsigned m_Threads = 0; // 0: one per core
    std::uint32_t m_MaxConnections = 10000;
    std::uint32_t m_MaxPerSource = 8;
    std::uint32_t m_MinUploadRate = 4096; // bytes per second once the first 2 s are over; 0 = off
    std::uint32_t m_IdleTimeoutMs = 30000;
    std::uint32_t m_SessionLimitMs = 60000;
    std::uint32_t m_UploadSilenceMs = 2000;
    std::uint32_t m_UploadLimitMs = 10000;

    double m_RateLimit = 50.0; // pongs per second per source address; 0 = unlimited
    double m_RateBurst = 50.0;
    double m_PongBudget = 100000.0; // pongs per second to all sources together; 0 = unlimited

    ExtendedLimitSettings m_Extended;
    std::string m_CookieKeyFile; // shared by the instances behind one address; empty = a random key

    std::string m_Metrics; // ADDRESS:PORT of the Prometheus endpoint; empty = none
    bool m_bJsonLog = false;

    // Fault modes; a count of 0 means the mode is off.
    bool m_bSilent = false;
    std::uint64_t m_StopReadingAfter = 0;
    std::uint64_t m_CloseAfter = 0;
    std::uint32_t m_DropEvery = 0;
    std::uint32_t m_PongDelayMs = 0;
    bool m_bMalformedPongs = false;
    std::uint32_t m_JitterMs = 0; // extended echoes wait up to this much longer, at random
};

/// Fills options from the command line. Returns -1 when the server should run,
/// otherwise the exit status to leave with (0 after --help or --version, 2 after
/// a usage error, which has then been reported in one line on stderr).
int ParseServerOptions(int argc, const char* const* argv, ServerOptions& options);

/// Writes one line to stdout and flushes it, so that a script reading a pipe
/// sees each line as soon as it happens.
void LogLine(const std::string& line);

/// "ADDRESS:PORT" with a dotted IPv4 address; nothing when it is not that.
std::optional<asio::ip::tcp::endpoint> ParseEndpoint(const std::string& text);
