// rig_inspector_cli: the analyzer's check sequence in a terminal, with the
// same start-up order, pacing and report as the dialog.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "ConsoleIo.h"
#include "HeadlessToolkit.h"
#include "HistoryText.h"
#include "ReportText.h"
#include "RigInspector/Diagnostics.h"
#include "RigInspectorApp/Bundle.h"
#include "RigInspectorApp/Details.h"
#include "RigInspectorApp/ExtendedOutput.h"
#include "RigInspectorApp/ExtendedStep.h"
#include "RigInspectorApp/Inspector.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/ResultsJson.h"
#include "RigInspectorApp/RunHistory.h"
#include "RigInspectorApp/RunRecord.h"
#include "RigInspectorApp/UserFolders.h"
#include "RigVersion.h"
#include "TerminalOutput.h"
#include "share/common/StringUtil.h"

namespace
{
constexpr int kExitUsage = 2;
// Checks ran, but the report or the JSON could not be written where asked.
constexpr int kExitOutputFailed = 3;
// --accept was given and ../game/option.ini could not be written.
constexpr int kExitOptionsFailed = 4;

/// A write that fails part way (a full disk) leaves no cut or empty file: what
/// it wrote is removed. Only a regular file is, never a device or the link
/// that leads to one (--report /dev/stdout).
bool WriteFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out.is_open())
        return false;
    out << content;
    out.close();
    if (out)
        return true;
    std::error_code ignored;
    if (std::filesystem::symlink_status(path, ignored).type() == std::filesystem::file_type::regular)
        std::filesystem::remove(path, ignored);
    return false;
}

