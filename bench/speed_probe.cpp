// bench_speed_probe: the analyzer's own TCP speed test, run once, with the
// figures the report is made from printed as key=value lines.
//
//   bench_speed_probe run HOST PORT
//     connected, completed (0/1), up_kbs, down_kbs (KB/s of 1024 bytes, as
//     the report prints them), up_bytes, down_bytes
//   bench_speed_probe ceiling
//     what the method's pacing allows at most: 512 blocks sent to a loopback
//     sink that drains at once, each followed by the real zul::Sleep(1).
//     sleep_ms and send_ms are the mean pause and the mean send of a block;
//     ceiling_kbs = 1024 / (sleep_ms + send_ms) ms, in KB/s.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "RigInspector/TcpChecker.h"
#include "share/common/Clock.h"
#include "share/common/StringUtil.h"
#include "share/socket/MSocket.h"
#include "share/socket/Socket.h"

namespace
{
using SteadyClock = std::chrono::steady_clock;

double MsBetween(SteadyClock::time_point a, SteadyClock::time_point b)
{
    return std::chrono::duration<double, std::milli>(b - a).count();
}

int RunTest(const char* host, const char* port)
{
    TcpChecker checker(u"TcpChecker");
    checker.Reset();
    checker.m_Host = zul::ToWide(std::string(host));
    checker.m_Port = static_cast<std::uint16_t>(std::atoi(port));
    checker.Start(false);
    checker.Wait(zul::INFINITE_WAIT);
    std::printf("connected=%d\ncompleted=%d\n", checker.m_bConnected ? 1 : 0,
                checker.m_bUploadCompleted ? 1 : 0);
    // The report's own conversion: single precision after scaling to KB.
    std::printf("up_kbs=%.2f\ndown_kbs=%.2f\n", static_cast<float>(checker.m_UploadSpeed * (1.0 / 1024)),
                static_cast<float>(checker.m_DownloadSpeed * (1.0 / 1024)));
    std::printf("up_bytes=%u\ndown_bytes=%u\n", checker.m_UploadBytes, checker.m_DownloadBytes);
    return checker.m_bConnected ? 0 : 1;
}

int MeasureCeiling()
{
    zul::socket::MSocket listener(0, true);
    if (!listener.Bind(u"127.0.0.1", 0) || !listener.Listen(1))
    {
        std::fprintf(stderr, "bench_speed_probe: cannot listen on loopback\n");
        return 1;
    }
    const std::uint16_t port = listener.GetLocalPort();
    std::thread sink(
        [&]
        {
            std::unique_ptr<zul::socket::MSocket> peer(listener.Accept());
            if (!peer)
                return;
            char buffer[65536];
            // Ends when the sender closes; bounded by the sender's 512 blocks.
            while (peer->Receive(buffer, sizeof buffer, 0) > 0)
            {
            }
        });

    zul::socket::MSocket socket(0, true);
    if (!socket.Connect(u"127.0.0.1", port))
    {
        std::fprintf(stderr, "bench_speed_probe: cannot connect to the sink\n");
        // Closing the listener does not wake a blocked accept: end the
        // process with the sink still waiting in it.
        std::_Exit(1);
    }
    char block[TcpChecker::kBlockSize] = {};
    double sendMs = 0.0;
    double sleepMs = 0.0;
    for (int i = 0; i < TcpChecker::kBlockCount; ++i)
    {
        const auto t0 = SteadyClock::now();
        (void)socket.SendBlock(block, sizeof block, 1000, nullptr);
        const auto t1 = SteadyClock::now();
        zul::Sleep(1);
        const auto t2 = SteadyClock::now();
        sendMs += MsBetween(t0, t1);
        sleepMs += MsBetween(t1, t2);
    }
    socket.Close();
    sink.join();
    sendMs /= TcpChecker::kBlockCount;
    sleepMs /= TcpChecker::kBlockCount;
    std::printf("sleep_ms=%.4f\nsend_ms=%.4f\nceiling_kbs=%.1f\n", sleepMs, sendMs,
                1000.0 / (sleepMs + sendMs));
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    zul::socket::Startup();
    if (argc == 4 && std::strcmp(argv[1], "run") == 0)
        return RunTest(argv[2], argv[3]);
    if (argc == 2 && std::strcmp(argv[1], "ceiling") == 0)
        return MeasureCeiling();
    std::fprintf(stderr, "usage: bench_speed_probe run HOST PORT | ceiling\n");
    return 2;
}
