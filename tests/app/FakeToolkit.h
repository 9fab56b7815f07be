#pragma once
// A toolkit for driving the dialogs' logic without a window system: a clock
// that only moves when the logic sleeps (or a fake check advances it), a view
// that records every document, controls that record their states, and
// scripted clicks delivered at the next pump, as queued input is.
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "RigInspectorApp/UiToolkit.h"

class FakeControl : public IControl
{
public:
    void EnableWindow(bool bEnable) override { m_bEnabled = bEnable; }
    bool IsWindowEnabled() const override { return m_bEnabled; }
    void SetCheck(int nCheck) override
    {
        m_check = nCheck;
        if (m_pCheckLog)
            m_pCheckLog->push_back({m_id, nCheck});
    }
    int GetCheck() const override { return m_check; }

    int m_id = 0;
    bool m_bEnabled = true;
    int m_check = 0;
    std::vector<std::pair<int, int>>* m_pCheckLog = nullptr;
};

class FakeView : public IReportView
{
public:
    void Navigate(const tstring& url) override
    {
        m_navigations.push_back(url);
        if (m_bCompleteNavigation)
            m_bHasDocument = true;
    }
    bool HasDocument() const override { return m_bHasDocument; }
    bool LoadDocument(const char16_t* pStream, std::size_t nBytes) override
    {
        m_sizes.push_back(nBytes);
        m_streams.emplace_back(pStream, nBytes / 2); // with the terminating zero
        m_documents.emplace_back(pStream, nBytes / 2 - 1);
        return true;
    }
    bool ScrollToEnd() override
    {
        ++m_scrolls;
        return m_bHasDocument;
    }

    bool m_bCompleteNavigation = true;
    bool m_bHasDocument = false;
    std::vector<tstring> m_navigations;
    std::vector<tstring> m_documents;
    std::vector<tstring> m_streams;
    std::vector<std::size_t> m_sizes;
    int m_scrolls = 0;
};

class FakeWindow : public IDialogWindow
{
public:
    FakeWindow(int nTemplateId, FakeView* pView, std::vector<std::pair<int, int>>* pCheckLog)
        : m_nTemplateId(nTemplateId), m_pView(pView)
    {
        for (int id : {1, 2, 3, 1001, 1002, 1003, 1004, 1005, 1006, 1007, 1008})
        {
            auto& control = m_controls[id];
            control.m_id = id;
            control.m_pCheckLog = pCheckLog;
        }
    }
    IControl* GetDlgItem(int nId) override
    {
        auto it = m_controls.find(nId);
        return it == m_controls.end() ? nullptr : &it->second;
    }
    IReportView* GetReportView() override { return m_pView; }
    void ShowWindow() override { m_bShown = true; }
    void EndDialog(int nResult) override
    {
        m_result = nResult;
        m_bEnded = true;
    }
    void SetTimer(unsigned nIdEvent, unsigned nElapse) override
    {
        m_timerId = nIdEvent;
        m_timerElapse = nElapse;
        m_bTimer = true;
    }
    void KillTimer(unsigned nIdEvent) override
    {
        if (m_timerId == nIdEvent)
            m_bTimer = false;
    }

    int m_nTemplateId;
    FakeView* m_pView;
    std::map<int, FakeControl> m_controls;
    bool m_bShown = false;
    bool m_bEnded = false;
    int m_result = 0;
    bool m_bTimer = false;
    unsigned m_timerId = 0;
    unsigned m_timerElapse = 0;
};

class FakeToolkit : public UiToolkit
{
public:
    FakeToolkit() { SetToolkit(this); }
    ~FakeToolkit() override { SetToolkit(nullptr); }

    /// Called at every pump with the pump's number, before queued clicks are
    /// delivered; it may queue clicks.
    std::function<void(int nPump)> m_onPump;
    /// Decides what the user does in the graphic dialog once it is open.
    std::function<void(CDialogLogic&, FakeWindow&)> m_onGraphicDialog;

    /// A click that the next pump delivers, as a queued mouse click would be.
    /// Clicks on a disabled button are lost, as they are on a real one.
    void QueueClick(int nId) { m_queuedClicks.push_back(nId); }

    int RunModal(CDialogLogic& dlg) override
    {
        auto pWnd = std::make_unique<FakeWindow>(dlg.GetTemplateId(),
                                                 dlg.GetTemplateId() == 102 ? &m_view : nullptr, &m_checkLog);
        FakeWindow& wnd = *pWnd;
        m_windows.push_back(std::move(pWnd));
        m_modalTemplates.push_back(dlg.GetTemplateId());
        m_dialogStack.push_back({&dlg, &wnd});
        dlg.Attach(&wnd);
        dlg.OnInitDialog();
        if (dlg.GetTemplateId() == 130 && m_onGraphicDialog)
            m_onGraphicDialog(dlg, wnd);
        // A bound, so a fault in the logic ends the test instead of hanging it.
        for (int turn = 0; turn < 1000 && !wnd.m_bEnded && !m_bQuitPosted && wnd.m_bTimer; ++turn)
            dlg.OnTimer(wnd.m_timerId);
        dlg.Attach(nullptr);
        m_dialogStack.pop_back();
        return wnd.m_result;
    }

    bool PumpWaitingMessages() override
    {
        ++m_pumps;
        if (m_pumps > kMaxPumps)
            PostQuitMessage(99); // runaway: stop the loop so the test can fail
        if (m_onPump)
            m_onPump(m_pumps);
        std::vector<int> clicks;
        clicks.swap(m_queuedClicks);
        for (int id : clicks)
        {
            if (m_dialogStack.empty())
                break;
            auto [pDlg, pWnd] = m_dialogStack.back();
            IControl* pControl = pWnd->GetDlgItem(id);
            if (pControl && !pControl->IsWindowEnabled())
                continue;
            pDlg->OnCommand(id);
        }
        if (m_bQuitPosted)
        {
            m_bQuitPosted = false;
            ++m_quitsTaken;
            return false;
        }
        return true;
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

    static constexpr int kMaxPumps = 100000;

    std::uint32_t m_now = 0;
    FakeView m_view;
    std::vector<std::pair<int, int>> m_checkLog; // (control id, check) in call order
    std::vector<std::unique_ptr<FakeWindow>> m_windows;
    std::vector<int> m_modalTemplates;
    std::vector<std::pair<CDialogLogic*, FakeWindow*>> m_dialogStack;
    std::vector<int> m_queuedClicks;
    std::vector<std::pair<std::string, int>> m_processes;
    std::vector<int> m_quitCodes;
    bool m_bQuitPosted = false;
    int m_quitsTaken = 0;
    int m_pumps = 0;
};
