// The bundle rendered from hand-made documents (keys of every kind the
// document can carry, some absent, some hostile), its charts, the history
// file's keeping rules, and the details window's save and open actions.
#include <gtest/gtest.h>

#include "RigInspector/Diagnostics.h"
#include "RigInspectorApp/Bundle.h"
#include "RigInspectorApp/DesktopRun.h"
#include "RigInspectorApp/ReportActions.h"
#include "RigInspectorApp/RunHistory.h"
#include "RigInspectorApp/RunRecord.h"
#include "RigInspectorApp/SvgChart.h"
#include "RigInspectorApp/headless/HistoryText.h"
#include "tests/settings/TempDir.h"

using nlohmann::ordered_json;

namespace
{
/// The document with every optional key the front ends may add.
ordered_json FullDocument()
{
    return ordered_json::parse(R"({
      "tool": "rig_inspector_cli", "version": "1.1", "passed": false,
      "measured": {"cpu_speed_mhz": 3400, "video_memory_mb": 8000, "system_memory_mb": 16000,
                   "system_memory_bytes": 17179869184, "video_memory_bytes": 8589934592},
      "checks": {"udp": {"verdict": "failed", "sent": 10, "answered": 8, "loss_percent": 20.0,
                         "min_ping_ms": 31, "avg_ping_ms": 42, "max_ping_ms": 97},
                 "tcp": {"verdict": "passed", "upload_kb_per_sec": 812.5, "download_kb_per_sec": 2048.0}},
      "diagnostics": [{"code": "options_write_failed",
                       "message": "The game's options could not be written: </script><!--<script> & \"quotes\""}],
      "connection": {"interface": "wlan0", "type": "wifi", "link_mbps": 866, "wifi_signal_percent": 41,
                     "vpn_or_tunnel": false, "roaming_count": 3},
      "gpu": {"name": "Radeon <RX> 6600", "vendor": "AMD", "driver_version": "23.1", "memory_bytes": 8589934592},
      "advice": [{"code": "wifi_weak", "severity": "warning", "text": "The Wi-Fi signal is weak.",
                  "evidence": {"wifi_signal_percent": 41, "interface": "wlan0"}}],
      "extended": {"ran": true, "failure": null,
                   "latency_idle_ms": {"p50": 21.5, "p90": 25.0, "min": 19.0, "samples": 100},
                   "latency_loaded_ms": {"p50": 88.0, "p90": 140.0, "samples": 300, "increase": 66.5, "grade": "C"},
                   "path": {"target": "198.18.0.9", "probes_per_hop": 10, "reached": true, "loss_starts_at_hop": 3,
                            "verdict": {"code": "loss_beyond_home", "text": "Loss starts at your provider."},
                            "hops": [{"ttl": 1, "address": "192.168.1.1", "sent": 10, "answered": 10,
                                      "loss_percent": 0, "rtt_ms": {"min": 1.0, "p50": 1.5, "max": 3.0},
                                      "rate_limited": false},
                                     {"ttl": 2, "address": null, "sent": 10, "answered": 0, "loss_percent": 100,
                                      "rtt_ms": null, "rate_limited": true},
                                     {"ttl": 3, "address": "198.18.0.9", "sent": 10, "answered": 7,
                                      "loss_percent": 30, "rtt_ms": {"min": 20.0, "p50": 24.0, "max": 60.0},
                                      "rate_limited": false}]}},
      "finished_at": "2026-11-25T19:42:05+01:00"
    })");
}

std::string Between(const std::string& text, const std::string& open, const std::string& close)
{
    const std::size_t start = text.find(open);
    if (start == std::string::npos)
        return {};
    const std::size_t end = text.find(close, start + open.size());
    return text.substr(start + open.size(), end - start - open.size());
}

/// What a support tool does with the element's text for the exact bytes.
std::string Unescape(std::string text)
{
    for (const auto& [from, to] : {std::pair<std::string, std::string>{"<\\/", "</"}, {"<\\u0021", "<!"}})
        for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
            text.replace(at, from.size(), to);
    return text;
}

