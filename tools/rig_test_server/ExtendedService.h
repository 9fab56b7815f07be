#pragma once
// The server side of the extended network-quality exchange (see
// RigInspector/ExtendedWire.h): a handshake that issues a session cookie, game
// paced probes echoed back to their source, per-session counts that tell
// upstream from downstream loss, timed TCP streams in both directions, and a
// datagram from a second port to the client's game port.
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ip/udp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "RigInspector/ExtendedWire.h"
#include "ServerOptions.h"

class ExtendedStream;

class ExtendedService
{
public:
    using Clock = std::chrono::steady_clock;

    ExtendedService(asio::io_context& io, const ServerOptions& options);

    /// UDP and TCP on the same port, plus the inbound sender on a port of the
    /// system's choosing.
    std::error_code Listen(const asio::ip::address_v4& address, std::uint16_t port);
    std::uint16_t LocalPort() const;
    void Stop();

    struct Session
    {
        asio::ip::udp::endpoint m_Peer;
        Clock::time_point m_LastSeen;
        bool m_bUsed = false;     // anything past the handshake came
        std::vector<bool> m_Seen; // by probe sequence number
        std::uint32_t m_Distinct = 0;
        std::uint32_t m_Duplicates = 0;
        bool m_bUploadStarted = false;
        Clock::time_point m_UploadStart;
        std::vector<std::uint64_t> m_UploadBuckets;
    };

    /// The session of cookie when the peer is its owner (for TCP the address
    /// alone: the stream's port is its own), or null.
    Session* FindSession(std::uint64_t cookie, const asio::ip::address& peer);
    static constexpr std::chrono::milliseconds kBucket{50};
    static constexpr std::uint32_t kMaxStreamMs = 6000;

private:
    void Receive();
    void OnDatagram(std::size_t n);
    void OnProbe(Session& session, const extended::Message& probe, std::size_t nSize);
    void SendLater(const asio::ip::udp::endpoint& to, extended::Bytes data, std::chrono::milliseconds delay);
    void Send(asio::ip::udp::socket& socket, const asio::ip::udp::endpoint& to, const extended::Bytes& data);
    void Accept();
    void ForgetIdleSessions(Clock::time_point now);

    asio::io_context& m_Io;
    const ServerOptions& m_Options;
    asio::ip::udp::socket m_Socket;
    asio::ip::udp::socket m_InboundSocket;
    asio::ip::tcp::acceptor m_Acceptor;
    asio::ip::udp::endpoint m_Sender;
    std::vector<std::uint8_t> m_Buffer;
    std::unordered_map<std::uint64_t, Session> m_Sessions;
    std::mt19937_64 m_Random;
    std::size_t m_Delayed = 0;
    std::size_t m_Streams = 0;
    // Stop ends these at once instead of waiting for their timers.
    std::vector<std::weak_ptr<ExtendedStream>> m_LiveStreams;
    std::vector<std::weak_ptr<asio::steady_timer>> m_DelayTimers;

    std::uint64_t m_Handshakes = 0;
    std::uint64_t m_Probes = 0;
    std::uint64_t m_Echoes = 0;
    std::uint64_t m_Dropped = 0;
    std::uint64_t m_Refused = 0;

    friend class ExtendedStream;
};
