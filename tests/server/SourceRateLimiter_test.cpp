#include <gtest/gtest.h>

#include "tools/rig_test_server/SourceRateLimiter.h"

using std::chrono::milliseconds;

TEST(SourceRateLimiter, BurstThenRefillPerSource)
{
    SourceRateLimiter limiter(10.0, 3.0);
    const auto t0 = SourceRateLimiter::TimePoint{};
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(limiter.Allow(1, t0));
    EXPECT_FALSE(limiter.Allow(1, t0));
    EXPECT_TRUE(limiter.Allow(2, t0)) << "another source has its own bucket";
    EXPECT_FALSE(limiter.Allow(1, t0 + milliseconds(50)));
    EXPECT_TRUE(limiter.Allow(1, t0 + milliseconds(100)));
    EXPECT_FALSE(limiter.Allow(1, t0 + milliseconds(100)));
    // A long pause refills to the burst, not beyond it.
    const auto later = t0 + milliseconds(60000);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(limiter.Allow(1, later));
    EXPECT_FALSE(limiter.Allow(1, later));
}

TEST(SourceRateLimiter, ZeroRateIsUnlimitedAndKeepsNoTable)
{
    SourceRateLimiter limiter(0.0, 1.0);
    for (std::uint32_t source = 0; source < 1000; ++source)
        EXPECT_TRUE(limiter.Allow(source, {}));
    EXPECT_EQ(limiter.GetSourceCount(), 0u);
}

TEST(SourceRateLimiter, FullTableForgetsIdleSourcesAndRefusesWhenAllAreBusy)
{
    SourceRateLimiter limiter(1.0, 2.0, 2);
    const auto t0 = SourceRateLimiter::TimePoint{};
    EXPECT_TRUE(limiter.Allow(1, t0));
    EXPECT_TRUE(limiter.Allow(2, t0));
    EXPECT_TRUE(limiter.Allow(2, t0));
    EXPECT_FALSE(limiter.Allow(3, t0));
    // After a second source 1's bucket is full again and makes room; source 2's is not.
    EXPECT_TRUE(limiter.Allow(3, t0 + milliseconds(1000)));
    EXPECT_EQ(limiter.GetSourceCount(), 2u);
}