std::size_t Count(const std::string& text, const std::string& what)
{
    std::size_t n = 0;
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size())
        ++n;
    return n;
}

BundleInput Input(const ordered_json& document, std::vector<ordered_json> history = {})
{
    BundleInput input;
    input.pResults = &document;
    input.resultsText = ResultsText(document);
    input.reportDocument = "<html><body><font style=\"font-family:arial; font-size:9pt\">Checking OS...<font "
                           "color=blue>passed.</font> <a href=\"https://example.com/help\">click here</a>"
                           "</font></body></html>";
    input.history = std::move(history);
    return input;
}
} // namespace

// The embedded document survives hostile text: the script element ends only
// where the bundle ends it, JSON.parse sees the same values, and undoing the
// two escapes gives the --json bytes back.
TEST(Bundle, EmbedsTheDocumentSoItReadsBackIdentically)
{
    const ordered_json document = FullDocument();
    const BundleInput input = Input(document);
    const std::string html = RenderBundle(input);

    const std::string open = "<script type=\"application/json\" id=\"rig-results\">";
    const std::string embedded = Between(html, open, "</script>");
    EXPECT_EQ(Count(html, "</script"), 1u);
    EXPECT_EQ(embedded.find("<!"), std::string::npos);
    EXPECT_EQ(Unescape(embedded), input.resultsText);
    EXPECT_EQ(ordered_json::parse(embedded), document);
}

// Each key of the document has its section, whatever other branch of the
// tool added it; keys not known here still show by name.
TEST(Bundle, RendersASectionForEveryKeyThatIsThere)
{
    const std::string html = RenderBundle(Input(FullDocument()));
    for (const char* id : {"id=\"report\"", "id=\"advice\"", "id=\"system\"", "id=\"connection\"",
                           "id=\"network\"", "id=\"diagnostics\"", "id=\"extended\"",
                           "id=\"chart-latency-t\"", "id=\"chart-hop-loss-t\"", "id=\"chart-hop-rtt-t\""})
        EXPECT_NE(html.find(id), std::string::npos) << id;
    EXPECT_NE(html.find("Checking OS...<font color=blue>passed.</font>"), std::string::npos); // as shown
    EXPECT_NE(html.find("<a href=\"https://example.com/help\">click here</a>"), std::string::npos);
    EXPECT_NE(html.find("Radeon &lt;RX&gt; 6600"), std::string::npos);
    EXPECT_NE(html.find("<th>Roaming count</th><td>3</td>"), std::string::npos);
    EXPECT_NE(html.find("Wi-Fi signal (%)</th><td>41</td>"), std::string::npos);
    EXPECT_NE(html.find("badge warning"), std::string::npos);
    EXPECT_NE(html.find("Evidence: Wi-Fi signal (%): 41; Interface: wlan0"), std::string::npos);
    EXPECT_NE(html.find("Loss starts at your provider."), std::string::npos);
    EXPECT_NE(html.find("<td>2</td><td class=\"n\">no answer</td>"), std::string::npos);
    EXPECT_NE(html.find("&lt;/script&gt;&lt;!--&lt;script&gt; &amp; &quot;quotes&quot;"), std::string::npos);

    // Nothing that would make a browser fetch anything.
    for (const char* fetch : {" src=", "<link", "url(", "@import", "<iframe", "<img"})
        EXPECT_EQ(html.find(fetch), std::string::npos) << fetch;

    ordered_json bare = FullDocument();
    for (const char* key : {"connection", "gpu", "advice", "extended", "diagnostics"})
        bare.erase(key);
    const std::string plain = RenderBundle(Input(bare));
    for (const char* id : {"id=\"advice\"", "id=\"connection\"", "id=\"diagnostics\"", "id=\"extended\"",
                           "Graphics card", "id=\"history\""})
        EXPECT_EQ(plain.find(id), std::string::npos) << id;
}

