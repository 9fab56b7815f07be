// The advice rule table: each rule from findings made by hand, the ranking,
// the findings gathered from the check records, and the JSON of the advice,
// the connection and the GPU.
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "RigInspectorApp/Advice.h"
#include "RigInspectorApp/Details.h"
#include "RigInspectorApp/FindingsJson.h"
#include "RigInspectorApp/Inspector.h"

namespace
{
/// A machine that passes everything, on a cable, with a named GPU.
Findings Clean()
{
    Findings f;
    f.systemRan = true;
    f.cpuMhz = 3000;
    f.minCpuMhz = 1000;
    f.memoryMb = 4194;
    f.minMemoryMb = 127;
    f.videoMb = 4194;
    f.minVideoMb = 15;
    f.gpu = GpuInfo{"GeForce GTX 1080", "NVIDIA", "550.54.14", 8589934592ull, false};
    f.udpRan = true;
    f.udpSent = 100;
    f.connection = ConnectionInfo{"eth0", ConnectionType::Ethernet, 1000, std::nullopt, false};
    return f;
}

PathReport LossAt(int ttl, bool bInHome)
{
    PathReport path;
    path.ran = true;
    path.target = "198.18.3.2";
    for (int t = 1; t <= 4; ++t)
    {
        PathHop& hop = path.hops.emplace_back();
        hop.ttl = t;
        hop.address = "198.18." + std::to_string(t - 1) + ".1";
        hop.homeNetwork = t == 1;
    }
    path.lossStartsAtHop = ttl;
    path.lossStartsInHome = bInHome;
    return path;
}

void UdpLoss(Findings& f)
{
    f.udpLost = 12;
    f.udpLossPercent = 12.0;
}

struct Row
{
    const char* name;
    std::function<void(Findings&)> change;
    std::vector<std::string> codes; // in the advice's order
    std::vector<std::string> texts; // each in some item's text
};

const std::vector<Row> kRows = {
    {"clean", [](Findings&) {}, {}, {}},
    {"pong port held",
     [](Findings& f)
     {
         f.pongPortHeld = true;
         f.pongPort = 20000;
         f.pongPortOwners = {{4242, u"nc.openbsd"}, {17, u""}};
     },
     {"pong_port_held"},
     {"Port 20000 is held by nc.openbsd (process 4242), process 17"}},
    {"pong port held by a hidden program",
     [](Findings& f) { f.pongPortHeld = true; },
     {"pong_port_held"},
     {"does not name"}},
    {"loss, inbound reached, path unknown",
     [](Findings& f)
     {
         UdpLoss(f);
         f.inboundReached = true;
     },
     {"udp_loss_not_port_forwarding"},
     {"12% of UDP packets", "port forwarding will not help", "is not known"}},
    // Unsolicited datagrams did not arrive: forwarding may well be the fix.
    {"loss, inbound blocked",
     [](Findings& f)
     {
         UdpLoss(f);
         f.inboundReached = false;
     },
     {},
     {}},
    {"loss only in the extended step",
     [](Findings& f)
     {
         f.inboundReached = true;
         f.lossUpPercent = 0.0;
         f.lossDownPercent = 7.5;
     },
     {"udp_loss_not_port_forwarding"},
     {"7.5% of UDP packets"}},
    {"loss beyond the home network",
     [](Findings& f)
     {
         UdpLoss(f);
         f.inboundReached = true;
         f.path = LossAt(3, false);
     },
     {"udp_loss_not_port_forwarding", "loss_starts_beyond_home_network"},
     {"beyond your home network, at hop 3 (198.18.2.1)", "at hop 3 (198.18.2.1), beyond your home network",
      "internet provider"}},
    {"loss in the home network",
     [](Findings& f)
     {
         f.path = LossAt(1, true);
         f.path->hops[0].address.reset();
     },
     {"loss_starts_in_home_network"},
     {"hop 1 (no answer), inside your home network"}},
    {"grade B", [](Findings& f) { f.grade = "B"; }, {}, {}},
    {"grade C",
     [](Findings& f)
     {
         f.grade = "C";
         f.increaseMs = 85.0;
     },
     {"bufferbloat"},
     {"85 ms", "smart queue management"}},
    {"weak wifi, jittery",
     [](Findings& f)
     {
         f.connection = ConnectionInfo{"wlan0", ConnectionType::Wifi, std::nullopt, 30, false};
         f.jitterMs = 14.2;
     },
     {"wifi_weak_signal", "wifi_high_jitter"},
     {"weak (30%)", "14.2 ms", "cable"}},
    {"strong wifi, unknown signal, steady",
     [](Findings& f)
     {
         f.connection = ConnectionInfo{"wlan0", ConnectionType::Wifi, std::nullopt, std::nullopt, false};
         f.jitterMs = 3.0;
     },
     {},
     {}},
    {"jitter on a cable is no wifi advice", [](Findings& f) { f.jitterMs = 40.0; }, {}, {}},
    {"tunnel",
     [](Findings& f) {
         f.connection = ConnectionInfo{"wg0", ConnectionType::Tunnel, std::nullopt, std::nullopt, true};
     },
     {"vpn_or_tunnel"},
     {"(wg0)"}},
    {"integrated only",
     [](Findings& f)
     {
         f.gpu = GpuInfo{"Intel(R) UHD Graphics 620", "Intel", "24.0.5", 0, true};
         f.videoMb = 0;
         f.videoPassed = false;
     },
     {"gpu_integrated_only"},
     {"(Intel(R) UHD Graphics 620)", "15 MB"}},
    {"small card",
     [](Findings& f)
     {
         f.videoMb = 8;
         f.videoPassed = false;
     },
     {"gpu_below_minimum"},
     {"(GeForce GTX 1080) has 8 MB", "needs 15 MB"}},
    {"no graphics card at all",
     [](Findings& f)
     {
         f.gpu.reset();
         f.videoProbeOk = false;
         f.videoPassed = false;
         f.diagnosticCodes = {"video_no_gpu_device"};
     },
     {"gpu_not_found"},
     {"No graphics card was found", "at least 15 MB"}},
    {"driver without a version",
     [](Findings& f) { f.gpu->driverVersion.clear(); },
     {"gpu_driver_unknown"},
     {}},
    {"device present, no driver answered",
     [](Findings& f)
     {
         f.gpu.reset();
         f.diagnosticCodes = {"video_probe_failed"};
     },
     {"gpu_driver_unknown"},
     {}},
    {"slow cpu and little memory",
     [](Findings& f)
     {
         f.cpuMhz = 800;
         f.cpuPassed = false;
         f.memoryMb = 100;
         f.memoryPassed = false;
     },
     {"cpu_below_minimum", "memory_below_minimum"},
     {"800 MHz; the game needs 1000 MHz", "100 MB of memory; the game needs 127 MB"}},
    // Problems first, the table's order within a severity.
    {"ranked",
     [](Findings& f)
     {
         f.connection->vpnOrTunnel = true;
         f.grade = "F";
         f.cpuPassed = false;
     },
     {"cpu_below_minimum", "bufferbloat", "vpn_or_tunnel"},
     {}},
};

TEST(AdviceRules, EachRuleFromATableOfFindings)
{
    std::set<std::string> covered;
    for (const Row& row : kRows)
    {
        Findings f = Clean();
        row.change(f);
        const std::vector<AdviceItem> advice = MakeAdvice(f);
        std::vector<std::string> codes;
        std::string texts;
        for (const AdviceItem& item : advice)
        {
            codes.push_back(item.code);
            covered.insert(item.code);
            texts += item.text + "\n";
            EXPECT_EQ(item.text.find('{'), std::string::npos) << row.name << ": " << item.text;
        }
        EXPECT_EQ(codes, row.codes) << row.name;
        for (const std::string& text : row.texts)
            EXPECT_NE(texts.find(text), std::string::npos) << row.name << ": no \"" << text << "\" in\n"
                                                           << texts;
    }
    for (const AdviceRule& rule : kAdviceRules)
        EXPECT_TRUE(covered.count(rule.code)) << rule.code << " has no row";
}

TEST(AdviceRules, FindingsGatheredFromTheRecords)
{
    CheckResults results;
    results.system.ran = true;
    results.system.cpuPassed = false;
    results.system.memoryPassed = true;
    results.system.videoProbeOk = true;
    results.system.videoPassed = true;
    results.udp.ran = true;
    results.udp.pongPortBound = false;
    results.udp.pongPort = 20000;
    results.udp.pongPortOwners = {{7, u"game.exe"}};
    results.connection = ConnectionInfo{"lo", ConnectionType::Loopback, std::nullopt, std::nullopt, false};

    ExtendedResult extended;
    extended.ran = true;
    extended.grade = "D";
    extended.inboundReached = true;
    extended.path = LossAt(2, false);
    extended.path->ran = false; // not traced: its verdict is no finding

    const Findings f = GatherFindings(results, &extended, {1000, 15, 127}, {{"video_probe_failed", u"x"}});
    EXPECT_FALSE(f.cpuPassed);
    EXPECT_EQ(f.minCpuMhz, 1000);
    EXPECT_TRUE(f.pongPortHeld);
    ASSERT_EQ(f.pongPortOwners.size(), 1u);
    EXPECT_EQ(f.grade, "D");
    EXPECT_EQ(f.inboundReached, true);
    EXPECT_FALSE(f.path);
    EXPECT_EQ(f.diagnosticCodes, std::vector<std::string>{"video_probe_failed"});

    // A system check that did not run fails nothing; a failed exchange has no figures.
    results.system.ran = false;
    extended.failure = "no answer";
    const Findings g = GatherFindings(results, &extended, {}, {});
    EXPECT_TRUE(g.cpuPassed);
    EXPECT_TRUE(g.grade.empty());
    EXPECT_TRUE(MakeAdvice(g).size() == 1 && MakeAdvice(g)[0].code == "pong_port_held");
}

// Both desktops show what CollectDetails gives: the advice comes first, and
// the extended step's findings count once it has handed them over.
TEST(AdviceDetails, AdviceAtTheTopOfTheDetails)
{
    g_inspector.m_Results = CheckResults{};
    GetDiagnostics().Clear();
    EXPECT_TRUE(CollectDetails().empty());

    g_inspector.m_Results.system.ran = true;
    g_inspector.m_Results.system.cpuPassed = false;
    g_inspector.m_Results.system.memoryPassed = true;
    g_inspector.m_Results.system.videoProbeOk = true;
    g_inspector.m_Results.system.videoPassed = true;
    GetDiagnostics().Add("pongs_refused", u"Some pongs were refused.");
    ExtendedResult extended;
    extended.ran = true;
    extended.grade = "F";
    extended.increaseMs = 450.0;
    SetExtendedForDetails(extended);

    const std::vector<DetailSection> sections = CollectDetails();
    ASSERT_EQ(sections.size(), 2u);
    EXPECT_EQ(sections[0].title, u"Advice");
    ASSERT_EQ(sections[0].lines.size(), 2u);
    EXPECT_EQ(sections[0].lines[0].rfind(u"Problem: The processor runs at", 0), 0u);
    EXPECT_EQ(sections[0].lines[1].rfind(u"Warning: Your delay grows by 450 ms", 0), 0u);
    EXPECT_EQ(sections[1].title, u"Diagnostics");

    g_inspector.m_Results = CheckResults{};
    GetDiagnostics().Clear();
    SetExtendedForDetails(ExtendedResult{});
}

TEST(AdviceJson, TypedEvidenceAndNullsForWhatIsNotTold)
{
    Findings f = Clean();
    UdpLoss(f);
    f.inboundReached = true;
    f.path = LossAt(3, false);
    const nlohmann::ordered_json advice = AdviceToJson(MakeAdvice(f));
    ASSERT_EQ(advice.size(), 2u);
    const auto& first = advice[0];
    EXPECT_EQ(first["code"], "udp_loss_not_port_forwarding");
    EXPECT_EQ(first["severity"], "problem");
    EXPECT_EQ(first["evidence"]["udp_loss_percent"], 12.0);
    EXPECT_EQ(first["evidence"]["inbound_reached"], true);
    EXPECT_EQ(first["evidence"]["loss_starts_at_hop"], 3);
    EXPECT_EQ(first["evidence"]["hop_address"], "198.18.2.1");
    EXPECT_FALSE(first["evidence"].contains("where")) << "a phrase is no evidence";

    const auto wifi =
        ConnectionToJson(ConnectionInfo{"wlan0", ConnectionType::Wifi, std::nullopt, 61, false});
    EXPECT_EQ(
        wifi.dump(),
        R"({"interface":"wlan0","type":"wifi","link_mbps":null,"wifi_signal_percent":61,"vpn_or_tunnel":false})");
    EXPECT_TRUE(ConnectionToJson(std::nullopt).is_null());

    // An 80 GB card in full bytes, past any 32-bit count.
    const auto gpu = GpuToJson(GpuInfo{"NVIDIA H100 80GB HBM3", "NVIDIA", "", 85520809984ull, false});
    EXPECT_EQ(gpu["memory_bytes"].get<std::uint64_t>(), 85520809984ull);
    EXPECT_TRUE(gpu["driver_version"].is_null());
    EXPECT_TRUE(GpuToJson(std::nullopt).is_null());
}
} // namespace
