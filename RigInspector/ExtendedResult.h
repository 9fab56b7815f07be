#pragma once
// What the extended network-quality step measured, the bookkeeping of its
// probes, and the figures and text made from them. The checker fills it; the
// JSON, the terminal summary and the desktop's details view read it.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "PathReport.h"

struct LatencyFigures
{
    std::optional<double> p50, p90, min; // milliseconds; nothing without samples
    std::uint32_t samples = 0;
};

struct ExtendedResult
{
    bool ran = false;
    std::string failure; // empty when the exchange took place
    std::uint32_t durationMs = 0;

    LatencyFigures idle;
    LatencyFigures loaded;
    std::optional<double> increaseMs; // loaded p50 over idle p50, at least 0
    std::string grade;                // "A+" .. "F"; empty when either is missing

    std::uint32_t sent = 0;
    std::uint32_t answered = 0; // distinct probes echoed back
    std::optional<std::uint32_t> serverReceived;
    std::optional<double> lossUpPercent, lossDownPercent;
    std::optional<double> jitterMs;
    std::uint32_t reordered = 0, duplicates = 0, late = 0;

    std::uint32_t streams = 0;
    std::uint32_t phaseMs = 0, warmupMs = 0;
    std::optional<double> uploadKBs, downloadKBs; // KB = 1,024 bytes

    std::uint16_t gamePort = 0;
    std::optional<bool> inboundReached; // nothing: the game port was busy here, or inboundUnknown
    bool inboundUnknown = false;        // tested, but every request may have been lost on the way

    std::optional<PathReport> path; // nothing: the path was not traced

    /// Why something was not measured, for scripts (code) and people.
    struct Note
    {
        std::string code, message;
    };
    std::vector<Note> notes;
    std::optional<std::uint32_t> retryAfterMs; // the server was busy: when to try again
};

/// Bufferbloat grade of a latency increase under load, in the common bands
/// (A+ up to 5 ms, A 30, B 60, C 200, D 400, F beyond).
struct GradeBand
{
    const char* grade;
    double maxIncreaseMs;
};
extern const GradeBand kGradeBands[6];
std::string GradeFor(double increaseMs);

/// An echo that comes back later than this is counted as delivered but late:
/// a game would have had to throw its content away.
inline constexpr double kLateMs = 500.0;

enum class ProbePhase
{
    Idle,
    Loaded,
    Unloaded // sent while a load was meant to run but did not: in no latency figure
};

/// The probes of one run, sent and echoed, in the order things happened.
class ProbeLog
{
public:
    void OnSent(std::uint32_t seq, ProbePhase phase, std::int64_t sentUs);
    /// False when the echo names no probe sent with that time (forged or stale).
    bool OnEcho(std::uint32_t seq, std::int64_t sentUs, std::int64_t receivedUs);
    /// The loaded probes from fromSeq up to toSeq were sent without a load.
    void Unload(std::uint32_t fromSeq, std::uint32_t toSeq);
    /// Fills the latency, grade and per-packet figures; the loss figures too
    /// when the server's count of distinct probes is known.
    void Summarize(ExtendedResult& result, std::optional<std::uint32_t> serverReceived) const;

private:
    struct Probe
    {
        ProbePhase phase;
        std::int64_t sentUs;
        bool answered = false;
        double rttMs = 0.0;
    };
    std::vector<Probe> m_Probes;
    std::uint32_t m_Answered = 0, m_Reordered = 0, m_Duplicates = 0, m_Late = 0;
    std::optional<std::uint32_t> m_HighestSeq;
    std::optional<double> m_LastTransitMs;
    double m_Jitter = 0.0;
    bool m_bJitter = false;
};

/// Nearest-rank percentile (q in 0..1) of unsorted samples.
std::optional<double> Percentile(std::vector<double> samples, double q);

/// The findings as titled groups of plain lines, for the terminal and a
/// details view.
struct ExtendedSection
{
    std::string title;
    std::vector<std::string> lines;
};
std::vector<ExtendedSection> ExtendedDetails(const ExtendedResult& result);
