#pragma once
// A dialog logic for the toolkit tests: records the commands that reach it
// and runs a test's hooks. Window is the toolkit's own window class.
#include <functional>
#include <vector>

#include "RigInspectorApp/UiToolkit.h"

template <class Window> class ProbeDialogOf : public CDialogLogic
{
public:
    using CDialogLogic::CDialogLogic;
    bool OnInitDialog() override
    {
        m_pWindow = static_cast<Window*>(GetWindow());
        if (m_OnInit)
            m_OnInit(*this);
        return true;
    }
    void OnCommand(int nId) override
    {
        m_Commands.push_back(nId);
        if (m_OnCommand)
            m_OnCommand(*this, nId);
    }
    void OnTimer(unsigned nIdEvent) override
    {
        if (m_OnTimer)
            m_OnTimer(*this, nIdEvent);
    }
    void End(int nResult) { GetWindow()->EndDialog(nResult); }

    Window* m_pWindow = nullptr;
    std::vector<int> m_Commands;
    std::function<void(ProbeDialogOf&)> m_OnInit;
    std::function<void(ProbeDialogOf&, int)> m_OnCommand;
    std::function<void(ProbeDialogOf&, unsigned)> m_OnTimer;
};
