// The headless front end's terminal text and its JSON and exit status.
#include <gtest/gtest.h>

#include "RigInspectorApp/ResultsJson.h"
#include "RigInspectorApp/headless/ReportText.h"

namespace
{
std::string Plain(std::initializer_list<std::u16string_view> fragments)
{
    ReportText text(false);
    std::string out;
    for (auto fragment : fragments)
        out += text.Feed(fragment);
    return out + text.Finish();
}

TEST(ReportText, ReportFragmentsBecomeReadableLines)
{
    const struct
    {
        std::initializer_list<std::u16string_view> fragments;
        std::string text;
    } cases[] = {
        {{u"<B><font>Rig Inspector v1.1</font><br></B>", u"<br>Checking OS...",
          u"<font color=blue>passed.</font>", u"<br>"},
         "Rig Inspector v1.1\n\nChecking OS...passed.\n"},
        {{u"<font color=red>failed. please <a href=\"http://www.dunmore-nine.example/x\" "
          u"target=_blank>click here</a> for more info.</font>"},
         "failed. please click here (http://www.dunmore-nine.example/x) for more info.\n"},
        // A link whose text is its address is not repeated.
        {{u"<a href=\"http://a.example/\" target=_blank>", u"http://a.example/", u"</a>."},
         "http://a.example/.\n"},
        {{u"&lt;b&gt; &amp; &#65;&#x42;&nbsp;&quot;&bogus; R&D 50%"}, "<b> & AB \"&bogus; R&D 50%\n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Plain(c.fragments), c.text);
}

TEST(ReportText, ColoursOnlyWhenAskedAndAlwaysReset)
{
    ReportText text(true);
    EXPECT_EQ(text.Feed(u"<font color=red>x<font color=black>y</font>z</font>"),
              "\x1b[31mx\x1b[39my\x1b[31mz\x1b[39m");
    EXPECT_EQ(text.Feed(u"<b><font color=blue>ok"), "\x1b[1m\x1b[34mok");
    EXPECT_EQ(text.Finish(), "\x1b[0m\n");
}

CheckResults AllPassed()
{
    CheckResults r;
    r.system = {true, true, 2400, 2399, true, true, 128, true, 4194, true};
    r.firewall.ran = true;
    r.firewall.passed = true;
    return r;
}

TEST(ResultsJson, ExitStatusCountsEveryCheckThatRan)
{
    CheckResults r = AllPassed();
    EXPECT_EQ(CheckExitStatus(r), 0); // the network checks did not run
    r.udp.ran = true;                 // ran and lost pings
    EXPECT_EQ(CheckExitStatus(r), 1);
    r.udp.passed = true;
    EXPECT_EQ(CheckExitStatus(r), 0);
    r.system.videoProbeOk = false; // "error!" is not a pass
    EXPECT_EQ(CheckExitStatus(r), 1);
}

TEST(ResultsJson, CarriesVerdictsMeasurementsAndRecommendation)
{
    CheckResults r = AllPassed();
    r.system.videoProbeOk = false;
    r.system.videoPassed = false;
    r.firewall.comHresult = static_cast<std::int32_t>(0x80010106u);
    r.udp.ran = true;
    r.udp.answered = 0;
    r.udp.avgPingMs = 0; // printed as 0 when nothing came back
    RunOutcome outcome;
    outcome.cpuSpeedMhz = 2399;
    outcome.videoMemoryMb = 0;
    outcome.systemMemoryMb = 4194;
    outcome.optionsWritten = true;
    outcome.diagnostics = {{"host_not_ipv4", u"The [tcp] host \"\u00e9\" is not an IPv4 address."}};
    r.system.systemMemoryBytes = 6ull << 30; // past what the report's 32-bit figure can hold

    const auto j = ResultsToJson(r, outcome);
    EXPECT_EQ(j["diagnostics"], nlohmann::ordered_json::parse(R"([{"code": "host_not_ipv4",
        "message": "The [tcp] host \"\u00e9\" is not an IPv4 address."}])"));
    EXPECT_EQ(j["measured"]["system_memory_bytes"], 6ull << 30);
    EXPECT_EQ(j["passed"], false);
    EXPECT_EQ(j["checks"]["system"]["verdict"], "failed");
    EXPECT_EQ(j["checks"]["system"]["video"]["verdict"], "error");
    EXPECT_EQ(j["checks"]["system"]["cpu"]["speed_mhz"], 2399);
    EXPECT_EQ(j["checks"]["system"]["memory"]["memory_mb"], 4194u);
    EXPECT_EQ(j["checks"]["firewall"]["com_hresult"], "0x80010106");
    EXPECT_EQ(j["checks"]["tcp"]["verdict"], "not_run");
    EXPECT_TRUE(j["checks"]["udp"]["avg_ping_ms"].is_null());
    EXPECT_EQ(j["measured"]["system_memory_mb"], 4194);
    EXPECT_EQ(j["recommendation"]["tier"], "low");
    EXPECT_EQ(j["options_written"], true);
    EXPECT_TRUE(j["patcher"]["started"].is_null());
}
} // namespace
