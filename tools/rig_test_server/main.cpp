// rig_test_server: the reference server for Rig Inspector's network checks.
//
// Threads: each worker thread runs an io_context with its own UDP echo
// socket on the shared port and a share of the TCP connections, which one
// acceptor (on the first worker) hands out in turn. The main thread handles
// the signals and the metrics endpoint. The threads share only the limits
// and the counters, each safe on its own.
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ExtendedService.h"
#include "FileLimit.h"
#include "MetricsEndpoint.h"
#include "ServerLimits.h"
#include "ServerMetrics.h"
#include "ServerOptions.h"
#include "TcpSpeedService.h"
#include "UdpEchoService.h"

namespace
{
// Descriptors besides the connections: stdio, the listening sockets, each
// thread's event loop, the metrics endpoint's scrapes and the reserve.
constexpr std::uint64_t kReservedDescriptors = 64;

int ReportListenError(const char* protocol, const std::string& address, unsigned port,
                      const std::error_code& ec)
{
    if (ec == asio::error::address_in_use)
        std::fprintf(stderr, "rig_test_server: %s port %u on %s is already in use\n", protocol, port,
                     address.c_str());
    else
        std::fprintf(stderr, "rig_test_server: cannot listen on %s %s:%u: %s\n", protocol, address.c_str(),
                     port, ec.message().c_str());
    return 1;
}

std::string ToText(const asio::ip::address& address, unsigned short port)
{
    return address.to_string() + ":" + std::to_string(port);
}

void FitConnectionsToFileLimit(ServerOptions& options, unsigned threads)
{
    const std::uint64_t reserved = kReservedDescriptors + 4ull * threads;
    const std::uint64_t limit = RaiseOpenFileLimit(options.m_MaxConnections + reserved);
    if (limit >= options.m_MaxConnections + reserved)
        return;
    // Serving fewer clients beats failing accept() for all of them.
    const std::uint64_t fit = limit > reserved * 2 ? limit - reserved : 1;
    std::fprintf(stderr, "rig_test_server: open-file limit %llu allows only %llu connections\n",
                 static_cast<unsigned long long>(limit), static_cast<unsigned long long>(fit));
    options.m_MaxConnections = static_cast<std::uint32_t>(fit);
}

/// With SO_REUSEPORT a second server would share the port silently; a plain
/// bind first tells the operator that the port is taken.
std::error_code CheckUdpPortFree(asio::io_context& io, const asio::ip::udp::endpoint& endpoint)
{
    if (endpoint.port() == 0)
        return {};
    asio::ip::udp::socket probe(io);
    std::error_code ec;
    probe.open(endpoint.protocol(), ec);
    if (!ec)
        probe.bind(endpoint, ec);
    return ec;
}

void LogUdpTotals(const ServerOptions& options, const ServerMetrics& m)
{
    const auto get = [](const ServerMetrics::Counter& c) { return std::to_string(c.load()); };
    if (options.m_bJsonLog)
        LogLine(R"({"event":"udp_totals","pings":)" + get(m.m_Pings) + R"(,"pongs":)" + get(m.m_PongsSent) +
                R"(,"ignored":)" + get(m.m_Ignored) + R"(,"limited":)" + get(m.m_LimitedSource) +
                R"(,"budget":)" + get(m.m_LimitedGlobal) + R"(,"dropped":)" + get(m.m_Dropped) + "}");
    else
        LogLine("udp pings=" + get(m.m_Pings) + " pongs=" + get(m.m_PongsSent) +
                " ignored=" + get(m.m_Ignored) + " limited=" + get(m.m_LimitedSource) +
                " budget=" + get(m.m_LimitedGlobal) + " dropped=" + get(m.m_Dropped));
}

int Run(ServerOptions& options)
{
    const unsigned threads =
        options.m_Threads > 0 ? options.m_Threads : std::max(1u, std::thread::hardware_concurrency());
    FitConnectionsToFileLimit(options, threads);

    ServerMetrics metrics;
    ConnectionLimits limits(options.m_MaxConnections, options.m_MaxPerSource);
    PongAdmission admission(options.m_RateLimit, options.m_RateBurst, options.m_PongBudget);

    // The io_contexts outlive the services that use them.
    asio::io_context control(1);
    std::vector<std::unique_ptr<asio::io_context>> loops;
    std::vector<asio::io_context*> workers;
    for (unsigned i = 0; i < threads; ++i)
        workers.push_back(loops.emplace_back(std::make_unique<asio::io_context>(1)).get());

    const auto address = asio::ip::make_address_v4(options.m_Address);
    TcpSpeedService tcp(*workers[0], workers, options, limits, metrics);
    if (auto ec = tcp.Listen({address, options.m_TcpPort}))
        return ReportListenError("tcp", options.m_Address, options.m_TcpPort, ec);

    asio::ip::udp::endpoint udpEndpoint(address, options.m_UdpPort);
    if (auto ec = CheckUdpPortFree(control, udpEndpoint))
        return ReportListenError("udp", options.m_Address, options.m_UdpPort, ec);
    std::vector<std::unique_ptr<UdpEchoService>> udp;
    for (asio::io_context* io : workers)
    {
        auto& service = udp.emplace_back(std::make_unique<UdpEchoService>(*io, options, admission, metrics));
        if (auto ec = service->Listen(udpEndpoint, threads > 1))
            return ReportListenError("udp", options.m_Address, udpEndpoint.port(), ec);
        udpEndpoint = service->LocalEndpoint(); // the port the system chose for port 0
    }

    MetricsEndpoint metricsEndpoint(control, metrics);
    if (!options.m_Metrics.empty())
    {
        const auto endpoint = *ParseEndpoint(options.m_Metrics);
        if (auto ec = metricsEndpoint.Listen(endpoint))
            return ReportListenError("metrics tcp", endpoint.address().to_string(), endpoint.port(), ec);
    }

    // The extended exchange is optional: a port already taken leaves the
    // speed and echo tests served. Its traffic is light, so it shares the control loop.
    ExtendedService extendedService(control, options, metrics);
    bool bExtended = false;
    if (options.m_ExtendedPort != 0)
    {
        if (auto ec = extendedService.Listen(address, options.m_ExtendedPort))
            ReportListenError("extended", options.m_Address, options.m_ExtendedPort, ec);
        else
            bExtended = true;
    }

    asio::signal_set signals(control, SIGINT, SIGTERM);
    signals.async_wait(
        [&](const std::error_code& ec, int)
        {
            if (ec)
                return;
            tcp.Stop();
            for (std::size_t i = 0; i < workers.size(); ++i)
                asio::post(*workers[i], [&service = *udp[i]] { service.Stop(); });
            metricsEndpoint.Stop();
            if (bExtended)
                extendedService.Stop();
        });

    std::string ready = "rig_test_server listening tcp " +
                        ToText(tcp.LocalEndpoint().address(), tcp.LocalEndpoint().port()) + " udp " +
                        ToText(udpEndpoint.address(), udpEndpoint.port());
    if (!options.m_Metrics.empty())
        ready += " metrics " +
                 ToText(metricsEndpoint.LocalEndpoint().address(), metricsEndpoint.LocalEndpoint().port());
    if (bExtended)
        ready += " extended " + std::to_string(extendedService.LocalPort());
    LogLine(ready + " threads " + std::to_string(threads));

    std::vector<std::thread> running;
    for (asio::io_context* io : workers)
        running.emplace_back([io] { io->run(); });
    control.run();
    for (auto& thread : running)
        thread.join();
    LogUdpTotals(options, metrics);
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    ServerOptions options;
    if (const int status = ParseServerOptions(argc, argv, options); status >= 0)
        return status;
    try
    {
        return Run(options);
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "rig_test_server: %s\n", e.what());
        return 1;
    }
}
