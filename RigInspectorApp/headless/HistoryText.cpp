#include "HistoryText.h"

#include <cstdio>

#include "RigInspectorApp/SvgChart.h"

using nlohmann::ordered_json;

namespace
{
std::string Figure(const ordered_json& run, const char* check, const char* key)
{
    const auto c = run.find("checks");
    if (c == run.end() || !c->is_object() || !c->contains(check))
        return "-";
    const ordered_json& figures = (*c)[check];
    const auto v = figures.find(key);
    return v != figures.end() && v->is_number() ? FormatNumber(v->get<double>()) : "-";
}

std::string Column(const std::string& text, int width, bool bRight)
{
    char cell[96];
    std::snprintf(cell, sizeof cell, bRight ? "%*s" : "%-*s", width, text.c_str());
    return cell;
}
} // namespace

std::string HistoryTableText(const std::vector<ordered_json>& runs, const std::u8string& file)
{
    std::string text =
        "Runs kept in " + std::string(file.begin(), file.end()) + ": " + std::to_string(runs.size()) + "\n";
    if (runs.empty())
        return text;
    text += "Finished          Result  Ping ms  Loss %  Up KB/s  Down KB/s  Grade  Diagnostics\n";
    for (const ordered_json& run : runs)
    {
        std::string when = run.value("finished_at", std::string("?"));
        when = when.substr(0, 16);
        if (when.size() > 10)
            when[10] = ' ';
        const auto passed = run.find("passed");
        const std::string result =
            passed != run.end() && passed->is_boolean() ? (passed->get<bool>() ? "passed" : "failed") : "-";
        std::string grade = "-";
        if (const auto e = run.find("extended"); e != run.end() && e->is_object())
            if (const auto l = e->find("latency_loaded_ms"); l != e->end() && l->is_object())
                if (const auto g = l->find("grade"); g != l->end() && g->is_string())
                    grade = g->get<std::string>();
        std::string codes;
        if (const auto d = run.find("diagnostics"); d != run.end() && d->is_array())
            for (const auto& item : *d)
                if (item.is_object() && item.contains("code") && item["code"].is_string())
                    codes += (codes.empty() ? "" : ",") + item["code"].get<std::string>();
        text += Column(when, 16, false) + "  " + Column(result, 6, false) + "  " +
                Column(Figure(run, "udp", "avg_ping_ms"), 7, true) + "  " +
                Column(Figure(run, "udp", "loss_percent"), 6, true) + "  " +
                Column(Figure(run, "tcp", "upload_kb_per_sec"), 7, true) + "  " +
                Column(Figure(run, "tcp", "download_kb_per_sec"), 9, true) + "  " + Column(grade, 5, false) +
                "  " + (codes.empty() ? "-" : codes) + "\n";
    }
    return text;
}