bool WriteFd(int fd, const std::string& content)
{
    std::size_t done = 0;
    while (done < content.size())
    {
        const ssize_t n = ::write(fd, content.data() + done, content.size() - done);
        if (n <= 0)
            return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool ColourWanted(int fd, bool bNoColour)
{
    const char* noColor = std::getenv("NO_COLOR");
    return !bNoColour && (noColor == nullptr || *noColor == '\0') && IsTerminal(fd);
}
} // namespace

int main(int argc, char** argv)
{
    CLI::App app{
        "Rig Inspector v" RIG_VERSION_SHORT
        ": checks this PC and its network against Dunmore Nine's requirements.\n"
        "Reads ./rig_inspector.ini, prints the report as it is written, and exits with 0 when every\n"
        "check passed, 1 when any did not, 2 on a usage error, 3 when --report/--json/--bundle could not\n"
        "be written, 4 when --accept could not write ../game/option.ini (whatever else failed).\n"
        "Diagnostics (what the report does not say) are printed as warnings on standard error.",
        "rig_inspector_cli"};
    std::string reportPath;
    std::string jsonPath;
    bool bAccept = false;
    bool bPatcher = false;
    bool bQuiet = false;
    bool bNoColour = false;
    bool bNoProgress = false;
    bool bExtended = false;
    std::string bundlePath;
    bool bHistory = false;
    app.add_option("--report", reportPath, "Write the final HTML report (UTF-8) to PATH")->type_name("PATH");
    app.add_option("--json", jsonPath, "Write the measured values and verdicts as JSON to PATH ('-': stdout)")
        ->type_name("PATH|-");
    app.add_flag("--accept", bAccept, "Write the recommended graphic options to ../game/option.ini");
    app.add_flag("--patcher", bPatcher, "Start ./patcher.exe when leaving");
    app.add_flag("-q,--quiet", bQuiet, "Print no report lines and no progress");
    app.add_flag("--no-color", bNoColour, "No colours (also when NO_COLOR is set)");
    app.add_flag("--no-progress", bNoProgress, "No spinner while a step runs");
    app.add_flag("--extended", bExtended,
                 "After the checks, measure latency under load, loss by direction, jitter, throughput and "
                 "inbound reachability (about 10 s more; summary after the report, figures in the JSON)");
    app.add_option("--bundle", bundlePath,
                   "Write one self-contained HTML file for support: the report, the figures, charts, the run "
                   "history and the JSON")
        ->type_name("PATH");
    app.add_flag("--history", bHistory, "Print the runs kept on this computer and exit (no checks run)");
    app.set_version_flag("-V,--version", "rig_inspector_cli (Rig Inspector) " RIG_VERSION_SHORT);
    PrepareConsole();
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& e)
    {
        const int status = app.exit(e);
        return status == 0 ? 0 : kExitUsage;
    }

    if (bHistory)
    {
        const RunHistory history(StateFolder());
        std::cout << HistoryTableText(history.Load(), history.GetFile().u8string());
        return 0;
    }

    // With "--json -" standard output carries only the JSON: the descriptor is
    // kept aside and standard output becomes standard error for everything
    // else, the firewall's own sentences included.
    int jsonFd = -1;
    if (jsonPath == "-")
    {
        std::fflush(stdout);
        jsonFd = SetStandardOutputAside();
        if (jsonFd < 0)
        {
            std::cerr << "rig_inspector_cli: cannot set up standard output for --json -\n";
            return kExitOutputFailed;
        }
    }

    TerminalOutput output(bQuiet ? -1 : STDOUT_FILENO);
    ReportText text(ColourWanted(STDOUT_FILENO, bNoColour));

    HeadlessToolkit toolkit({/*bNext=*/bAccept || bPatcher, /*bAccept=*/bAccept});
    if (!bQuiet)
        toolkit.GetReportView().SetListener([&](std::u16string_view body)
                                            { output.WriteLine(text.Feed(body)); });
    if (!bQuiet && !bNoProgress && IsTerminal(STDERR_FILENO))
        output.StartSpinner([&toolkit] { return toolkit.BusyForMs(); });

    SetToolkit(&toolkit);
    theApp.m_bExtendedFromSettings = false;
    theApp.InitInstance(bPatcher ? u"patcher" : u"");
    SetToolkit(nullptr);

    output.StopSpinner();
    output.WriteLine(text.Finish());

    ExtendedResult extendedResult;
    if (bExtended)
    {
        const ExtendedSettings settings = ExtendedSettingsFrom(g_settings);
        const bool bProgress = !bQuiet && !bNoProgress && IsTerminal(2);
        extendedResult = ExtendedChecker(settings).Run(
            bProgress ? ExtendedChecker::Progress(WriteExtendedProgress) : ExtendedChecker::Progress());
        if (bProgress)
            WriteExtendedProgress(nullptr, 0, 0);
        output.WriteLine(ExtendedSummaryText(extendedResult));
    }
    const std::vector<AdviceItem> advice = AdviceForThisRun(bExtended ? &extendedResult : nullptr);
    output.WriteLine(AdviceText(advice));

    // The run is kept before anything is printed, so a history that could
    // not be written is among the warnings and in the document.
    RunOutcome outcome;
    outcome.cpuSpeedMhz = g_inspector.m_CpuSpeed;
    outcome.videoMemoryMb = g_inspector.m_VideoMemory;
    outcome.systemMemoryMb = g_inspector.m_SystemMemory;
    outcome.optionsWritten = toolkit.GetOptionsWritten();
    outcome.patcherRequested = bPatcher;
    outcome.patcherStarted = toolkit.GetPatcherStarted();
    outcome.diagnostics = GetDiagnostics().List();
    const std::optional<ExtendedResult> extended = bExtended ? std::optional(extendedResult) : std::nullopt;
    const std::time_t finished = std::time(nullptr);
    auto results = RunDocument(g_inspector.m_Results, outcome, extended, advice, finished);
    const bool bRecorded = RecordRun(results, StateFolder());
    if (!bRecorded)
    {
        outcome.diagnostics = GetDiagnostics().List();
        results = RunDocument(g_inspector.m_Results, outcome, extended, advice, finished);
    }
    const std::string json = ResultsText(results);

    // What the report does not say goes to standard error, one warning a line,
    // also with --quiet: it is what a player needs when a result looks wrong.
    const std::vector<Diagnostic>& diagnostics = outcome.diagnostics;
    for (const Diagnostic& d : diagnostics)
        std::cerr << "rig_inspector_cli: warning: " << zul::Utf16ToUtf8(d.message) << " [" << d.code << "]\n";

    int status = CheckExitStatus(g_inspector.m_Results);
    if (!reportPath.empty() &&
        !WriteFile(reportPath, zul::Utf16ToUtf8(toolkit.GetReportView().GetDocument())))
    {
        std::cerr << "rig_inspector_cli: cannot write the report to " << reportPath << "\n";
        status = kExitOutputFailed;
    }
    if (!jsonPath.empty())
    {
        const bool bWritten = jsonFd >= 0 ? WriteFd(jsonFd, json) : WriteFile(jsonPath, json);
        if (!bWritten)
        {
            std::cerr << "rig_inspector_cli: cannot write the JSON to " << jsonPath << "\n";
            status = kExitOutputFailed;
        }
    }
    if (!bundlePath.empty())
    {
        BundleInput input;
        input.pResults = &results;
        input.resultsText = json;
        input.reportDocument = zul::Utf16ToUtf8(toolkit.GetReportView().GetDocument());
        input.history = RunHistory(StateFolder()).Load();
        if (!bRecorded)
            input.history.push_back(results);
        if (!WriteFile(bundlePath, RenderBundle(input)))
        {
            std::cerr << "rig_inspector_cli: cannot write the bundle to " << bundlePath << "\n";
            status = kExitOutputFailed;
        }
    }
    // The reason is among the warnings above. It outranks a report, JSON or
    // bundle that could not be written: those can be had again from another
    // run, while the game's options are what --accept was for.
    if (bAccept && toolkit.GetOptionsWritten() == false)
        status = kExitOptionsFailed;
    return status;
}
