#pragma once
// Advice in plain words: the checks' findings, the extended figures, the path
// report, the connection and the GPU, turned by one rule table
// (AdviceRules.cpp) into ranked items a player can act on. The report lines
// never carry it; the terminal, the JSON and the details view do.
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "RigInspector/CheckResults.h"
#include "RigInspector/Connection.h"
#include "RigInspector/Diagnostics.h"
#include "RigInspector/ExtendedResult.h"
#include "RigInspector/Gpu.h"
#include "RigInspector/PathReport.h"

/// Everything a rule may look at, gathered once from the records that hold it.
struct Findings
{
    // The system check and the thresholds it applied.
    bool systemRan = false;
    std::int32_t cpuMhz = 0, minCpuMhz = 0;
    bool cpuPassed = true;
    std::uint32_t memoryMb = 0;
    std::int32_t minMemoryMb = 0;
    bool memoryPassed = true;
    bool videoProbeOk = true;
    std::uint32_t videoMb = 0;
    std::int32_t minVideoMb = 0;
    bool videoPassed = true;
    std::optional<GpuInfo> gpu;

    // The UDP echo test.
    bool udpRan = false;
    int udpSent = 0, udpLost = 0;
    double udpLossPercent = 0.0;
    bool pongPortHeld = false;
    std::uint16_t pongPort = 0;
    std::vector<PortOwner> pongPortOwners;

    // The extended step and the path report.
    bool extendedRan = false;
    std::optional<bool> inboundReached;
    std::optional<double> lossUpPercent, lossDownPercent, jitterMs, increaseMs;
    std::string grade;
    std::optional<PathReport> path;

    std::optional<ConnectionInfo> connection;
    std::vector<std::string> diagnosticCodes;
};

struct Minimums
{
    std::int32_t cpuMhz = 0, videoMb = 0, memoryMb = 0;
};

/// extended: nothing when the step did not run.
Findings GatherFindings(const CheckResults& results, const ExtendedResult* extended, const Minimums& minimums,
                        const std::vector<Diagnostic>& diagnostics);

enum class Severity
{
    Problem,
    Warning,
    Info
};
/// "problem", "warning", "info".
const char* SeverityName(Severity severity);

/// One figure an item rests on. A phrase fills the text only and is no evidence.
struct Evidence
{
    using Figure = std::variant<bool, std::int64_t, double, std::string>;
    std::string key;
    Figure value;
    bool bPhrase = false;
};

struct AdviceItem
{
    std::string code; // stable snake_case, for scripts
    Severity severity = Severity::Info;
    std::string text; // one or two sentences, for players
    std::vector<Evidence> evidence;
};

/// One row of the table: when it applies, what it says ({key} marks a figure
/// of its evidence) and which figures it rests on.
struct AdviceRule
{
    const char* code;
    Severity severity;
    bool (*applies)(const Findings&);
    const char* text;
    std::vector<Evidence> (*evidence)(const Findings&);
};
extern const std::vector<AdviceRule> kAdviceRules;

/// The items of every rule that applies, most severe first, the table's order within a severity.
std::vector<AdviceItem> MakeAdvice(const Findings& findings,
                                   const std::vector<AdviceRule>& rules = kAdviceRules);

/// A template with its {key} marks filled from the evidence; a mark without
/// a figure stays as it is.
std::string FillAdviceText(const std::string& text, const std::vector<Evidence>& evidence);

/// The terminal's lines, each ending in a newline; empty without advice.
std::string AdviceText(const std::vector<AdviceItem>& advice);
