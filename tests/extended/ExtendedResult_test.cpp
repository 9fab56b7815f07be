// The extended step's bookkeeping: what a run of probes and echoes adds up to.
#include <gtest/gtest.h>

#include "RigInspector/ExtendedResult.h"
#include "RigInspector/ExtendedWire.h"

namespace
{
constexpr std::int64_t kMs = 1000; // microseconds

TEST(ExtendedProbeLog, TellsLossDirectionsAndOddArrivals)
{
    ProbeLog log;
    for (std::uint32_t seq = 0; seq < 10; ++seq)
        log.OnSent(seq, seq < 5 ? ProbePhase::Idle : ProbePhase::Loaded, seq * 20 * kMs);
    // Idle round trips 10 ms, loaded 50 ms; 3 never comes back; 8 arrives
    // after 9; 6 comes twice; 9 comes after 600 ms.
    for (std::uint32_t seq : {0u, 1u, 2u, 4u})
        EXPECT_TRUE(log.OnEcho(seq, seq * 20 * kMs, seq * 20 * kMs + 10 * kMs));
    for (std::uint32_t seq : {5u, 6u, 7u, 6u})
        EXPECT_TRUE(log.OnEcho(seq, seq * 20 * kMs, seq * 20 * kMs + 50 * kMs));
    EXPECT_TRUE(log.OnEcho(9, 180 * kMs, 780 * kMs));
    EXPECT_TRUE(log.OnEcho(8, 160 * kMs, 790 * kMs));
    // An echo whose send time does not match is not ours.
    EXPECT_FALSE(log.OnEcho(3, 1, 100 * kMs));
    EXPECT_FALSE(log.OnEcho(42, 0, 100 * kMs));

    ExtendedResult r;
    log.Summarize(r, 9u); // the server saw all but one probe
    EXPECT_EQ(r.sent, 10u);
    EXPECT_EQ(r.answered, 9u);
    EXPECT_EQ(r.duplicates, 1u);
    EXPECT_EQ(r.reordered, 1u);
    EXPECT_EQ(r.late, 2u);
    EXPECT_DOUBLE_EQ(*r.lossUpPercent, 10.0);
    EXPECT_DOUBLE_EQ(*r.lossDownPercent, 0.0);
    EXPECT_DOUBLE_EQ(*r.idle.p50, 10.0);
    EXPECT_DOUBLE_EQ(*r.idle.min, 10.0);
    EXPECT_EQ(r.idle.samples, 4u);
    EXPECT_DOUBLE_EQ(*r.loaded.p50, 50.0);
    EXPECT_DOUBLE_EQ(*r.loaded.p90, 630.0);
    EXPECT_DOUBLE_EQ(*r.increaseMs, 40.0);
    EXPECT_EQ(r.grade, "B");

    // Without the server's count the direction is unknown, not zero.
    ExtendedResult unknown;
    log.Summarize(unknown, std::nullopt);
    EXPECT_FALSE(unknown.lossUpPercent);
    EXPECT_FALSE(unknown.lossDownPercent);

    // The load never ran: its probes still count for loss, but there is no
    // latency under load and so no grade.
    log.Unload(5, 10);
    ExtendedResult unloaded;
    log.Summarize(unloaded, 9u);
    EXPECT_EQ(unloaded.loaded.samples, 0u);
    EXPECT_FALSE(unloaded.loaded.p50);
    EXPECT_FALSE(unloaded.increaseMs);
    EXPECT_TRUE(unloaded.grade.empty());
    EXPECT_EQ(unloaded.idle.samples, 4u);
    EXPECT_DOUBLE_EQ(*unloaded.lossUpPercent, 10.0);
    EXPECT_EQ(unloaded.answered, 9u);
}

TEST(ExtendedProbeLog, JitterFollowsRfc3550)
{
    ProbeLog steady, alternating;
    for (std::uint32_t seq = 0; seq < 200; ++seq)
    {
        const std::int64_t sent = seq * 20 * kMs;
        steady.OnSent(seq, ProbePhase::Idle, sent);
        steady.OnEcho(seq, sent, sent + 30 * kMs);
        alternating.OnSent(seq, ProbePhase::Idle, sent);
        alternating.OnEcho(seq, sent, sent + (seq % 2 == 0 ? 10 : 14) * kMs);
    }
    ExtendedResult a, b;
    steady.Summarize(a, std::nullopt);
    alternating.Summarize(b, std::nullopt);
    EXPECT_DOUBLE_EQ(*a.jitterMs, 0.0);
    // J converges on |D| = 4 ms.
    EXPECT_NEAR(*b.jitterMs, 4.0, 0.01);
}

TEST(ExtendedGrade, BandEdgesBelongToTheBetterGrade)
{
    EXPECT_EQ(GradeFor(0.0), "A+");
    EXPECT_EQ(GradeFor(5.0), "A+");
    EXPECT_EQ(GradeFor(5.1), "A");
    EXPECT_EQ(GradeFor(200.0), "C");
    EXPECT_EQ(GradeFor(400.1), "F");
}

TEST(ExtendedWire, RefusesShortForeignAndFutureRecords)
{
    const auto bytes = extended::Encode({extended::Type::Probe, 0x1122334455667788u, 7, 99}, 100);
    ASSERT_EQ(bytes.size(), 100u);
    const auto m = extended::Decode(bytes.data(), bytes.size());
    ASSERT_TRUE(m);
    EXPECT_EQ(m->cookie, 0x1122334455667788u);
    EXPECT_EQ(m->seq, 7u);
    EXPECT_EQ(m->a, 99u);
    EXPECT_FALSE(extended::Decode(bytes.data(), extended::kMinMessage - 1));
    auto future = bytes;
    future[2] = extended::kVersion + 1;
    EXPECT_FALSE(extended::Decode(future.data(), future.size()));
    auto unknown = bytes;
    unknown[3] = 11;
    EXPECT_FALSE(extended::Decode(unknown.data(), unknown.size()));
}
} // namespace
