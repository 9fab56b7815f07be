// Where loss begins, judged from hop counts the way real chains produce them:
// routers that limit their own answers, silent routers, loss on a link that
// every later hop shares, and the echo's end-to-end figure.
#include <gtest/gtest.h>

#include "RigInspector/PathVerdict.h"

namespace
{
struct Row
{
    const char* address; // nullptr: the hop never answered
    std::uint32_t answered;
};

struct Case
{
    const char* name;
    std::vector<Row> hops; // 10 probes each
    std::optional<double> endToEnd;
    bool bReached;
    std::optional<int> start;
    std::optional<bool> inHome;
    std::vector<int> limited; // ttls marked as limiting their own answers
    const char* code;
};

PathReport Make(const Case& c)
{
    PathReport r;
    r.ran = true;
    r.reached = c.bReached;
    int ttl = 0;
    for (const Row& row : c.hops)
    {
        PathHop hop;
        hop.ttl = ++ttl;
        if (row.address)
            hop.address = row.address;
        hop.sent = 10;
        hop.answered = row.answered;
        hop.lossPercent = 100.0 * (10 - row.answered) / 10.0;
        r.hops.push_back(hop);
    }
    return r;
}

const char* const A1 = "198.18.0.2";
const char* const A2 = "198.18.1.2";
const char* const A3 = "198.18.2.2";
const char* const S = "198.18.3.2";

const Case kCases[] = {
    {"Clean", {{A1, 10}, {A2, 10}, {A3, 10}, {S, 10}}, 0.0, true, {}, {}, {}, "no_loss"},
    {"RateLimitedRouterIsNeverBlamed",
     {{A1, 10}, {A2, 3}, {A3, 10}, {S, 10}},
     0.0,
     true,
     {},
     {},
     {2},
     "no_loss"},
    {"SilentRouter", {{A1, 10}, {nullptr, 0}, {A3, 10}, {S, 10}}, 0.0, true, {}, {}, {2}, "no_loss"},
    {"EchoLossBelowTheFloorIsNoLoss",
     {{A1, 10}, {A2, 9}, {A3, 10}, {S, 10}},
     1.0,
     true,
     {},
     {},
     {},
     "no_loss"},
    {"LossOnAMiddleLink",
     {{A1, 10}, {A2, 10}, {A3, 5}, {S, 4}},
     48.0,
     true,
     3,
     false,
     {},
     "loss_beyond_home"},
    {"LossOnTheClientsLink", {{A1, 5}, {A2, 4}, {A3, 6}, {S, 5}}, 50.0, true, 1, true, {}, "loss_in_home"},
    // Hop 1 answers half the time but hop 2 always: hop 1 only limits itself.
    {"LimitedRouterBeforeTheLoss",
     {{A1, 3}, {A2, 10}, {A3, 5}, {S, 5}},
     50.0,
     true,
     3,
     false,
     {1},
     "loss_beyond_home"},
    // A lossy hop that lost nothing by chance after the start does not move it.
    {"QuietHopAfterTheStart",
     {{A1, 10}, {A2, 6}, {A3, 10}, {S, 5}},
     40.0,
     true,
     2,
     false,
     {},
     "loss_beyond_home"},
    // One answer lost by chance at hop 1, none at hop 2: the loss begins at 3.
    {"StrayLossBeforeACleanHop",
     {{A1, 9}, {A2, 10}, {A3, 6}, {S, 6}},
     40.0,
     true,
     3,
     false,
     {},
     "loss_beyond_home"},
    {"SilentRouterInsideTheLoss",
     {{A1, 10}, {A2, 5}, {nullptr, 0}, {S, 5}},
     50.0,
     true,
     2,
     false,
     {3},
     "loss_beyond_home"},
    {"EchoLossNoHopShows", {{A1, 10}, {A2, 10}, {S, 10}}, 10.0, true, {}, {}, {}, "loss_not_located"},
    // Without the echo the server's own hop stands in for the end-to-end loss.
    {"NoEchoServerHopDecides", {{A1, 10}, {A2, 5}, {S, 5}}, {}, true, 2, false, {}, "loss_beyond_home"},
    {"NoEchoNotReached", {{A1, 10}, {A2, 5}}, {}, false, {}, {}, {}, "not_measured"},
    {"LossStartsAtTheProvidersModem",
     {{"192.168.1.1", 10}, {"100.64.0.1", 4}, {"203.0.113.1", 5}, {S, 5}},
     50.0,
     true,
     2,
     true,
     {},
     "loss_in_home"},
};

class PathVerdictTable : public testing::TestWithParam<Case>
{
};

TEST_P(PathVerdictTable, FindsWhereLossBegins)
{
    const Case& c = GetParam();
    PathReport r = Make(c);
    JudgePath(r, c.endToEnd);
    EXPECT_EQ(r.lossStartsAtHop, c.start);
    EXPECT_EQ(r.lossStartsInHome, c.inHome);
    EXPECT_EQ(r.verdictCode, c.code);
    EXPECT_FALSE(r.verdictText.empty());
    std::vector<int> limited;
    for (const PathHop& hop : r.hops)
        if (hop.rateLimited)
            limited.push_back(hop.ttl);
    EXPECT_EQ(limited, c.limited);
    if (c.start)
    {
        EXPECT_NE(r.verdictText.find("hop " + std::to_string(*c.start)), std::string::npos) << r.verdictText;
        EXPECT_NE(r.verdictText.find(*c.inHome ? "inside your home" : "beyond your home"), std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, PathVerdictTable, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PathVerdict, HomeIsHopOneAndThePrivateHopsRightAfterIt)
{
    PathReport r;
    const std::vector<std::optional<std::string>> addresses = {
        "203.0.113.9", "10.0.0.1", "172.31.255.1", "169.254.3.3", "100.127.0.1", std::nullopt, "192.168.0.1"};
    for (std::size_t i = 0; i < addresses.size(); ++i)
    {
        PathHop& hop = r.hops.emplace_back();
        hop.ttl = static_cast<int>(i + 1);
        hop.address = addresses[i];
        hop.sent = hop.answered = 10;
    }
    JudgePath(r, 0.0);
    std::vector<bool> home;
    for (const PathHop& hop : r.hops)
        home.push_back(hop.homeNetwork);
    // Hop 1 is home whatever it says; a silent hop ends the home network.
    EXPECT_EQ(home, (std::vector<bool>{true, true, true, true, true, false, false}));

    EXPECT_FALSE(IsHomeAddress(*ParseIPv4("172.32.0.1")));
    EXPECT_FALSE(IsHomeAddress(*ParseIPv4("100.128.0.1")));
    EXPECT_FALSE(IsHomeAddress(*ParseIPv4("198.18.0.1")));
    EXPECT_FALSE(IsHomeAddress(*ParseIPv4("192.169.0.1")));
}

TEST(PathVerdict, Ipv4TextOnly)
{
    EXPECT_EQ(ParseIPv4("198.18.3.2"), 0xC6120302u);
    for (const char* bad : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", "localhost", "1..2.3", "::1"})
        EXPECT_FALSE(ParseIPv4(bad)) << bad;
}

} // namespace
