// rig_test_server: the reference server for Rig Inspector's network checks.
#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "ExtendedService.h"
#include "FileLimit.h"
#include "ServerOptions.h"
#include "TcpSpeedService.h"
#include "UdpEchoService.h"

namespace
{
// Descriptors besides the connections: stdio, the two listening sockets and
// the event loop's own.
constexpr std::uint64_t kReservedDescriptors = 32;

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

int Run(ServerOptions& options)
{
    const std::uint64_t limit = RaiseOpenFileLimit(options.m_MaxConnections + kReservedDescriptors);
    if (limit < options.m_MaxConnections + kReservedDescriptors)
    {
        // Serving fewer clients beats failing accept() for all of them.
        const std::uint64_t fit = limit > kReservedDescriptors * 2 ? limit - kReservedDescriptors : 1;
        std::fprintf(stderr, "rig_test_server: open-file limit %llu allows only %llu connections\n",
                     static_cast<unsigned long long>(limit), static_cast<unsigned long long>(fit));
        options.m_MaxConnections = static_cast<std::uint32_t>(fit);
    }

    asio::io_context io(1);
    const auto address = asio::ip::make_address_v4(options.m_Address);

    TcpSpeedService tcp(io, options);
    if (auto ec = tcp.Listen({address, options.m_TcpPort}))
        return ReportListenError("tcp", options.m_Address, options.m_TcpPort, ec);
    UdpEchoService udp(io, options);
    if (auto ec = udp.Listen({address, options.m_UdpPort}))
        return ReportListenError("udp", options.m_Address, options.m_UdpPort, ec);

    // The extended exchange is optional: a port already taken leaves the
    // specified tests served.
    ExtendedService extendedService(io, options);
    bool bExtended = false;
    if (options.m_ExtendedPort != 0)
    {
        if (auto ec = extendedService.Listen(address, options.m_ExtendedPort))
            ReportListenError("extended", options.m_Address, options.m_ExtendedPort, ec);
        else
            bExtended = true;
    }

    asio::signal_set signals(io, SIGINT, SIGTERM);
    signals.async_wait(
        [&](const std::error_code& ec, int)
        {
            if (ec)
                return;
            tcp.Stop();
            udp.Stop();
            if (bExtended)
                extendedService.Stop();
        });

    const auto tcpEnd = tcp.LocalEndpoint();
    const auto udpEnd = udp.LocalEndpoint();
    LogLine("rig_test_server listening tcp " + tcpEnd.address().to_string() + ":" +
            std::to_string(tcpEnd.port()) + " udp " + udpEnd.address().to_string() + ":" +
            std::to_string(udpEnd.port()) +
            (bExtended ? " extended " + std::to_string(extendedService.LocalPort()) : std::string()));
    io.run();
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