// The history charts are dated and gapped where a run had no figure; the
// previous run's diagnostics are named, not this run's.
TEST(Bundle, HistoryChartsRunsOverTimeAndNamesThePreviousRunsFailures)
{
    ordered_json current = FullDocument();
    std::vector<ordered_json> history;
    for (int i = 0; i < 3; ++i)
    {
        ordered_json run = FullDocument();
        run["finished_at"] = "2026-11-2" + std::to_string(i) + "T20:00:00+01:00";
        run["checks"]["udp"]["avg_ping_ms"] = i == 1 ? ordered_json(nullptr) : ordered_json(40 + i);
        run["diagnostics"] = ordered_json::array();
        history.push_back(run);
    }
    history.back()["diagnostics"].push_back({{"code", "port_busy"}, {"message", "Port 20000 was held."}});
    history.push_back(current);
    const std::string html = RenderBundle(Input(current, history));

    const std::string section = Between(html, "id=\"history\"", "</section>");
    EXPECT_NE(section.find("Previous run, 2026-11-22 20:00"), std::string::npos);
    EXPECT_NE(section.find("Port 20000 was held."), std::string::npos);
    EXPECT_NE(section.find("<td>2026-11-20 20:00</td>"), std::string::npos);
    const std::string ping = Between(section, "id=\"chart-history-ping-t\"", "</svg>");
    EXPECT_NE(ping.find(">11-20 20:00<"), std::string::npos);
    // Run 2 has no ping: the line stops and starts again.
    EXPECT_EQ(Count(Between(ping, "class=\"line\"", "/>"), "M"), 2u);
}

TEST(SvgChart, CarriesTitleDescriptionAxisLabelsAndOnlyTheBarsThereAre)
{
    Chart chart{"c1",
                "Latency <idle>",
                "Round trips.",
                "Statistic",
                "ms",
                {"min", "p50"},
                {{"Idle", "#123456", {10.0, std::nullopt}, {}}, {"Loaded", "#654321", {12.0, 48.0}, {}}}};
    const std::string svg = BarChartSvg(chart);
    EXPECT_NE(svg.find("<title id=\"c1-t\">Latency &lt;idle&gt;</title>"), std::string::npos);
    EXPECT_NE(svg.find("aria-labelledby=\"c1-t c1-d\""), std::string::npos);
    EXPECT_NE(svg.find(">Statistic</text>"), std::string::npos);
    EXPECT_NE(svg.find(">ms</text>"), std::string::npos);
    EXPECT_EQ(Count(svg, "fill=\"#123456\""), 2u); // the legend's swatch and one bar
    EXPECT_EQ(Count(svg, "fill=\"#654321\""), 3u);
    // A round scale above the tallest bar: 0 to 50 in steps of 10.
    EXPECT_NE(svg.find(">50</text>"), std::string::npos);
    EXPECT_EQ(svg.find(">60</text>"), std::string::npos);
    EXPECT_EQ(FormatNumber(2.5), "2.5");
    EXPECT_EQ(FormatNumber(3.0), "3");
    EXPECT_EQ(FormatNumber(1436229.4249), "1436229.42");
}

class RunHistoryTest : public ::testing::Test
{
protected:
    static ordered_json Run(int n) { return {{"run", n}, {"finished_at", "2026-11-25T10:00:00+00:00"}}; }
    std::vector<int> Numbers() const
    {
        std::vector<int> numbers;
        for (const ordered_json& run : m_History.Load())
            numbers.push_back(run["run"].get<int>());
        return numbers;
    }
    TempDir m_Temp;
    RunHistory m_History{std::filesystem::path(m_Temp.Path()) / "state" / "nested"};
    std::string m_Why;
};

