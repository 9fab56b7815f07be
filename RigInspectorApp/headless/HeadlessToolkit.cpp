#include "HeadlessToolkit.h"

#include <cstring>

#include "RigInspectorApp/InspectorDlg.h"
#include "RigInspectorApp/ProcessLauncher.h"
#include "share/common/Clock.h"

void HeadlessReportView::Navigate(const tstring& /*url*/)
{
    // Navigation completes at once: there is nothing to load.
    m_bHasDocument = true;
}

bool HeadlessReportView::LoadDocument(const char16_t* pStream, std::size_t nBytes)
{
    if (!m_bHasDocument || pStream == nullptr || nBytes < sizeof(char16_t))
        return false;
    m_document.assign(pStream, nBytes / sizeof(char16_t) - 1);

    const std::size_t prefix = std::char_traits<char16_t>::length(kReportPrefix);
    const std::size_t suffix = std::char_traits<char16_t>::length(kReportSuffix);
    if (m_document.size() < prefix + suffix)
        return true;
    const std::u16string_view body =
        std::u16string_view(m_document).substr(prefix, m_document.size() - prefix - suffix);
    // The body only grows, so what is new is what lies past the part shown.
    if (body.size() > m_shownBodyLength && m_listener)
        m_listener(body.substr(m_shownBodyLength));
    m_shownBodyLength = body.size();
    return true;
}

namespace
{
class HeadlessControl : public IControl
{
public:
    void EnableWindow(bool bEnable) override { m_bEnabled = bEnable; }
    bool IsWindowEnabled() const override { return m_bEnabled; }
    void SetCheck(int nCheck) override { m_check = nCheck; }
    int GetCheck() const override { return m_check; }

private:
    bool m_bEnabled = true;
    int m_check = 0;
};

class HeadlessWindow : public IDialogWindow
{
public:
    explicit HeadlessWindow(IReportView* pView) : m_pView(pView) {}

    IControl* GetDlgItem(int nId) override { return &m_controls[nId]; }
    IReportView* GetReportView() override { return m_pView; }
    void ShowWindow() override {}
    void EndDialog(int nResult) override { m_result = nResult; }
    void SetTimer(unsigned nIdEvent, unsigned /*nElapse*/) override { m_timer = nIdEvent; }
    void KillTimer(unsigned nIdEvent) override
    {
        if (m_timer == nIdEvent)
            m_timer.reset();
    }

    std::optional<int> m_result;
    std::optional<unsigned> m_timer;

private:
    IReportView* m_pView;
    std::map<int, HeadlessControl> m_controls;
};

bool IsChecked(HeadlessWindow& wnd, int nId)
{
    return wnd.GetDlgItem(nId)->GetCheck() == 1;
}
} // namespace

int HeadlessToolkit::RunModal(CDialogLogic& dlg)
{
    const bool bMain = dlg.GetTemplateId() == CInspectorDlg::kTemplateId;
    HeadlessWindow wnd(bMain ? &m_view : nullptr);
    dlg.Attach(&wnd);
    dlg.OnInitDialog();

    if (bMain)
    {
        m_pMainDlg = dynamic_cast<CInspectorDlg*>(&dlg);
    }
    else if (auto* pGraphic = dynamic_cast<CGraphicConfigDlg*>(&dlg))
    {
        GraphicRecommendation shown;
        shown.charHigh = IsChecked(wnd, 1001);
        shown.shadowHigh = IsChecked(wnd, 1003);
        shown.spectatorsHigh = IsChecked(wnd, 1005);
        shown.pipHigh = IsChecked(wnd, 1007);
        m_shown = shown;
        pGraphic->OnCommand(m_choices.bAccept ? IDOK : IDCANCEL);
        m_optionsWritten = pGraphic->GetLastWriteResult();
    }

    // The modal loop: the main dialog's first timer message becomes the
    // sequence loop, which returns only once the quit message was taken.
    while (!wnd.m_result && !m_bQuitPosted)
    {
        if (!wnd.m_timer)
            break;
        dlg.OnTimer(*wnd.m_timer);
    }

    if (bMain)
        m_pMainDlg = nullptr;
    dlg.Attach(nullptr);
    return wnd.m_result.value_or(IDCANCEL);
}

bool HeadlessToolkit::PumpWaitingMessages()
{
    MarkIdle();
    if (m_pMainDlg && !m_bPressed && m_pMainDlg->IsSequenceDone())
    {
        m_bPressed = true;
        m_pMainDlg->OnCommand(m_choices.bNext ? IDOK : IDCANCEL);
    }
    if (m_bQuitPosted)
    {
        m_bQuitPosted = false;
        return false;
    }
    return true;
}

void HeadlessToolkit::PostQuitMessage(int /*nExitCode*/)
{
    m_bQuitPosted = true;
}

std::uint32_t HeadlessToolkit::TimeGetTime()
{
    return zul::GetTickCount();
}

void HeadlessToolkit::Sleep(std::uint32_t nMilliseconds)
{
    MarkIdle();
    zul::Sleep(nMilliseconds);
    // What runs from here to the next pump is a step (or the idle check).
    m_busySince.store(zul::GetTickCount(), std::memory_order_relaxed);
}

bool HeadlessToolkit::StartProcess(const std::string& commandLine, int /*nShowMode*/)
{
    m_patcherStarted = LaunchProcess(commandLine);
    return *m_patcherStarted;
}

std::optional<std::uint32_t> HeadlessToolkit::BusyForMs() const
{
    const std::uint64_t since = m_busySince.load(std::memory_order_relaxed);
    if (since == kIdle)
        return std::nullopt;
    return static_cast<std::uint32_t>(zul::GetTickCount() - static_cast<std::uint32_t>(since));
}
