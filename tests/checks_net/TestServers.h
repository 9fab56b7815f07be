#pragma once
// Small servers the network checks run against, each on its own thread and
// bounded in time: every blocking call has a time-out and every loop a stop.
#include <atomic>
#include <cstdint>
#include <thread>

/// Serves one TCP speed test on 127.0.0.1 (a port of the system's choice):
/// takes in the upload, then sends the download and closes.
class TcpTestServer
{
public:
    struct Behaviour
    {
        std::uint32_t stopReadingAfter = 0; // 0: read the whole upload
        std::uint32_t sendBytes = 524288;   // after the upload
        bool silent = false;                // send nothing, keep the connection
    };

    explicit TcpTestServer(Behaviour behaviour);
    ~TcpTestServer();
    std::uint16_t Port() const { return m_Port; }

private:
    void Serve();

    Behaviour m_Behaviour;
    int m_Listener = -1;
    std::uint16_t m_Port = 0;
    std::atomic<bool> m_bStop{false};
    std::thread m_Thread;
};

/// Answers pings on 127.0.0.1:9998 with pongs to 127.0.0.1:20000.
class UdpEchoTestServer
{
public:
    struct Behaviour
    {
        int dropEvery = 0;      // drop every Nth ping (1-based); 0: none
        bool junkFirst = false; // a 4-byte and a junk datagram before each pong
    };

    explicit UdpEchoTestServer(Behaviour behaviour);
    ~UdpEchoTestServer();

private:
    void Serve();

    Behaviour m_Behaviour;
    int m_Socket = -1;
    std::atomic<bool> m_bStop{false};
    std::thread m_Thread;
};

/// Holds a UDP port on 0.0.0.0 for the life of the object.
class HeldUdpPort
{
public:
    explicit HeldUdpPort(std::uint16_t port);
    ~HeldUdpPort();
    bool IsHeld() const { return m_bHeld; }

private:
    int m_Socket = -1;
    bool m_bHeld = false;
};
