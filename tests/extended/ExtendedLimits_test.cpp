// The extended service's cookies and shares, on their own with a clock of
// the test's choosing.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "tests/settings/TempDir.h"
#include "tools/rig_test_server/ExtendedCookies.h"
#include "tools/rig_test_server/ServerLimits.h"

namespace
{
using Verdict = ExtendedAdmission::Verdict;
constexpr std::uint32_t kHost = 0x7f000001, kOther = 0x7f000002;
constexpr std::uint64_t kNow = 1'800'000'010; // 10 s into a window

CookieJar::Key KeyOf(std::uint8_t fill)
{
    CookieJar::Key key;
    key.fill(fill);
    return key;
}

TEST(CookieJar, BoundToAddressPortWindowAndKey)
{
    CookieJar jar(KeyOf(1));
    const std::uint64_t cookie = jar.Issue(kHost, 5000, kNow);
    EXPECT_TRUE(jar.Valid(cookie, kHost, 5000, kNow));
    EXPECT_TRUE(jar.Valid(cookie, kHost, 5000, kNow + CookieJar::kWindowSeconds)); // the next window still
    EXPECT_FALSE(jar.Valid(cookie, kHost, 5000, kNow + 2 * CookieJar::kWindowSeconds));
    EXPECT_FALSE(jar.Valid(cookie, kHost, 5001, kNow));
    EXPECT_FALSE(jar.Valid(cookie, kOther, 5000, kNow));
    EXPECT_FALSE(jar.Valid(cookie ^ 1, kHost, 5000, kNow));
    EXPECT_FALSE(jar.Valid(0, kHost, 5000, kNow));
    // Another instance with another key does not take it; one with the same key does.
    EXPECT_FALSE(CookieJar(KeyOf(2)).Valid(cookie, kHost, 5000, kNow));
    EXPECT_TRUE(CookieJar(KeyOf(1)).Valid(cookie, kHost, 5000, kNow));

    // Rotation: the old key's cookies hold one more rotation, not two.
    jar.Rotate(KeyOf(2));
    EXPECT_TRUE(jar.Valid(cookie, kHost, 5000, kNow));
    EXPECT_NE(jar.Issue(kHost, 5000, kNow), cookie);
    jar.Rotate(KeyOf(3));
    EXPECT_FALSE(jar.Valid(cookie, kHost, 5000, kNow));
}

TEST(CookieJar, NeighbouringPortsGiveUnrelatedCookies)
{
    // What an attacker collecting Welcomes from many ports of its own sees:
    // no repeats, and no bit that stays put across them.
    CookieJar jar(KeyOf(7));
    std::set<std::uint64_t> seen;
    std::uint64_t allAnd = ~0ull, allOr = 0;
    for (std::uint16_t port = 40000; port < 40512; ++port)
    {
        const std::uint64_t cookie = jar.Issue(kHost, port, kNow);
        seen.insert(cookie);
        allAnd &= cookie;
        allOr |= cookie;
    }
    EXPECT_EQ(seen.size(), 512u);
    EXPECT_EQ(allAnd, 0u);
    EXPECT_EQ(allOr, ~0ull);
}

TEST(CookieJar, KeyFileHoldsExactly64HexDigits)
{
    TempDir dir;
    const std::string path = dir.Path() + "/key";
    std::string error;
    std::ofstream(path) << "  00112233445566778899aabbccddeeff\n00112233445566778899AABBCCDDEEFF\n";
    const auto key = ReadCookieKeyFile(path, &error);
    ASSERT_TRUE(key) << error;
    EXPECT_EQ((*key)[0], 0x00);
    EXPECT_EQ((*key)[15], 0xff);
    EXPECT_EQ((*key)[31], 0xff);
    std::ofstream(path) << "00112233";
    EXPECT_FALSE(ReadCookieKeyFile(path, &error));
    std::ofstream(path) << std::string(63, 'a') << "g";
    EXPECT_FALSE(ReadCookieKeyFile(path, &error));
    EXPECT_FALSE(ReadCookieKeyFile(dir.Path() + "/missing", &error));
    EXPECT_NE(error.find("missing"), std::string::npos);
}

TEST(ExtendedAdmission, HellosBurstThenGamePacePerSource)
{
    ExtendedLimitSettings settings;
    settings.m_HellosPerSecond = 50;
    settings.m_HelloBurst = 10;
    ExtendedAdmission admission(settings);
    const SourceRateLimiter::TimePoint t0{std::chrono::seconds(100)};
    int admitted = 0;
    for (int i = 0; i < 100; ++i)
        admitted += admission.Hello(kHost, t0) == Verdict::Admitted;
    EXPECT_EQ(admitted, 10);
    EXPECT_EQ(admission.Hello(kOther, t0), Verdict::Admitted); // another host is untouched
    EXPECT_EQ(admission.Hello(kHost, t0 + std::chrono::milliseconds(20)), Verdict::Admitted);
}

TEST(ExtendedAdmission, SessionsAndStreamsPerSourceAndInAll)
{
    ExtendedLimitSettings settings;
    settings.m_SessionsPerSource = 2;
    settings.m_MaxSessions = 3;
    settings.m_StreamsPerSource = 8;
    settings.m_StreamBudget = 8;
    settings.m_PendingPerSource = 1;
    ExtendedAdmission admission(settings);
    EXPECT_EQ(admission.OpenSession(kHost), Verdict::Admitted);
    EXPECT_EQ(admission.OpenSession(kHost), Verdict::Admitted);
    EXPECT_EQ(admission.CanOpenSession(kHost), Verdict::SourceFull);
    EXPECT_EQ(admission.OpenSession(kHost), Verdict::SourceFull);
    EXPECT_EQ(admission.OpenSession(kOther), Verdict::Admitted);
    EXPECT_EQ(admission.OpenSession(kOther + 1), Verdict::Full);
    admission.CloseSession(kHost);
    admission.CloseSession(0x0a000001); // never held: changes nothing
    EXPECT_EQ(admission.OpenSession(kOther + 1), Verdict::Admitted);
    EXPECT_EQ(admission.Sessions(), 3u);

    EXPECT_EQ(admission.OpenPending(kHost), Verdict::Admitted);
    EXPECT_EQ(admission.OpenPending(kHost), Verdict::SourceFull);
    admission.ClosePending(kHost);
    EXPECT_EQ(admission.OpenPending(kHost), Verdict::Admitted);

    // Further streams only while less than a quarter of the budget is
    // taken; a first stream until all of it is.
    EXPECT_EQ(admission.OpenStream(kHost, true), Verdict::Admitted);
    EXPECT_EQ(admission.OpenStream(kHost, false), Verdict::Admitted);
    EXPECT_EQ(admission.OpenStream(kHost, false), Verdict::Full);
    for (std::uint32_t player = 0; player < 6; ++player)
        EXPECT_EQ(admission.OpenStream(kOther + player, true), Verdict::Admitted);
    EXPECT_EQ(admission.OpenStream(kOther + 6, true), Verdict::Full);
    admission.CloseStream(kOther);
    EXPECT_EQ(admission.OpenStream(kOther + 6, true), Verdict::Admitted);
}

TEST(ExtendedAdmission, StreamsPerSource)
{
    ExtendedLimitSettings settings;
    settings.m_StreamsPerSource = 2;
    ExtendedAdmission admission(settings);
    EXPECT_EQ(admission.OpenStream(kHost, true), Verdict::Admitted);
    EXPECT_EQ(admission.OpenStream(kHost, true), Verdict::Admitted);
    EXPECT_EQ(admission.OpenStream(kHost, true), Verdict::SourceFull);
    EXPECT_EQ(admission.OpenStream(kOther, true), Verdict::Admitted);
}

TEST(TokenBucket, StartsFullAndRefillsAtItsRate)
{
    TokenBucket bucket;
    const SourceRateLimiter::TimePoint t0{std::chrono::seconds(5)};
    int taken = 0;
    for (int i = 0; i < 40; ++i)
        taken += bucket.Take(75, 25, t0);
    EXPECT_EQ(taken, 25);
    EXPECT_FALSE(bucket.Take(75, 25, t0 + std::chrono::milliseconds(10)));
    EXPECT_TRUE(bucket.Take(75, 25, t0 + std::chrono::milliseconds(14)));
}
} // namespace
