#include "Bundle.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "SvgChart.h"

using nlohmann::ordered_json;

namespace
{
constexpr char kStyle[] = R"css(
:root{--ink:#1d2733;--muted:#5b6878;--line:#d8dee6;--card:#fff;--bg:#f3f5f8;--accent:#1f5f99;
--good:#1e7b45;--bad:#b3261e;--warn:#9a6700;--info:#1f5f99}
*{box-sizing:border-box}
body{margin:0;background:var(--bg);color:var(--ink);font:14px/1.45 "Segoe UI",system-ui,-apple-system,"Liberation Sans",Arial,sans-serif}
header{background:#17324d;color:#fff;padding:22px 32px 18px}
header h1{margin:0;font-size:22px;font-weight:600;letter-spacing:.2px}
header .meta{margin-top:4px;color:#c9d6e3;font-size:13px}
main{max-width:1040px;margin:0 auto;padding:20px 24px 40px}
section{background:var(--card);border:1px solid var(--line);border-radius:8px;padding:16px 20px;margin:0 0 16px}
h2{font-size:16px;margin:0 0 12px;color:#17324d;border-bottom:1px solid var(--line);padding-bottom:6px}
h3{font-size:14px;margin:14px 0 8px;color:var(--muted)}
table{border-collapse:collapse;font-size:13px}
th,td{text-align:left;padding:4px 10px 4px 0;border-bottom:1px solid #edf0f4;vertical-align:top}
th{color:var(--muted);font-weight:600;white-space:nowrap}
figure .table td:first-child{white-space:nowrap}figure .table th{white-space:normal}
td.n,th.n{text-align:right;font-variant-numeric:tabular-nums}
table.kv th{width:220px;font-weight:500}
.badge{display:inline-block;padding:1px 8px;border-radius:10px;font-size:12px;font-weight:600;color:#fff;background:var(--muted)}
.passed{background:var(--good)}.failed,.error,.problem{background:var(--bad)}.warning{background:var(--warn)}
.info{background:var(--info)}.not_run{background:#8a96a3}
.summary{display:flex;flex-wrap:wrap;gap:10px;margin:0 0 16px}
.tile{flex:1 1 150px;background:var(--card);border:1px solid var(--line);border-radius:8px;padding:10px 14px}
.tile b{display:block;font-size:20px;font-weight:600}.tile span{color:var(--muted);font-size:12px}
.report{border:1px solid var(--line);border-radius:6px;padding:10px 12px;background:#fff;max-height:none}
.report a,.note a{color:var(--accent)}
figure{margin:8px 0 14px;display:flex;flex-wrap:wrap;gap:18px;align-items:flex-start}
figure .charts{flex:1 1 440px;max-width:520px}
figure .table{flex:1 1 320px;overflow:auto;max-height:640px}
figcaption{flex-basis:100%;font-weight:600;color:#17324d}
svg.chart{width:100%;height:auto;display:block;font-family:inherit}
svg .grid line{stroke:#e3e8ee}svg .axis{stroke:#8a96a3}
svg .tick{font-size:11px;fill:var(--muted)}svg .label{font-size:12px;fill:var(--ink)}
svg .line{fill:none;stroke-width:2}svg .dots{fill:none;stroke-width:6;stroke-linecap:round}
svg .whisker{stroke:#1d2733;stroke-width:1.5}
ul.advice{list-style:none;padding:0;margin:0}ul.advice li{padding:6px 0;border-bottom:1px solid #edf0f4}
.evidence{color:var(--muted);font-size:12px}
.note{color:var(--muted);font-size:12.5px}
code{font-family:"Cascadia Mono",Consolas,"Liberation Mono",monospace;font-size:12px}
footer{color:var(--muted);font-size:12px;text-align:center;margin-top:8px}
@media print{body{background:#fff}header{background:#fff;color:#000;border-bottom:2px solid #000}
header .meta{color:#333}section,.tile{break-inside:avoid;border-color:#bbb}figure .table{max-height:none;overflow:visible}}
)css";

const ordered_json* Find(const ordered_json& j, const char* key)
{
    if (!j.is_object())
        return nullptr;
    const auto it = j.find(key);
    return it == j.end() ? nullptr : &*it;
}

/// The value at a path of keys, or null.
const ordered_json* At(const ordered_json& j, std::initializer_list<const char*> path)
{
    const ordered_json* p = &j;
    for (const char* key : path)
        if ((p = Find(*p, key)) == nullptr)
            return nullptr;
    return p;
}

std::optional<double> Number(const ordered_json* p)
{
    return p != nullptr && p->is_number() ? std::optional<double>(p->get<double>()) : std::nullopt;
}

std::string Text(const ordered_json& v)
{
    if (v.is_null())
        return "—";
    if (v.is_string())
        return v.get<std::string>();
    if (v.is_boolean())
        return v.get<bool>() ? "yes" : "no";
    if (v.is_number_integer() || v.is_number_unsigned())
        return v.dump();
    if (v.is_number())
        return FormatNumber(v.get<double>());
    if (v.is_array())
    {
        std::string out;
        for (const auto& item : v)
            out += (out.empty() ? "" : ", ") + Text(item);
        return out.empty() ? "none" : out;
    }
    return v.dump();
}

std::string Cell(const ordered_json* p)
{
    return p == nullptr ? "—" : HtmlEscape(Text(*p));
}

std::string Badge(const std::string& verdict)
{
    std::string cls;
    for (char c : verdict)
        cls += std::isalnum(static_cast<unsigned char>(c)) || c == '_' ? c : '_';
    std::string shown = verdict;
    std::replace(shown.begin(), shown.end(), '_', ' ');
    return "<span class=\"badge " + cls + "\">" + HtmlEscape(shown) + "</span>";
}

/// Labels for the keys we know; any other key is shown by its own name.
std::string Label(const std::string& key)
{
    static const std::map<std::string, std::string> kLabels = {
        {"os", "Operating system"},
        {"cpu", "CPU clock"},
        {"video", "Video memory"},
        {"memory", "System memory"},
        {"cpu_speed_mhz", "CPU clock (MHz)"},
        {"video_memory_mb", "Video memory (report MB)"},
        {"video_memory_bytes", "Video memory (bytes)"},
        {"system_memory_mb", "System memory (report MB)"},
        {"system_memory_bytes", "System memory (bytes)"},
        {"interface", "Interface"},
        {"type", "Type"},
        {"link_mbps", "Link speed (Mbit/s)"},
        {"wifi_signal_percent", "Wi-Fi signal (%)"},
        {"vpn_or_tunnel", "VPN or tunnel"},
        {"name", "Name"},
        {"vendor", "Vendor"},
        {"driver_version", "Driver version"},
        {"memory_bytes", "Memory (bytes)"},
    };
    if (const auto it = kLabels.find(key); it != kLabels.end())
        return it->second;
    std::string text = key;
    std::replace(text.begin(), text.end(), '_', ' ');
    if (!text.empty())
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

/// Every key of an object as a row: what a newer build adds shows up too.
std::string KeyValueTable(const ordered_json& object)
{
    std::string html = "<table class=\"kv\">";
    for (const auto& [key, value] : object.items())
        html += "<tr><th>" + HtmlEscape(Label(key)) + "</th><td>" + HtmlEscape(Text(value)) + "</td></tr>";
    return html + "</table>";
}

std::string Row(std::initializer_list<std::string> cells, bool bHeader = false)
{
    std::string html = "<tr>";
    bool bFirst = true;
    for (const std::string& c : cells)
    {
        const char* tag = bHeader ? "th" : "td";
        html += std::string("<") + tag + (bFirst ? "" : " class=\"n\"") + ">" + c + "</" + tag + ">";
        bFirst = false;
    }
    return html + "</tr>";
}

/// The chart and, beside it, the same figures as a table.
std::string Figure(const std::string& caption, const std::string& charts, const Chart& tableOf)
{
    std::string table = "<table><tr><th>" + HtmlEscape(tableOf.xLabel) + "</th>";
    for (const ChartSeries& s : tableOf.series)
        table += "<th class=\"n\">" + HtmlEscape(s.name) + "</th>";
    table += "</tr>";
    for (std::size_t i = 0; i < tableOf.categories.size(); ++i)
    {
        table += "<tr><td>" + HtmlEscape(tableOf.categories[i]) + "</td>";
        for (const ChartSeries& s : tableOf.series)
            table += "<td class=\"n\">" +
                     (i < s.values.size() && s.values[i] ? FormatNumber(*s.values[i]) : std::string("—")) +
                     "</td>";
        table += "</tr>";
    }
    table += "</table>";
    return "<figure><figcaption>" + HtmlEscape(caption) + "</figcaption><div class=\"charts\">" + charts +
           "</div><div class=\"table\">" + table + "</div></figure>";
}

/// "2026-11-25T16:42:05+01:00" as "2026-11-25 16:42".
std::string ShortTime(const ordered_json& run)
{
    const ordered_json* p = Find(run, "finished_at");
    if (p == nullptr || !p->is_string())
        return "unknown time";
    std::string text = p->get<std::string>().substr(0, 16);
    std::replace(text.begin(), text.end(), 'T', ' ');
    return text;
}

std::string Header(const ordered_json& r)
{
    const ordered_json* passed = Find(r, "passed");
    std::string html = "<header><h1>Rig Inspector report</h1><div class=\"meta\">";
    html += "Run finished " + HtmlEscape(ShortTime(r));
    if (const ordered_json* v = Find(r, "version"))
        html += " · version " + HtmlEscape(Text(*v));
    if (const ordered_json* t = Find(r, "tool"))
        html += " · " + HtmlEscape(Text(*t));
    if (passed != nullptr && passed->is_boolean())
        html += " · " + Badge(passed->get<bool>() ? "passed" : "failed");
    return html + "</div></header>";
}

std::string Tile(const std::string& value, const std::string& caption)
{
    return "<div class=\"tile\"><b>" + HtmlEscape(value) + "</b><span>" + HtmlEscape(caption) +
           "</span></div>";
}

std::string Summary(const ordered_json& r)
{
    const auto num = [&r](std::initializer_list<const char*> path, const char* unit)
    {
        const std::optional<double> v = Number(At(r, path));
        return v ? FormatNumber(*v) + unit : std::string("—");
    };
    std::string html = "<div class=\"summary\">";
    html += Tile(num({"checks", "udp", "avg_ping_ms"}, " ms"), "Average ping");
    html += Tile(num({"checks", "udp", "loss_percent"}, " %"), "Packet loss");
    html += Tile(num({"checks", "tcp", "upload_kb_per_sec"}, " KB/s"), "Upload");
    html += Tile(num({"checks", "tcp", "download_kb_per_sec"}, " KB/s"), "Download");
    if (const ordered_json* grade = At(r, {"extended", "latency_loaded_ms", "grade"});
        grade && grade->is_string())
        html += Tile(grade->get<std::string>(), "Latency under load grade");
    return html + "</div>";
}

std::string ReportSection(const std::string& document)
{
    // The report's own outer elements give way to the bundle's; its font
    // element, lines, colours and links stay as the player saw them.
    std::string_view body = document;
    constexpr std::string_view kOpen = "<html><body>", kClose = "</body></html>";
    if (body.starts_with(kOpen) && body.ends_with(kClose))
        body = body.substr(kOpen.size(), body.size() - kOpen.size() - kClose.size());
    return "<section id=\"report\"><h2>Report</h2><div class=\"report\">" + std::string(body) +
           "</div></section>";
}

std::string AdviceSection(const ordered_json& r)
{
    const ordered_json* advice = Find(r, "advice");
    if (advice == nullptr || !advice->is_array() || advice->empty())
        return {};
    std::string html = "<section id=\"advice\"><h2>Advice</h2><ul class=\"advice\">";
    for (const ordered_json& item : *advice)
    {
        const ordered_json* severity = Find(item, "severity");
        const ordered_json* text = Find(item, "text");
        const ordered_json* evidence = Find(item, "evidence");
        html += "<li>" + Badge(severity && severity->is_string() ? severity->get<std::string>() : "info") +
                " " + Cell(text);
        if (evidence != nullptr && evidence->is_object() && !evidence->empty())
        {
            std::string facts;
            for (const auto& [key, value] : evidence->items())
                facts += (facts.empty() ? "" : "; ") + Label(key) + ": " + Text(value);
            html += "<div class=\"evidence\">Evidence: " + HtmlEscape(facts) + "</div>";
        }
        else if (evidence != nullptr && !evidence->is_null() && !evidence->is_object())
            html += "<div class=\"evidence\">Evidence: " + HtmlEscape(Text(*evidence)) + "</div>";
        html += "</li>";
    }
    return html + "</ul></section>";
}

std::string SystemSection(const ordered_json& r)
{
    std::string html = "<section id=\"system\"><h2>System</h2>";
    if (const ordered_json* system = At(r, {"checks", "system"}))
    {
        html += "<table><tr><th>Check</th><th>Verdict</th></tr>";
        for (const auto& [key, value] : system->items())
            if (const ordered_json* verdict = Find(value, "verdict"); verdict && verdict->is_string())
                html += "<tr><td>" + HtmlEscape(Label(key)) + "</td><td>" +
                        Badge(verdict->get<std::string>()) + "</td></tr>";
        html += "</table>";
    }
    if (const ordered_json* measured = Find(r, "measured"); measured && measured->is_object())
        html += "<h3>Measured</h3>" + KeyValueTable(*measured);
    if (const ordered_json* gpu = Find(r, "gpu"))
        html += "<h3>Graphics card</h3>" +
                (gpu->is_object() ? KeyValueTable(*gpu) : std::string("<p class=\"note\">Not known.</p>"));
    if (const ordered_json* rec = Find(r, "recommendation"); rec && rec->is_object())
        html += "<h3>Recommended graphic options</h3>" + KeyValueTable(*rec);
    return html + "</section>";
}

std::string ConnectionSection(const ordered_json& r)
{
    const ordered_json* connection = Find(r, "connection");
    if (connection == nullptr)
        return {};
    return "<section id=\"connection\"><h2>Connection</h2>" +
           (connection->is_object() ? KeyValueTable(*connection)
                                    : std::string("<p class=\"note\">Not known.</p>")) +
           "</section>";
}

std::string NetworkSection(const ordered_json& r)
{
    const ordered_json* checks = Find(r, "checks");
    if (checks == nullptr)
        return {};
    std::string html = "<section id=\"network\"><h2>Network checks</h2><table>";
    html += "<tr><th>Check</th><th>Verdict</th><th>Figures</th></tr>";
    const auto verdict = [](const ordered_json* check)
    {
        const ordered_json* v = check ? Find(*check, "verdict") : nullptr;
        return v && v->is_string() ? Badge(v->get<std::string>()) : std::string("—");
    };
    if (const ordered_json* fw = Find(*checks, "firewall"))
        html += "<tr><td>Windows Firewall</td><td>" + verdict(fw) + "</td><td></td></tr>";
    if (const ordered_json* tcp = Find(*checks, "tcp"))
        html += "<tr><td>TCP speed</td><td>" + verdict(tcp) + "</td><td>up " +
                Cell(Find(*tcp, "upload_kb_per_sec")) + " KB/s, down " +
                Cell(Find(*tcp, "download_kb_per_sec")) + " KB/s</td></tr>";
    if (const ordered_json* udp = Find(*checks, "udp"))
        html += "<tr><td>UDP echo</td><td>" + verdict(udp) + "</td><td>" + Cell(Find(*udp, "answered")) +
                " of " + Cell(Find(*udp, "sent")) + " answered, " + Cell(Find(*udp, "loss_percent")) +
                " % loss; ping min " + Cell(Find(*udp, "min_ping_ms")) + " / avg " +
                Cell(Find(*udp, "avg_ping_ms")) + " / max " + Cell(Find(*udp, "max_ping_ms")) +
                " ms</td></tr>";
    if (const ordered_json* ports = Find(*checks, "ports"))
        html += "<tr><td>Game ports</td><td>" + verdict(ports) + "</td><td>" +
                Cell(Find(*ports, "first_port")) + " to " + Cell(Find(*ports, "end_port")) +
                ", busy: " + Cell(Find(*ports, "busy_ports")) + "</td></tr>";
    return html + "</table></section>";
}

std::string DiagnosticRows(const ordered_json& diagnostics)
{
    std::string html;
    for (const ordered_json& d : diagnostics)
        html += "<tr><td><code>" + Cell(Find(d, "code")) + "</code></td><td>" + Cell(Find(d, "message")) +
                "</td></tr>";
    return html;
}

std::string DiagnosticsSection(const ordered_json& r)
{
    const ordered_json* diagnostics = Find(r, "diagnostics");
    if (diagnostics == nullptr || !diagnostics->is_array() || diagnostics->empty())
        return {};
    return "<section id=\"diagnostics\"><h2>Diagnostics</h2><table>" +
           std::string("<tr><th>Code</th><th>What happened</th></tr>") + DiagnosticRows(*diagnostics) +
           "</table></section>";
}

std::string LatencyFigure(const ordered_json& e)
{
    Chart chart{"chart-latency",
                "Latency idle and under load",
                "Round-trip times in milliseconds while the line was idle and while it was loaded in both "
                "directions.",
                "Statistic",
                "Round trip (ms)",
                {"min", "median (p50)", "p90"},
                {{"Idle", "#2b7bb9", {}, {}}, {"Under load", "#e07b39", {}, {}}}};
    for (const char* stat : {"min", "p50", "p90"})
    {
        chart.series[0].values.push_back(Number(At(e, {"latency_idle_ms", stat})));
        chart.series[1].values.push_back(Number(At(e, {"latency_loaded_ms", stat})));
    }
    return Figure("Latency idle against under load", BarChartSvg(chart), chart);
}

std::string PathPart(const ordered_json& path)
{
    std::string html = "<h3>Path to the test server";
    if (const ordered_json* target = Find(path, "target"); target && target->is_string())
        html += " " + HtmlEscape(target->get<std::string>());
    html += "</h3>";
    if (const ordered_json* verdict = Find(path, "verdict"))
        html += "<p>" + Cell(Find(*verdict, "text")) + "</p>";
    const ordered_json* hops = Find(path, "hops");
    if (hops == nullptr || !hops->is_array() || hops->empty())
        return html;

    Chart loss{"chart-hop-loss",
               "Loss per hop",
               "Share of probes each hop did not answer, in percent.",
               "Hop",
               "Loss (%)",
               {},
               {{"Loss", "#c0392b", {}, {}}}};
    Chart rtt{"chart-hop-rtt",
              "Round trip per hop",
              "Median round trip to each hop in milliseconds, with a whisker from the fastest to the slowest "
              "answer.",
              "Hop",
              "Round trip (ms)",
              {},
              {{"Median", "#2b7bb9", {}, {}}}};
    std::string table = "<table>" + Row({"Hop", "Address", "Sent", "Answered", "Loss %", "Min ms",
                                         "Median ms", "Max ms", "Rate limited"},
                                        true);
    for (const ordered_json& hop : *hops)
    {
        const std::string ttl = Cell(Find(hop, "ttl"));
        loss.categories.push_back(ttl);
        rtt.categories.push_back(ttl);
        loss.series[0].values.push_back(Number(Find(hop, "loss_percent")));
        const ordered_json* ms = Find(hop, "rtt_ms");
        const auto stat = [ms](const char* key) { return ms ? Number(Find(*ms, key)) : std::nullopt; };
        rtt.series[0].values.push_back(stat("p50"));
        const auto low = stat("min"), high = stat("max");
        rtt.series[0].ranges.push_back(low && high ? std::optional(std::pair(*low, *high)) : std::nullopt);
        const ordered_json* address = Find(hop, "address");
        table +=
            Row({ttl, address && address->is_string() ? HtmlEscape(address->get<std::string>()) : "no answer",
                 Cell(Find(hop, "sent")), Cell(Find(hop, "answered")), Cell(Find(hop, "loss_percent")),
                 ms ? Cell(Find(*ms, "min")) : "—", ms ? Cell(Find(*ms, "p50")) : "—",
                 ms ? Cell(Find(*ms, "max")) : "—", Cell(Find(hop, "rate_limited"))});
    }
    table += "</table>";
    html += table;
    html += Figure("Loss per hop", BarChartSvg(loss), loss);
    html += Figure("Round trip per hop", BarChartSvg(rtt), rtt);
    return html;
}

std::string ExtendedSection(const ordered_json& r)
{
    const ordered_json* e = Find(r, "extended");
    if (e == nullptr || !e->is_object())
        return {};
    std::string html = "<section id=\"extended\"><h2>Extended network test</h2>";
    if (const ordered_json* failure = Find(*e, "failure"); failure && failure->is_string())
        html += "<p>" + Badge("failed") + " " + HtmlEscape(failure->get<std::string>()) + "</p>";
    if (Find(*e, "latency_idle_ms") || Find(*e, "latency_loaded_ms"))
        html += LatencyFigure(*e);
    html += "<table class=\"kv\">";
    const auto row = [&html](const std::string& label, const ordered_json* v, const char* unit)
    {
        if (v != nullptr)
            html += "<tr><th>" + label + "</th><td>" + Cell(v) + (v->is_number() ? unit : "") + "</td></tr>";
    };
    row("Latency increase under load", At(*e, {"latency_loaded_ms", "increase"}), " ms");
    row("Grade", At(*e, {"latency_loaded_ms", "grade"}), "");
    row("Loss upstream", At(*e, {"udp", "loss_up_percent"}), " %");
    row("Loss downstream", At(*e, {"udp", "loss_down_percent"}), " %");
    row("Jitter", At(*e, {"udp", "jitter_ms"}), " ms");
    row("Upload", At(*e, {"throughput", "upload_kb_per_sec"}), " KB/s");
    row("Download", At(*e, {"throughput", "download_kb_per_sec"}), " KB/s");
    row("Unsolicited inbound reached the game port", At(*e, {"inbound", "unsolicited_reached"}), "");
    html += "</table>";
    if (const ordered_json* path = Find(*e, "path"); path && path->is_object())
        html += PathPart(*path);
    return html + "</section>";
}

std::string HistorySection(const std::vector<ordered_json>& history, const ordered_json& current)
{
    if (history.empty())
        return {};
    std::string html = "<section id=\"history\"><h2>History</h2><p class=\"note\">The last " +
                       std::to_string(history.size()) +
                       " runs kept on this computer, oldest first. Nothing of it was sent anywhere.</p>";

    // The run before this one: what it could not do (a file it could not
    // write, say) is what support asks about next.
    const ordered_json* previous = nullptr;
    for (auto it = history.rbegin(); it != history.rend(); ++it)
        if (*it != current)
        {
            previous = &*it;
            break;
        }
    if (previous != nullptr)
    {
        const ordered_json* diagnostics = Find(*previous, "diagnostics");
        html += "<h3>Previous run, " + HtmlEscape(ShortTime(*previous)) + "</h3>";
        if (diagnostics && diagnostics->is_array() && !diagnostics->empty())
            html += "<table>" + std::string("<tr><th>Code</th><th>What happened</th></tr>") +
                    DiagnosticRows(*diagnostics) + "</table>";
        else
            html += "<p class=\"note\">No diagnostics.</p>";
    }

    Chart ping{"chart-history-ping",
               "Ping over past runs",
               "Average UDP round trip of each run, in milliseconds.",
               "Run",
               "Ping (ms)",
               {},
               {{"Average ping", "#2b7bb9", {}, {}}}};
    Chart loss{"chart-history-loss",
               "Packet loss over past runs",
               "UDP echo loss of each run, in percent.",
               "Run",
               "Loss (%)",
               {},
               {{"Loss", "#c0392b", {}, {}}}};
    Chart speed{"chart-history-speed",
                "Speed over past runs",
                "TCP upload and download speed of each run, in KB/s.",
                "Run",
                "Speed (KB/s)",
                {},
                {{"Upload", "#27ae60", {}, {}}, {"Download", "#8e44ad", {}, {}}}};
    Chart table{"",
                "",
                "",
                "Finished",
                "",
                {},
                {{"Ping ms", "", {}, {}},
                 {"Loss %", "", {}, {}},
                 {"Up KB/s", "", {}, {}},
                 {"Down KB/s", "", {}, {}}}};
    // Axis labels carry month, day and time (the table carries the year), or
    // the time to the second where runs share a minute.
    bool bSameMinute = false;
    for (std::size_t i = 1; i < history.size(); ++i)
        bSameMinute = bSameMinute || ShortTime(history[i]) == ShortTime(history[i - 1]);
    for (const ordered_json& run : history)
    {
        const std::string when = ShortTime(run);
        const ordered_json* finished = Find(run, "finished_at");
        std::string label = when.size() >= 16 ? when.substr(5) : when;
        if (bSameMinute && finished && finished->is_string() && finished->get<std::string>().size() >= 19)
            label = finished->get<std::string>().substr(11, 8);
        for (Chart* c : {&ping, &loss, &speed})
            c->categories.push_back(label);
        table.categories.push_back(when);
        const auto udp = At(run, {"checks", "udp"});
        const auto tcp = At(run, {"checks", "tcp"});
        const auto value = [](const ordered_json* check, const char* key)
        { return check ? Number(Find(*check, key)) : std::nullopt; };
        const std::optional<double> figures[] = {value(udp, "avg_ping_ms"), value(udp, "loss_percent"),
                                                 value(tcp, "upload_kb_per_sec"),
                                                 value(tcp, "download_kb_per_sec")};
        ping.series[0].values.push_back(figures[0]);
        loss.series[0].values.push_back(figures[1]);
        speed.series[0].values.push_back(figures[2]);
        speed.series[1].values.push_back(figures[3]);
        for (std::size_t i = 0; i < 4; ++i)
            table.series[i].values.push_back(figures[i]);
    }
    html += Figure("Ping, loss and speed over past runs",
                   LineChartSvg(ping) + LineChartSvg(loss) + LineChartSvg(speed), table);
    return html + "</section>";
}

std::string DataSection(const std::string& resultsText)
{
    return std::string(
               "<section id=\"data\"><h2>Machine-readable results</h2><p class=\"note\">This file carries "
               "the run's results document, the same as <code>rig_inspector_cli --json</code> writes, in "
               "the script element <code>#") +
           kBundleResultsId + "</code>. Read it with <code>JSON.parse(document.getElementById('" +
           kBundleResultsId +
           "').textContent)</code>, or take the element's text and replace <code>&lt;\\/</code> with "
           "<code>&lt;/</code> and <code>&lt;\\u0021</code> with <code>&lt;!</code> for the exact bytes.</p>"
           "<script type=\"application/json\" id=\"" +
           kBundleResultsId + "\">" + EscapeForScript(resultsText) + "</script></section>";
}
} // namespace

std::string EscapeForScript(std::string_view json)
{
    std::string out;
    out.reserve(json.size() + 16);
    for (std::size_t i = 0; i < json.size(); ++i)
    {
        out += json[i];
        if (json[i] == '<' && i + 1 < json.size())
        {
            if (json[i + 1] == '/')
                out += '\\';
            else if (json[i + 1] == '!')
            {
                out += "\\u0021";
                ++i;
            }
        }
    }
    return out;
}

std::string RenderBundle(const BundleInput& input)
{
    static const ordered_json kEmpty = ordered_json::object();
    const ordered_json& r = input.pResults ? *input.pResults : kEmpty;
    std::string html;
    html.reserve(64 * 1024);
    html += "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
            // Nothing may load: the file is read offline and sent around.
            "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
            "'unsafe-inline'; "
            "img-src data:\">"
            "<title>Rig Inspector report – " +
            HtmlEscape(ShortTime(r)) + "</title><style>" + kStyle + "</style></head><body>";
    html += Header(r);
    html += "<main>";
    html += Summary(r);
    html += AdviceSection(r);
    html += ReportSection(input.reportDocument);
    html += SystemSection(r);
    html += ConnectionSection(r);
    html += NetworkSection(r);
    html += DiagnosticsSection(r);
    html += ExtendedSection(r);
    html += HistorySection(input.history, r);
    html += DataSection(input.resultsText);
    html += "<footer>Rig Inspector · this file needs no network connection and loads nothing.</footer>";
    html += "</main></body></html>\n";
    return html;
}
