#include "ServerMetrics.h"

#include <cstdio>
#include <initializer_list>
#include <utility>

namespace
{
std::uint64_t Get(const ServerMetrics::Counter& counter)
{
    return counter.load(std::memory_order_relaxed);
}

void Header(std::string& out, const char* name, const char* help, const char* type)
{
    out += "# HELP ";
    out += name;
    out += ' ';
    out += help;
    out += "\n# TYPE ";
    out += name;
    out += ' ';
    out += type;
    out += '\n';
}

void Sample(std::string& out, const char* name, const char* labels, double value)
{
    char line[160];
    std::snprintf(line, sizeof line, "%s%s %.17g\n", name, labels, value);
    out += line;
}

void Single(std::string& out, const char* name, const char* help, const char* type, double value)
{
    Header(out, name, help, type);
    Sample(out, name, "", value);
}
} // namespace

void ServerMetrics::Histogram::Observe(double seconds)
{
    std::size_t bucket = 0;
    while (bucket < kBounds.size() && seconds > kBounds[bucket])
        ++bucket;
    Add(m_Buckets[bucket]);
    Add(m_Count);
    Add(m_SumMicros, static_cast<std::uint64_t>(seconds * 1e6));
}

void ServerMetrics::Histogram::Render(std::string& out, const char* name, const char* help) const
{
    Header(out, name, help, "histogram");
    const std::string bucket = std::string(name) + "_bucket";
    std::uint64_t cumulative = 0;
    char label[48];
    for (std::size_t i = 0; i < kBounds.size(); ++i)
    {
        cumulative += Get(m_Buckets[i]);
        std::snprintf(label, sizeof label, "{le=\"%g\"}", kBounds[i]);
        Sample(out, bucket.c_str(), label, static_cast<double>(cumulative));
    }
    cumulative += Get(m_Buckets[kBounds.size()]);
    Sample(out, bucket.c_str(), "{le=\"+Inf\"}", static_cast<double>(cumulative));
    Sample(out, (std::string(name) + "_sum").c_str(), "", static_cast<double>(Get(m_SumMicros)) / 1e6);
    // The count is the buckets' own total, so that a scrape in the middle of
    // an Observe still reads a consistent +Inf bucket and count.
    Sample(out, (std::string(name) + "_count").c_str(), "", static_cast<double>(cumulative));
}

std::string ServerMetrics::Render() const
{
    std::string out;
    Single(out, "rig_tcp_tests_completed_total", "Speed tests that ended with the whole exchange.", "counter",
           static_cast<double>(Get(m_TestsCompleted)));
    Single(out, "rig_tcp_tests_ended_total", "Speed-test connections that ended, however they ended.",
           "counter", static_cast<double>(Get(m_TestsEnded)));
    Single(out, "rig_tcp_connections_active", "Speed-test connections open now.", "gauge",
           static_cast<double>(m_ConnectionsActive.load(std::memory_order_relaxed)));
    Header(out, "rig_tcp_connections_refused_total", "Connections closed at once, by reason.", "counter");
    Sample(out, "rig_tcp_connections_refused_total", "{reason=\"full\"}",
           static_cast<double>(Get(m_RefusedFull)));
    Sample(out, "rig_tcp_connections_refused_total", "{reason=\"source\"}",
           static_cast<double>(Get(m_RefusedSource)));
    Sample(out, "rig_tcp_connections_refused_total", "{reason=\"descriptors\"}",
           static_cast<double>(Get(m_RefusedDescriptors)));
    Single(out, "rig_tcp_connections_evicted_total", "Uploads ended for being far slower than any client.",
           "counter", static_cast<double>(Get(m_EvictedSlow)));
    m_TestDuration.Render(out, "rig_tcp_test_duration_seconds", "Completed speed tests, connect to close.");
    m_UploadDuration.Render(out, "rig_tcp_upload_duration_seconds",
                            "Completed speed tests, connect to the start of the download.");
    Single(out, "rig_udp_pings_total", "Valid pings received.", "counter", static_cast<double>(Get(m_Pings)));
    Single(out, "rig_udp_pongs_sent_total", "Pongs sent.", "counter", static_cast<double>(Get(m_PongsSent)));
    Header(out, "rig_udp_pongs_rate_limited_total", "Pings left unanswered by a rate limit.", "counter");
    Sample(out, "rig_udp_pongs_rate_limited_total", "{limit=\"source\"}",
           static_cast<double>(Get(m_LimitedSource)));
    Sample(out, "rig_udp_pongs_rate_limited_total", "{limit=\"global\"}",
           static_cast<double>(Get(m_LimitedGlobal)));
    Single(out, "rig_udp_datagrams_ignored_total", "Datagrams that were no ping.", "counter",
           static_cast<double>(Get(m_Ignored)));
    Single(out, "rig_udp_pongs_dropped_total", "Pongs lost to a full send buffer or queue, or a fault mode.",
           "counter", static_cast<double>(Get(m_Dropped)));
    RenderExtended(out);
    return out;
}

void ServerMetrics::RenderExtended(std::string& out) const
{
    const auto refused = [&out](const char* name, const char* help,
                                std::initializer_list<std::pair<const char*, const Counter*>> reasons)
    {
        Header(out, name, help, "counter");
        for (const auto& [reason, pCounter] : reasons)
            Sample(out, name, (std::string("{reason=\"") + reason + "\"}").c_str(),
                   static_cast<double>(Get(*pCounter)));
    };
    refused("rig_extended_hellos_refused_total", "Extended handshakes left unanswered, by reason.",
            {{"source_rate", &m_ExtHellosRefusedSource}, {"global_rate", &m_ExtHellosRefusedGlobal}});
    Single(out, "rig_extended_sessions_opened_total", "Extended sessions opened by a valid first probe.",
           "counter", static_cast<double>(Get(m_ExtSessionsOpened)));
    refused("rig_extended_sessions_refused_total", "Extended sessions not opened, by reason.",
            {{"source", &m_ExtSessionsRefusedSource},
             {"full", &m_ExtSessionsRefusedFull},
             {"cookie", &m_ExtSessionsRefusedCookie}});
    refused("rig_extended_echoes_refused_total", "Probes not echoed, by reason.",
            {{"session_rate", &m_ExtEchoesRefusedRate}});
    refused("rig_extended_streams_refused_total", "Extended TCP streams closed at once, by reason.",
            {{"source", &m_ExtStreamsRefusedSource},
             {"budget", &m_ExtStreamsRefusedBudget},
             {"pending", &m_ExtStreamsRefusedPending},
             {"header", &m_ExtStreamsRefusedHeader},
             {"session", &m_ExtStreamsRefusedSession}});
    Single(out, "rig_extended_sessions_active", "Extended sessions open now.", "gauge",
           static_cast<double>(m_ExtSessionsActive.load(std::memory_order_relaxed)));
    Single(out, "rig_extended_streams_active", "Extended TCP streams measuring now.", "gauge",
           static_cast<double>(m_ExtStreamsActive.load(std::memory_order_relaxed)));
}
