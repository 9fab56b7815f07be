// The checker against a server that completes the handshake and then goes
// quiet: the run still ends within its budget, and what it could not measure
// reads as unknown, never as a perfect or a zero figure.
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "RigInspector/ExtendedChecker.h"
#include "RigInspector/ExtendedWire.h"
#include "tests/server/TestSockets.h"

using namespace testnet;

TEST(ExtendedChecker, ServerSilentAfterTheHandshakeEndsInTimeWithUnknowns)
{
    const Fd server = BindUdp("127.0.0.1", 0);
    sockaddr_in local{};
    socklen_t length = sizeof local;
    ASSERT_EQ(::getsockname(server.Get(), reinterpret_cast<sockaddr*>(&local), &length), 0);
    std::atomic<bool> bStop{false};
    std::thread answerer(
        [&]
        {
            std::uint8_t buffer[2048];
            while (!bStop)
            {
                if (!WaitReadable(server, Millis(50)))
                    continue;
                sockaddr_in from{};
                socklen_t fromLength = sizeof from;
                const ssize_t n = ::recvfrom(server.Get(), buffer, sizeof buffer, 0,
                                             reinterpret_cast<sockaddr*>(&from), &fromLength);
                const auto hello =
                    n > 0 ? extended::Decode(buffer, static_cast<std::size_t>(n)) : std::nullopt;
                if (!hello || hello->type != extended::Type::Hello)
                    continue;
                const auto welcome = extended::Encode({extended::Type::Welcome, 42, 0, hello->a});
                ::sendto(server.Get(), welcome.data(), welcome.size(), 0, reinterpret_cast<sockaddr*>(&from),
                         fromLength);
            }
        });

    ExtendedSettings settings;
    settings.port = ntohs(local.sin_port); // no TCP listener there: every stream is refused
    settings.gamePort = 0;
    settings.idleProbes = 10;
    settings.phaseMs = 600;
    settings.warmupMs = 200;
    settings.tailMs = 100;
    settings.budgetMs = 3000;
    const auto start = std::chrono::steady_clock::now();
    const ExtendedResult r = ExtendedChecker(settings).Run();
    const auto took = std::chrono::steady_clock::now() - start;
    bStop = true;
    answerer.join();

    EXPECT_TRUE(r.failure.empty()) << r.failure;
    EXPECT_LE(took, Millis(settings.budgetMs + 500));
    EXPECT_GT(r.sent, 10u);
    EXPECT_EQ(r.answered, 0u);
    EXPECT_FALSE(r.idle.p50);
    EXPECT_TRUE(r.grade.empty());
    EXPECT_FALSE(r.lossUpPercent); // the server never said what reached it
    EXPECT_FALSE(r.uploadKBs);
    EXPECT_FALSE(r.downloadKBs);
    EXPECT_EQ(r.inboundReached, false);
}
