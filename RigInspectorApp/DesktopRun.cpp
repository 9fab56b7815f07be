#include "DesktopRun.h"

#include "Bundle.h"
#include "Details.h"
#include "Inspector.h"
#include "InspectorApp.h"
#include "RigInspector/Diagnostics.h"
#include "RunHistory.h"
#include "RunRecord.h"
#include "UserFolders.h"
#include "share/common/StringUtil.h"

nlohmann::ordered_json DesktopRunDocument(std::time_t finished)
{
    RunOutcome outcome;
    outcome.cpuSpeedMhz = g_inspector.m_CpuSpeed;
    outcome.videoMemoryMb = g_inspector.m_VideoMemory;
    outcome.systemMemoryMb = g_inspector.m_SystemMemory;
    outcome.patcherRequested = theApp.m_bRunPatcher;
    outcome.diagnostics = GetDiagnostics().List();
    const std::optional<ExtendedResult> extended = ExtendedForDetails();
    nlohmann::ordered_json document =
        RunDocument(g_inspector.m_Results, outcome, extended,
                    AdviceForThisRun(extended ? &*extended : nullptr), finished);
    document["tool"] = "rig_inspector";
    return document;
}

bool WorthRecording(bool checksFinished, const std::vector<Diagnostic>& diagnostics)
{
    if (checksFinished)
        return true;
    // A run left early is no result to compare with, but the options it could
    // not write are lost in silence unless the next run can say so.
    for (const Diagnostic& d : diagnostics)
        if (d.code == "options_write_failed")
            return true;
    return false;
}

void RecordDesktopRun()
{
    if (!WorthRecording(g_inspector.m_Results.ports.ran, GetDiagnostics().List()))
        return;
    RecordRun(DesktopRunDocument(std::time(nullptr)), StateFolder());
}

std::string DesktopBundle(const tstring& reportDocument)
{
    const nlohmann::ordered_json document = DesktopRunDocument(std::time(nullptr));
    BundleInput input;
    input.pResults = &document;
    input.resultsText = ResultsText(document);
    input.reportDocument = zul::Utf16ToUtf8(reportDocument);
    input.history = RunHistory(StateFolder()).Load();
    input.history.push_back(document);
    return RenderBundle(input);
}

std::optional<DetailSection> PreviousRunSection(const std::vector<nlohmann::ordered_json>& runs)
{
    if (runs.empty())
        return std::nullopt;
    const nlohmann::ordered_json& last = runs.back();
    const auto diagnostics = last.find("diagnostics");
    if (diagnostics == last.end() || !diagnostics->is_array() || diagnostics->empty())
        return std::nullopt;
    const auto finished = last.find("finished_at");
    std::string when = finished != last.end() && finished->is_string() ? finished->get<std::string>() : "";
    when = when.substr(0, 16);
    if (when.size() > 10)
        when[10] = ' ';
    DetailSection section{zul::Utf8ToUtf16("Previous run" + (when.empty() ? "" : " (" + when + ")")), {}};
    for (const auto& d : *diagnostics)
        if (d.is_object() && d.contains("message") && d["message"].is_string())
            section.lines.push_back(zul::Utf8ToUtf16(d["message"].get<std::string>()));
    return section;
}

std::optional<DetailSection> PreviousRunDetails()
{
    // Read once: the details are rebuilt after every step.
    static const std::optional<DetailSection> previous = PreviousRunSection(RunHistory(StateFolder()).Load());
    return previous;
}
