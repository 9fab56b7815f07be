#pragma once
// The main dialog's logic: the report it shows and the timer-driven check
// sequence that fills it. Everything here runs on the UI thread.
#include <cstdint>
#include <functional>
#include <future>
#include <vector>

#include "DialogIds.h"
#include "Inspector.h"
#include "UiToolkit.h"
#include "share/common/Format.h"
#include "share/common/TString.h"

/// One step of the sequence: runs a check to its end. The result matters only
/// for the firewall step (3 offers the "Windows Firewall off" button).
using InspectorStep = std::function<int()>;

/// What the sequence and the firewall button call. Replaceable so that tests
/// run the real sequence over fake checks.
struct InspectorChecks
{
    std::vector<InspectorStep> steps;
    std::function<void()> registerGameWithFirewall;
    /// Optional work for after the last step, run on a thread of its own so
    /// the window stays responsive; what it finds joins the details view and
    /// never the report.
    std::function<std::vector<DetailSection>()> afterSequence;
};

/// The checks of g_inspector that exist in this build, in sequence order
/// (InspectorSteps.cpp).
InspectorChecks DefaultInspectorChecks();

/// The rendered document is kReportPrefix + body + kReportSuffix.
inline constexpr char16_t kReportPrefix[] = u"<html><body><font style=\"font-family:arial; font-size:9pt\">";
inline constexpr char16_t kReportSuffix[] = u"</font></body></html>";
inline constexpr char16_t kReportHeader[] = u"<B><font>Rig Inspector v1.1</font><br></B>";
inline constexpr char16_t kNetworkNotice[] =
    u"<br>Starting Network Test.<br>It can take over 30secs. Please wait...";

class CInspectorDlg : public CDialogLogic, public IReportSink
{
public:
    static constexpr int kTemplateId = IDD_INSPECTOR_DIALOG;
    static constexpr int kReportViewId = IDC_EXPLORER;
    static constexpr int kFirewallOffButtonId = IDC_FIREWALL_OFF;
    static constexpr unsigned kSequenceTimerId = 1;
    static constexpr std::uint32_t kStepPauseMs = 100;
    static constexpr std::uint32_t kLoopSleepMs = 10;
    static constexpr std::size_t kFirewallStep = 1;

    explicit CInspectorDlg(InspectorChecks checks = DefaultInspectorChecks());

    // Report.
    void AppendReport(const char16_t* text) override;
    /// Formats into a 512-character buffer (at most 511 characters; longer
    /// output is cut there) and appends it. Does not scroll.
    template <class... Args> void AppendReportFormat(const char16_t* format, const Args&... args)
    {
        const tstring text = zul::FormatStringN(Inspector::kPrintMaxChars, format, args...);
        AppendReport(text.c_str());
    }
    /// Loads prefix + body + suffix into the view; silent when it has no
    /// document yet (the next render shows everything).
    void RenderReport(const tstring& body);
    void ScrollReportToEnd() override;
    const tstring& GetReport() const { return m_report; }

    // Sequence.
    bool OnInitDialog() override;
    /// The sequence loop; returns only once the quit message has been taken.
    void OnTimer(unsigned nIdEvent) override;
    /// Runs at most one step.
    void Step();
    void OnCommand(int nId) override;
    void OnBnClickedOk();
    void OnBnClickedCancel();
    void OnBnClickedFirewallOff();

    /// Index of the next step; equals GetStepCount() once all have run.
    std::uint32_t GetStepIndex() const { return m_step; }
    std::size_t GetStepCount() const { return m_checks.steps.size(); }
    bool IsSequenceDone() const { return m_step >= m_checks.steps.size(); }

private:
    /// Hands the details view (where the front end has one) what there is to
    /// show beside the report; the report itself never changes for it.
    void PublishDetails();
    /// Starts the after-sequence work once, then picks up its findings.
    void PollAfterSequence();
    IReportView* GetReportView() const { return m_pWnd ? m_pWnd->GetReportView() : nullptr; }

    InspectorChecks m_checks;
    tstring m_report;
    std::uint32_t m_step = 0;
    std::uint32_t m_lastStepTime = 0;
    IControl* m_pFirewallOffButton = nullptr;
    // Declared last: destroyed first, it waits for a job still running
    // (bounded by the job's own time limit) before the rest goes.
    std::vector<DetailSection> m_laterDetails;
    bool m_bAfterSequenceStarted = false;
    std::future<std::vector<DetailSection>> m_afterSequence;
};
