#pragma once
// A toolkit for the dialogs' logic without a window system: a clock that moves
// only when the logic sleeps or a fake check advances it, a view and controls
// that record what they are told, and clicks delivered at the next pump.
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "RigInspectorApp/UiToolkit.h"

class FakeControl : public IControl
{
public:
    void EnableWindow(bool bEnable) override { m_bEnabled = bEnable; }
    bool IsWindowEnabled() const override { return m_bEnabled; }
    void SetCheck(int nCheck) override { m_check = nCheck; }
    int GetCheck() const override { return m_check; }

    bool m_bEnabled = true;
    int m_check = 0;
};

class FakeView : public IReportView
{
public:
    void Navigate(const tstring& url) override
    {
        m_navigations.push_back(url);
        m_bHasDocument = true;
    }
    bool HasDocument() const override { return m_bHasDocument; }
    bool LoadDocument(const char16_t* pStream, std::size_t nBytes) override
    {
        m_sizes.push_back(nBytes);
        m_bAllZeroTerminated = m_bAllZeroTerminated && pStream[nBytes / 2 - 1] == 0;
        m_documents.emplace_back(pStream, nBytes / 2 - 1);
        return true;
    }
    bool ScrollToEnd() override
    {
        ++m_scrolls;
        return m_bHasDocument;
    }

    bool m_bHasDocument = false;
    bool m_bAllZeroTerminated = true;
    std::vector<tstring> m_navigations, m_documents;
    std::vector<std::size_t> m_sizes;
    int m_scrolls = 0;
};

class FakeDetailsView : public IDetailsView
{
public:
    void SetDetails(const std::vector<DetailSection>& sections) override { m_shown = sections; }
    void OfferReport(std::function<std::string()> renderBundle) override
    {
        m_renderBundle = std::move(renderBundle);
    }
    std::vector<DetailSection> m_shown;
    std::function<std::string()> m_renderBundle;
};

class FakeWindow : public IDialogWindow
{
public:
    explicit FakeWindow(FakeView* pView) : m_pView(pView)
    {
        for (int id : {1, 2, 3, 1001, 1002, 1003, 1004, 1005, 1006, 1007, 1008})
            m_controls[id];
    }
    IControl* GetDlgItem(int nId) override
    {
        auto it = m_controls.find(nId);
        return it == m_controls.end() ? nullptr : &it->second;
    }
    IReportView* GetReportView() override { return m_pView; }
    IDetailsView* GetDetailsView() override { return m_pView ? &m_details : nullptr; }
    void ShowWindow() override { m_bShown = true; }
    void EndDialog(int nResult) override
    {
        m_result = nResult;
        m_bEnded = true;
    }
    void SetTimer(unsigned nIdEvent, unsigned) override
    {
        m_timerId = nIdEvent;
        m_bTimer = true;
    }
    void KillTimer(unsigned nIdEvent) override { m_bTimer = m_bTimer && m_timerId != nIdEvent; }

    FakeView* m_pView;
    FakeDetailsView m_details;
    std::map<int, FakeControl> m_controls;
    bool m_bShown = false, m_bEnded = false, m_bTimer = false;
    int m_result = 0;
    unsigned m_timerId = 0;
};

class FakeToolkit : public UiToolkit
{
public:
    FakeToolkit() { SetToolkit(this); }
    ~FakeToolkit() override { SetToolkit(nullptr); }

    /// Runs at every pump, before the queued clicks are delivered; may queue more.
    std::function<void(int nPump)> m_onPump;
    /// What the user does in the graphic dialog once it is open.
    std::function<void(CDialogLogic&)> m_onGraphicDialog;

    /// Delivered by the next pump to the innermost dialog.
    void QueueClick(int nId) { m_queuedClicks.push_back(nId); }

    int RunModal(CDialogLogic& dlg) override
    {
        const int nTemplate = dlg.GetTemplateId();
        m_windows.push_back(std::make_unique<FakeWindow>(nTemplate == 102 ? &m_view : nullptr));
        FakeWindow& wnd = *m_windows.back();
        m_modalTemplates.push_back(nTemplate);
        m_dialogStack.push_back(&dlg);
        dlg.Attach(&wnd);
        dlg.OnInitDialog();
        if (nTemplate == 130 && m_onGraphicDialog)
            m_onGraphicDialog(dlg);
        // Bounded, so a fault in the logic fails the test instead of hanging it.
        for (int turn = 0; turn < 1000 && !wnd.m_bEnded && !m_bQuitPosted && wnd.m_bTimer; ++turn)
            dlg.OnTimer(wnd.m_timerId);
        dlg.Attach(nullptr);
        m_dialogStack.pop_back();
        return wnd.m_result;
    }

    bool PumpWaitingMessages() override
    {
        if (++m_pumps > 100000)
            PostQuitMessage(99); // runaway
        if (m_onPump)
            m_onPump(m_pumps);
        std::vector<int> clicks;
        clicks.swap(m_queuedClicks);
        for (int id : clicks)
            if (!m_dialogStack.empty())
                m_dialogStack.back()->OnCommand(id);
        return !std::exchange(m_bQuitPosted, false);
    }
    void PostQuitMessage(int nExitCode) override
    {
        m_bQuitPosted = true;
        m_quitCodes.push_back(nExitCode);
    }
    std::uint32_t TimeGetTime() override { return m_now; }
    void Sleep(std::uint32_t nMilliseconds) override { m_now += nMilliseconds; }
    bool StartProcess(const std::string& commandLine, int nShowMode) override
    {
        m_processes.push_back({commandLine, nShowMode});
        return true;
    }

    std::uint32_t m_now = 0;
    FakeView m_view;
    std::vector<std::unique_ptr<FakeWindow>> m_windows;
    std::vector<int> m_modalTemplates, m_queuedClicks, m_quitCodes;
    std::vector<CDialogLogic*> m_dialogStack;
    std::vector<std::pair<std::string, int>> m_processes;
    bool m_bQuitPosted = false;
    int m_pumps = 0;
};