TEST_F(RunHistoryTest, KeepsTheLastHundredRunsInOrder)
{
    for (int i = 1; i <= 105; ++i)
        ASSERT_TRUE(m_History.Append(Run(i), m_Why)) << m_Why;
    const std::vector<int> numbers = Numbers();
    ASSERT_EQ(numbers.size(), RunHistory::kKeptRuns);
    EXPECT_EQ(numbers.front(), 6);
    EXPECT_EQ(numbers.back(), 105);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    // One line a run, and nothing left beside it from the rewrites.
    EXPECT_EQ(Count(TempDir::Read(m_History.GetFile().string()), "\n"), 100u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_History.GetFile().parent_path()), {}), 1);
}

// A process killed mid-write leaves half a line: it is skipped when read,
// and the next run's line does not get glued to it.
TEST_F(RunHistoryTest, SkipsATornLastLineAndRepairsItOnTheNextRun)
{
    ASSERT_TRUE(m_History.Append(Run(1), m_Why));
    ASSERT_TRUE(m_History.Append(Run(2), m_Why));
    const std::string file = m_History.GetFile().string();
    TempDir::Write(file, TempDir::Read(file) + "{\"run\": 3, \"finished_");
    EXPECT_EQ(Numbers(), (std::vector<int>{1, 2}));
    ASSERT_TRUE(m_History.Append(Run(4), m_Why));
    EXPECT_EQ(Numbers(), (std::vector<int>{1, 2, 4}));
    EXPECT_EQ(Count(TempDir::Read(file), "\n"), 3u);
}

TEST_F(RunHistoryTest, AFolderThatCannotBeMadeIsADiagnosticNotAFailure)
{
    TempDir::Write(m_Temp.File("state"), "a file where the folder should be");
    EXPECT_FALSE(m_History.Append(Run(1), m_Why));
    EXPECT_NE(m_Why.find("cannot create"), std::string::npos) << m_Why;

    GetDiagnostics().Clear();
    EXPECT_FALSE(RecordRun(Run(1), m_History.GetFile().parent_path()));
    const std::vector<Diagnostic> diagnostics = GetDiagnostics().List();
    ASSERT_EQ(diagnostics.size(), 1u);
    EXPECT_EQ(diagnostics[0].code, kHistoryWriteFailed);
    GetDiagnostics().Clear();
    EXPECT_TRUE(m_History.Load().empty());
}

// What the last kept run could not do (the game's options, say) heads the
// next run's details; a run that had nothing to say adds no section.
TEST(RunRecord, TheLastKeptRunsDiagnosticsBecomeTheNextRunsDetails)
{
    ordered_json earlier = FullDocument();
    ordered_json last = FullDocument();
    last["diagnostics"] = ordered_json::array(
        {{{"code", "options_write_failed"}, {"message", "The game's options could not be written."}}});
    const std::optional<DetailSection> section = PreviousRunSection({earlier, last});
    ASSERT_TRUE(section);
    EXPECT_EQ(section->title, u"Previous run (2026-11-25 19:42)");
    EXPECT_EQ(section->lines, std::vector<tstring>{u"The game's options could not be written."});

    last["diagnostics"] = ordered_json::array();
    EXPECT_FALSE(PreviousRunSection({earlier, last}));
    EXPECT_FALSE(PreviousRunSection({}));
}

// A player who pressed Next before the checks ended and whose Accept could not
// write still gets told next time; an early exit with nothing to say is not kept.
TEST(RunRecord, AnEarlyExitIsKeptOnlyWhenTheOptionsCouldNotBeWritten)
{
    const std::vector<Diagnostic> failed{{"pong_port_held", u"held"},
                                         {"options_write_failed", u"not written"}};
    const std::vector<Diagnostic> other{{"pong_port_held", u"held"}};
    EXPECT_TRUE(WorthRecording(true, {}));
    EXPECT_TRUE(WorthRecording(false, failed));
    EXPECT_FALSE(WorthRecording(false, other));
    EXPECT_FALSE(WorthRecording(false, {}));
}

