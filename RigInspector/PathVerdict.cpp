#include "PathVerdict.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{
// A hop's answers are few (one a second), so "more loss than carries on" is
// judged by how unlikely its count is, not by a fixed percentage.
constexpr double kUnlikely = 0.001;
// The lowest loss rate that still counts as carried on: below it every lost
// answer of a hop would look like rate limiting.
constexpr double kCarriedFloor = 0.02;
// Between two neighbours, both with few answers, a looser bar: a hop that
// lost most of its answers where the next lost none limits its own replies.
constexpr double kClearlyMore = 0.01;

double Choose(std::uint32_t n, std::uint32_t k)
{
    double c = 1.0;
    for (std::uint32_t i = 1; i <= k; ++i)
        c = c * static_cast<double>(n - k + i) / static_cast<double>(i);
    return c;
}

/// P(X >= k) for X ~ Binomial(n, q).
double TailAtLeast(std::uint32_t n, std::uint32_t k, double q)
{
    double p = 0.0;
    for (std::uint32_t i = k; i <= n; ++i)
        p += Choose(n, i) * std::pow(q, i) * std::pow(1.0 - q, n - i);
    return p;
}

/// One-sided Fisher exact test: how likely hop a loses at least as many
/// answers as it did, were a and b losing at the same rate.
double MoreLossThan(std::uint32_t lostA, std::uint32_t sentA, std::uint32_t lostB, std::uint32_t sentB)
{
    const std::uint32_t lost = lostA + lostB, sent = sentA + sentB;
    double p = 0.0;
    for (std::uint32_t x = lostA; x <= std::min(lost, sentA); ++x)
        p += Choose(sentA, x) * Choose(sentB, lost - x) / Choose(sent, lost);
    return p;
}

std::uint32_t Lost(const PathHop& hop)
{
    return hop.sent > hop.answered ? hop.sent - hop.answered : 0;
}

/// log P(a hop loses lost of sent answers at rate q), less the binomial
/// coefficient, which is the same for every start compared.
double LogLikelihood(const PathHop& hop, double q)
{
    return Lost(hop) * std::log(q) + (hop.sent - Lost(hop)) * std::log(1.0 - q);
}

/// Where loss begins: of the hops that lost answers (and do not merely limit
/// their own), the one that best explains every counted hop, those before it
/// losing at the background rate and those from it on at the end-to-end rate.
/// A hop that lost an answer by chance before a later hop that lost none is not
/// blamed, and a quiet hop after the start does not move it. Ties go earliest.
const PathHop* LikeliestStart(const std::vector<PathHop>& hops, double endToEnd)
{
    const double q = std::clamp(endToEnd, 2 * kCarriedFloor, 1.0 - kCarriedFloor);
    const PathHop* best = nullptr;
    double bestLog = 0.0;
    for (const PathHop& start : hops)
    {
        if (start.answered == 0 || start.rateLimited || Lost(start) == 0)
            continue;
        double log = 0.0;
        for (const PathHop& hop : hops)
            if (hop.answered > 0 && !hop.rateLimited)
                log += LogLikelihood(hop, hop.ttl < start.ttl ? kCarriedFloor : q);
        if (!best || log > bestLog)
        {
            best = &start;
            bestLog = log;
        }
    }
    return best;
}

std::string Format(const char* format, int ttl, const std::string& address)
{
    char text[400];
    std::snprintf(text, sizeof text, format, ttl, address.c_str());
    return text;
}
} // namespace

std::optional<std::uint32_t> ParseIPv4(const std::string& text)
{
    std::uint32_t address = 0;
    std::size_t i = 0;
    for (int part = 0; part < 4; ++part)
    {
        if (part > 0 && (i >= text.size() || text[i++] != '.'))
            return std::nullopt;
        std::uint32_t value = 0;
        int digits = 0;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9' && digits < 3)
        {
            value = value * 10 + static_cast<std::uint32_t>(text[i++] - '0');
            ++digits;
        }
        if (digits == 0 || value > 255)
            return std::nullopt;
        address = address << 8 | value;
    }
    if (i != text.size())
        return std::nullopt;
    return address;
}

bool IsHomeAddress(std::uint32_t a)
{
    return (a >> 24) == 10 || (a >> 20) == (172u << 4 | 1u) || (a >> 16) == (192u << 8 | 168u) ||
           (a >> 22) == (100u << 2 | 1u) || (a >> 16) == (169u << 8 | 254u);
}

