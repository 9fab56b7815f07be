#include "InspectorDlg.h"

#include "DesktopRun.h"
#include "Details.h"

#include <algorithm>
#include <memory>
#include <new>

#include "GraphicConfigDlg.h"

CInspectorDlg::CInspectorDlg(InspectorChecks checks) : CDialogLogic(kTemplateId), m_checks(std::move(checks))
{
}

void CInspectorDlg::AppendReport(const char16_t* text)
{
    m_report += text;
    RenderReport(m_report);
}

void CInspectorDlg::RenderReport(const tstring& body)
{
    tstring document;
    document.reserve(std::size(kReportPrefix) + body.size() + std::size(kReportSuffix));
    document.append(kReportPrefix).append(body).append(kReportSuffix);

    // The view takes the document as a fixed, zero-filled block: its code
    // units and one terminating zero, 2 x length + 2 bytes.
    const std::size_t nUnits = document.size() + 1;
    std::unique_ptr<char16_t[]> block(new (std::nothrow) char16_t[nUnits]());
    if (!block)
        return;
    std::copy(document.begin(), document.end(), block.get());

    IReportView* pView = GetReportView();
    if (pView == nullptr || !pView->HasDocument())
        return;
    pView->LoadDocument(block.get(), nUnits * sizeof(char16_t));
}

void CInspectorDlg::ScrollReportToEnd()
{
    IReportView* pView = GetReportView();
    if (pView == nullptr || !pView->HasDocument())
        return;
    pView->ScrollToEnd();
}

bool CInspectorDlg::OnInitDialog()
{
    // The window's icons are the toolkit's business.
    m_pWnd->ShowWindow();
    m_pFirewallOffButton = GetDlgItem(kFirewallOffButtonId);
    if (m_pFirewallOffButton)
        m_pFirewallOffButton->EnableWindow(false);
    g_inspector.m_pDlg = this;
    if (IReportView* pView = GetReportView())
        pView->Navigate(u"about:blank");
    AppendReportFormat(kReportHeader);
    m_lastStepTime = m_step = 0;
    PublishDetails(); // the settings were diagnosed before the dialog existed
    m_pWnd->SetTimer(kSequenceTimerId, 1);
    return true;
}

void CInspectorDlg::OnTimer(unsigned nIdEvent)
{
    m_pWnd->KillTimer(nIdEvent);
    UiToolkit& toolkit = GetToolkit();
    for (;;)
    {
        Step();
        if (!toolkit.PumpWaitingMessages())
        {
            // The quit message was taken here; post it again so the modal run
            // that hosts this loop sees it too.
            toolkit.PostQuitMessage(0);
            return;
        }
        toolkit.Sleep(kLoopSleepMs);
    }
}

void CInspectorDlg::Step()
{
    UiToolkit& toolkit = GetToolkit();
    const std::uint32_t now = toolkit.TimeGetTime();
    // Unsigned 32-bit on purpose, as the clock wraps.
    if (static_cast<std::uint32_t>(m_lastStepTime + kStepPauseMs) > now)
        return;
    if (m_step >= m_checks.steps.size())
    {
        PollAfterSequence();
        m_lastStepTime = toolkit.TimeGetTime();
        return;
    }

    const int result = m_checks.steps[m_step]();
    AppendReportFormat(u"<br>");
    if (m_step == kFirewallStep)
    {
        AppendReportFormat(kNetworkNotice);
        ScrollReportToEnd();
        if (result == 3 && m_pFirewallOffButton)
            m_pFirewallOffButton->EnableWindow(true);
    }
    else
    {
        ScrollReportToEnd();
    }
    PublishDetails();
    ++m_step;
    m_lastStepTime = toolkit.TimeGetTime();
}

void CInspectorDlg::PublishDetails()
{
    IDetailsView* pView = m_pWnd ? m_pWnd->GetDetailsView() : nullptr;
    if (pView == nullptr)
        return;
    std::vector<DetailSection> sections = CollectDetails();
    sections.insert(sections.end(), m_laterDetails.begin(), m_laterDetails.end());
    pView->SetDetails(sections);
}

void CInspectorDlg::PollAfterSequence()
{
    if (!m_bAfterSequenceStarted)
    {
        m_bAfterSequenceStarted = true;
        if (IDetailsView* pView = m_pWnd ? m_pWnd->GetDetailsView() : nullptr)
            pView->OfferReport(
                [this]
                {
                    tstring document = kReportPrefix;
                    return DesktopBundle(document.append(m_report).append(kReportSuffix));
                });
        if (m_checks.afterSequence)
            m_afterSequence = std::async(std::launch::async, m_checks.afterSequence);
        return;
    }
    if (m_afterSequence.valid() &&
        m_afterSequence.wait_for(std::chrono::seconds(0)) == std::future_status::ready)
    {
        m_laterDetails = m_afterSequence.get();
        PublishDetails();
    }
}

void CInspectorDlg::OnCommand(int nId)
{
    switch (nId)
    {
    case IDOK:
        OnBnClickedOk();
        break;
    case IDCANCEL:
        OnBnClickedCancel();
        break;
    case kFirewallOffButtonId:
        OnBnClickedFirewallOff();
        break;
    default:
        break;
    }
}

void CInspectorDlg::OnBnClickedOk()
{
    OnOK();
    CGraphicConfigDlg dlg;
    dlg.DoModal();
}

void CInspectorDlg::OnBnClickedCancel()
{
    OnCancel();
    GetToolkit().PostQuitMessage(0);
}

void CInspectorDlg::OnBnClickedFirewallOff()
{
    if (m_pFirewallOffButton)
        m_pFirewallOffButton->EnableWindow(false);
    if (m_checks.registerGameWithFirewall)
        m_checks.registerGameWithFirewall();
}
