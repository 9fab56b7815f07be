#pragma once
// The server side of the extended network-quality exchange (see
// RigInspector/ExtendedWire.h): a handshake that costs no state (a cookie the
// server can check, not one it stores), game paced probes echoed back to
// their source, per-session counts that tell upstream from downstream loss,
// timed TCP streams in both directions, and a datagram from a second port to
// the client's game port. Every source gets a fair share (ExtendedAdmission);
// a player refused for lack of room is told so at once.
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

#include "ExtendedCookies.h"
#include "RigInspector/ExtendedWire.h"
#include "ServerLimits.h"
#include "ServerMetrics.h"
#include "ServerOptions.h"

class ExtendedStream;

class ExtendedService
{
public:
    using Clock = std::chrono::steady_clock;

    /// Throws when the cookie key cannot be had.
    ExtendedService(asio::io_context& io, const ServerOptions& options, ServerMetrics& metrics);

    /// UDP and TCP on the same port, plus the inbound sender on a port of the
    /// system's choosing.
    std::error_code Listen(const asio::ip::address_v4& address, std::uint16_t port);
    std::uint16_t LocalPort() const;
    void Stop();

    struct Session
    {
        asio::ip::udp::endpoint m_Peer;
        std::uint32_t m_Source = 0;
        Clock::time_point m_LastSeen;
        TokenBucket m_Echoes;
        std::uint32_t m_Streams[2] = {0, 0}; // upload, download
        std::vector<bool> m_Seen;            // by probe sequence number
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
    // Silence this long ends a session; a run never pauses for more than a second.
    static constexpr auto kSessionIdle = std::chrono::seconds(5);

private:
    void Receive();
    void OnDatagram(std::size_t n);
    void OnHello(const extended::Message& hello, Clock::time_point now);
    Session* OpenSession(const extended::Message& request, Clock::time_point now);
    void OnProbe(Session& session, const extended::Message& probe, std::size_t nSize, Clock::time_point now);
    void SendBusy(const extended::Message& request, extended::BusyReason reason, std::uint64_t nonce,
                  Clock::time_point now);
    void SendLater(const asio::ip::udp::endpoint& to, extended::Bytes data, std::chrono::milliseconds delay);
    void Send(asio::ip::udp::socket& socket, const asio::ip::udp::endpoint& to, const extended::Bytes& data);
    void Accept();
    void Admit(asio::ip::tcp::socket socket);
    void Sweep();
    void EndSession(std::unordered_map<std::uint64_t, Session>::iterator it);
    std::uint64_t UnixSeconds() const;

    asio::io_context& m_Io;
    const ServerOptions& m_Options;
    ServerMetrics& m_Metrics;
    ExtendedAdmission m_Admission;
    CookieJar m_Cookies;
    Clock::time_point m_KeyBorn;
    asio::ip::udp::socket m_Socket;
    asio::ip::udp::socket m_InboundSocket;
    asio::ip::tcp::acceptor m_Acceptor;
    asio::steady_timer m_SweepTimer;
    asio::ip::udp::endpoint m_Sender;
    std::vector<std::uint8_t> m_Buffer;
    std::unordered_map<std::uint64_t, Session> m_Sessions;
    SourceRateLimiter m_BusyReplies; // a refused source is told, not flooded
    std::mt19937_64 m_Random;        // jitter only
    std::size_t m_Delayed = 0;
    // Stop ends these at once instead of waiting for their timers.
    std::vector<std::weak_ptr<ExtendedStream>> m_LiveStreams;
    std::vector<std::weak_ptr<asio::steady_timer>> m_DelayTimers;

    std::uint64_t m_Probes = 0;
    std::uint64_t m_Echoes = 0;
    std::uint64_t m_Dropped = 0;

    friend class ExtendedStream;
};