void JudgePath(PathReport& r, std::optional<double> endToEndLossPercent)
{
    auto& hops = r.hops;
    for (std::size_t i = 0; i < hops.size(); ++i)
    {
        const auto address = hops[i].address ? ParseIPv4(*hops[i].address) : std::nullopt;
        hops[i].homeNetwork = i == 0 || (hops[i - 1].homeNetwork && address && IsHomeAddress(*address));
    }

    std::optional<double> endToEnd = endToEndLossPercent;
    if (!endToEnd && r.reached && !hops.empty() && hops.back().answered > 0)
        endToEnd = hops.back().lossPercent;

    // What carries on past each hop: the pooled loss of every answering hop
    // after it, or the echo's, whichever is higher.
    const double echoRate = endToEnd ? *endToEnd / 100.0 : 0.0;
    std::uint32_t laterSent = 0, laterLost = 0;
    bool bLaterAnswer = false;
    const PathHop* next = nullptr; // the next hop that answered
    for (std::size_t i = hops.size(); i-- > 0;)
    {
        PathHop& hop = hops[i];
        const double later = laterSent > 0 ? static_cast<double>(laterLost) / laterSent : 0.0;
        const double carried = std::max({later, echoRate, kCarriedFloor});
        if (hop.answered == 0)
            hop.rateLimited = bLaterAnswer && hop.sent > 0;
        else
        {
            // More loss than carries on overall, or clearly more than the next hop.
            bool bDrops = TailAtLeast(hop.sent, Lost(hop), std::min(carried, 1.0)) < kUnlikely;
            if (next)
                bDrops = bDrops || MoreLossThan(Lost(hop), hop.sent, Lost(*next), next->sent) < kClearlyMore;
            hop.rateLimited = Lost(hop) > 0 && (bLaterAnswer || endToEnd) && bDrops;
        }
        if (hop.answered > 0)
        {
            next = &hop;
            bLaterAnswer = true;
            laterSent += hop.sent;
            laterLost += Lost(hop);
        }
    }

    r.lossStartsAtHop.reset();
    r.lossStartsInHome.reset();
    if (!endToEnd)
    {
        r.verdictCode = "not_measured";
        r.verdictText = "The test server did not answer, so there is no telling where packets get lost.";
        return;
    }
    if (*endToEnd < kPathLossFloorPercent)
    {
        r.verdictCode = "no_loss";
        bool bLimited = false;
        for (const auto& hop : hops)
            bLimited = bLimited || hop.rateLimited;
        r.verdictText = bLimited
                            ? "No packets are lost on the way to the test server. Hops marked as limited "
                              "only answer slowly about themselves; they pass your traffic on."
                            : "No packets are lost on the way to the test server.";
        return;
    }
    if (const PathHop* start = LikeliestStart(hops, *endToEnd / 100.0))
    {
        const PathHop& hop = *start;
        r.lossStartsAtHop = hop.ttl;
        r.lossStartsInHome = hop.homeNetwork;
        const std::string address = hop.address.value_or("no address");
        if (hop.homeNetwork)
        {
            r.verdictCode = "loss_in_home";
            r.verdictText =
                Format("Packets are lost from hop %d (%s) on, inside your home network: check your "
                       "Wi-Fi or cable, and restart your router.",
                       hop.ttl, address);
        }
        else
        {
            r.verdictCode = "loss_beyond_home";
            r.verdictText = Format("Packets are lost from hop %d (%s) on, beyond your home network: your own "
                                   "router and Wi-Fi are fine; the loss is at your provider or further on.",
                                   hop.ttl, address);
        }
        return;
    }
    r.verdictCode = "loss_not_located";
    r.verdictText =
        "Some packets to the test server are lost, but no hop on the way shows it: the loss is too "
        "rare to place, or at the server itself.";
}

std::vector<std::string> PathDetailLines(const PathReport& report)
{
    std::vector<std::string> lines;
    char line[200];
    std::snprintf(line, sizeof line, "%-4s %-16s %6s %7s  %s", "Hop", "Address", "Loss", "Answers",
                  "Round trip min / median / max");
    lines.push_back(line);
    for (const PathHop& hop : report.hops)
    {
        char rtt[80] = "-";
        if (hop.rttP50Ms)
            std::snprintf(rtt, sizeof rtt, "%.1f / %.1f / %.1f ms", *hop.rttMinMs, *hop.rttP50Ms,
                          *hop.rttMaxMs);
        std::snprintf(line, sizeof line, "%-4d %-16s %5.0f%% %3u/%-3u  %s%s%s", hop.ttl,
                      hop.address.value_or("(no answer)").c_str(), hop.lossPercent, hop.answered, hop.sent,
                      rtt, hop.homeNetwork ? "  home" : "",
                      hop.rateLimited ? "  limits its own answers" : "");
        lines.push_back(line);
    }
    if (!report.reached)
        lines.push_back("The test server " + report.target + " did not answer the path probes.");
    if (!report.verdictText.empty())
        lines.push_back(report.verdictText);
    return lines;
}