/// text has pattern's shape: '#' any digit, '~' a sign, anything else itself.
bool HasShape(const std::string& text, const std::string& pattern)
{
    if (text.size() != pattern.size())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const char c = text[i];
        const bool bFits = pattern[i] == '#'   ? c >= '0' && c <= '9'
                           : pattern[i] == '~' ? c == '+' || c == '-'
                                               : c == pattern[i];
        if (!bFits)
            return false;
    }
    return true;
}

TEST(RunRecord, TimesAreLocalIsoWithOffsetAndTheFileNameIsDated)
{
    // The local day is the 25th or a neighbour, whatever the time zone.
    const std::time_t t = 1764099725; // 2025-11-25 19:42:05 UTC
    EXPECT_TRUE(HasShape(IsoLocalTime(t), "2025-11-2#T##:##:05~##:##")) << IsoLocalTime(t);
    EXPECT_TRUE(HasShape(BundleFileName(t), "rig-inspector-2025112#-####05.html")) << BundleFileName(t);
}

TEST(HistoryText, OneLineARunWithItsFiguresAndDiagnostics)
{
    ordered_json run = FullDocument();
    const std::string text = HistoryTableText({run}, u8"/state/history.jsonl");
    EXPECT_EQ(text.rfind("Runs kept in /state/history.jsonl: 1\n", 0), 0u) << text;
    EXPECT_NE(
        text.find(
            "2026-11-25 19:42  failed       42      20    812.5       2048  C      options_write_failed\n"),
        std::string::npos)
        << text;
    EXPECT_EQ(HistoryTableText({}, u8"h"), "Runs kept in h: 0\n");
}

namespace
{
class FakeActionsUi : public IReportActionsUi
{
public:
    std::optional<std::filesystem::path> AskSavePath(const std::filesystem::path& suggested) override
    {
        m_Suggested = suggested;
        return m_Answer;
    }
    bool OpenInBrowser(const std::filesystem::path& file) override
    {
        m_Opened = file;
        return m_bBrowser;
    }
    void ShowError(const tstring& text) override { m_Errors.push_back(text); }

    std::optional<std::filesystem::path> m_Answer;
    bool m_bBrowser = true;
    std::filesystem::path m_Suggested, m_Opened;
    std::vector<tstring> m_Errors;
};
} // namespace

TEST(ReportActions, SavesWhereChosenOpensFromTheTemporaryFolderAndSaysWhatFailed)
{
    TempDir temp;
    FakeActionsUi ui;
    int renders = 0;
    ReportActions actions(
        ui, [&renders] { return "<html>" + std::to_string(++renders) + "</html>"; },
        [] { return std::time_t(1764099725); });
    EXPECT_EQ(actions.SuggestedPath().filename(), BundleFileName(1764099725));

    EXPECT_FALSE(actions.Save()); // cancelled: nothing rendered or written
    EXPECT_EQ(ui.m_Suggested, actions.SuggestedPath());
    EXPECT_EQ(renders, 0);

    ui.m_Answer = temp.File("saved.html");
    EXPECT_TRUE(actions.Save());
    EXPECT_EQ(TempDir::Read(temp.File("saved.html")), "<html>1</html>");

    EXPECT_TRUE(actions.Open());
    EXPECT_EQ(ui.m_Opened, std::filesystem::temp_directory_path() / ui.m_Opened.filename());
    EXPECT_EQ(TempDir::Read(ui.m_Opened.string()), "<html>2</html>");
    std::filesystem::remove(ui.m_Opened);
    EXPECT_TRUE(ui.m_Errors.empty());

    ui.m_Answer = temp.File("no-such-folder/saved.html");
    EXPECT_FALSE(actions.Save());
    ui.m_bBrowser = false;
    EXPECT_FALSE(actions.Open());
    std::filesystem::remove(ui.m_Opened);
    ASSERT_EQ(ui.m_Errors.size(), 2u);
    EXPECT_NE(ui.m_Errors[0].find(u"could not be written"), tstring::npos);
    EXPECT_NE(ui.m_Errors[1].find(u"No web browser"), tstring::npos);
}
