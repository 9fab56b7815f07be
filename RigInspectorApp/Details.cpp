#include "Details.h"

#include <mutex>
#include <optional>

#include "AnalyzerSettings.h"
#include "DesktopRun.h"
#include "Inspector.h"
#include "RigInspector/Diagnostics.h"
#include "share/common/StringUtil.h"

namespace
{
std::mutex g_extendedLock;
std::optional<ExtendedResult> g_extended;
} // namespace

std::vector<AdviceItem> AdviceForThisRun(const ExtendedResult* extended)
{
    const Minimums minimums{g_settings.m_MinCpuSpeed, g_settings.m_MinVideoMemory,
                            g_settings.m_MinSystemMemory};
    return MakeAdvice(GatherFindings(g_inspector.m_Results, extended, minimums, GetDiagnostics().List()));
}

void SetExtendedForDetails(const ExtendedResult& result)
{
    std::lock_guard<std::mutex> lock(g_extendedLock);
    g_extended = result;
}

std::optional<ExtendedResult> ExtendedForDetails()
{
    std::lock_guard<std::mutex> lock(g_extendedLock);
    return g_extended;
}

std::vector<DetailSection> CollectDetails()
{
    std::vector<DetailSection> sections;
    const std::optional<ExtendedResult> extended = ExtendedForDetails();
    const std::vector<AdviceItem> advice = AdviceForThisRun(extended ? &*extended : nullptr);
    if (!advice.empty())
    {
        DetailSection section{u"Advice", {}};
        for (const AdviceItem& item : advice)
        {
            std::string severity = SeverityName(item.severity);
            severity[0] = static_cast<char>(severity[0] - 'a' + 'A');
            section.lines.push_back(zul::ToWide(severity + ": " + item.text));
        }
        sections.push_back(std::move(section));
    }
    const std::vector<Diagnostic> diagnostics = GetDiagnostics().List();
    if (!diagnostics.empty())
    {
        DetailSection section{u"Diagnostics", {}};
        for (const Diagnostic& d : diagnostics)
            section.lines.push_back(d.message);
        sections.push_back(std::move(section));
    }
    if (std::optional<DetailSection> previous = PreviousRunDetails())
        sections.push_back(std::move(*previous));
    return sections;
}
