#include "Advice.h"

#include <algorithm>
#include <cstdio>

Findings GatherFindings(const CheckResults& results, const ExtendedResult* extended, const Minimums& minimums,
                        const std::vector<Diagnostic>& diagnostics)
{
    Findings f;
    const SystemResult& s = results.system;
    f.systemRan = s.ran;
    f.cpuMhz = s.cpuSpeedMhz;
    f.minCpuMhz = minimums.cpuMhz;
    f.cpuPassed = !s.ran || s.cpuPassed;
    f.memoryMb = s.systemMemoryMb;
    f.minMemoryMb = minimums.memoryMb;
    f.memoryPassed = !s.ran || s.memoryPassed;
    f.videoProbeOk = !s.ran || s.videoProbeOk;
    f.videoMb = s.videoMemoryMb;
    f.minVideoMb = minimums.videoMb;
    f.videoPassed = !s.ran || s.videoPassed;
    f.gpu = s.gpu;

    const UdpResult& u = results.udp;
    f.udpRan = u.ran;
    f.udpSent = u.sent;
    f.udpLost = u.lost;
    f.udpLossPercent = u.lossPercent;
    f.pongPortHeld = u.ran && !u.pongPortBound;
    f.pongPort = u.pongPort;
    f.pongPortOwners = u.pongPortOwners;

    if (extended != nullptr && extended->ran && extended->failure.empty())
    {
        f.extendedRan = true;
        f.inboundReached = extended->inboundReached;
        f.lossUpPercent = extended->lossUpPercent;
        f.lossDownPercent = extended->lossDownPercent;
        f.jitterMs = extended->jitterMs;
        f.increaseMs = extended->increaseMs;
        f.grade = extended->grade;
    }
    if (extended != nullptr && extended->path && extended->path->ran)
        f.path = extended->path;

    f.connection = results.connection;
    for (const Diagnostic& d : diagnostics)
        f.diagnosticCodes.push_back(d.code);
    return f;
}

const char* SeverityName(Severity severity)
{
    switch (severity)
    {
    case Severity::Problem:
        return "problem";
    case Severity::Warning:
        return "warning";
    case Severity::Info:
        break;
    }
    return "info";
}

namespace
{
std::string FigureText(const Evidence::Figure& value)
{
    if (const bool* b = std::get_if<bool>(&value))
        return *b ? "yes" : "no";
    if (const std::int64_t* i = std::get_if<std::int64_t>(&value))
        return std::to_string(*i);
    if (const double* d = std::get_if<double>(&value))
    {
        // Whole figures without decimals, others to one: "5 ms", "12.5%".
        char text[32];
        std::snprintf(text, sizeof text,
                      *d == static_cast<double>(static_cast<std::int64_t>(*d)) ? "%.0f" : "%.1f", *d);
        return text;
    }
    return std::get<std::string>(value);
}
} // namespace

std::string FillAdviceText(const std::string& text, const std::vector<Evidence>& evidence)
{
    std::string out;
    std::size_t at = 0;
    while (at < text.size())
    {
        const std::size_t open = text.find('{', at);
        const std::size_t close = open == std::string::npos ? std::string::npos : text.find('}', open);
        if (close == std::string::npos)
            break;
        out.append(text, at, open - at);
        const std::string key = text.substr(open + 1, close - open - 1);
        const auto found = std::find_if(evidence.begin(), evidence.end(),
                                        [&key](const Evidence& e) { return e.key == key; });
        out += found != evidence.end() ? FigureText(found->value) : text.substr(open, close - open + 1);
        at = close + 1;
    }
    out.append(text, at, std::string::npos);
    return out;
}

std::vector<AdviceItem> MakeAdvice(const Findings& findings, const std::vector<AdviceRule>& rules)
{
    std::vector<AdviceItem> advice;
    for (const AdviceRule& rule : rules)
    {
        if (!rule.applies(findings))
            continue;
        AdviceItem& item = advice.emplace_back();
        item.code = rule.code;
        item.severity = rule.severity;
        std::vector<Evidence> evidence = rule.evidence ? rule.evidence(findings) : std::vector<Evidence>{};
        item.text = FillAdviceText(rule.text, evidence);
        std::erase_if(evidence, [](const Evidence& e) { return e.bPhrase; });
        item.evidence = std::move(evidence);
    }
    std::stable_sort(advice.begin(), advice.end(),
                     [](const AdviceItem& a, const AdviceItem& b) { return a.severity < b.severity; });
    return advice;
}

std::string AdviceText(const std::vector<AdviceItem>& advice)
{
    if (advice.empty())
        return {};
    std::string text = "\nAdvice\n";
    for (const AdviceItem& item : advice)
        text += std::string("  ") + SeverityName(item.severity) + ": " + item.text + " [" + item.code + "]\n";
    return text;
}
