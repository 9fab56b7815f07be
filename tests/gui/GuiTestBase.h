#pragma once
// Shared pieces of the GUI tests: a temporary game folder to run in, a toolkit
// that records the programs it starts, and a script of user actions that runs
// while the dialogs' own loops are turning.
#include <QAbstractButton>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "QtDialogWindow.h"
#include "QtToolkit.h"
#include "RigInspectorApp/Inspector.h"
#include "RigInspectorApp/InspectorApp.h"

/// game/ beside patcher/ in a temporary directory, patcher/ the working
/// directory while it lives, with a patcher.exe that leaves a marker file.
class TestGameFolder
{
public:
    TestGameFolder() : m_PreviousDir(QDir::currentPath())
    {
        const QDir root(m_Dir.path());
        QFile patcher(root.filePath(QStringLiteral("patcher/patcher.exe")));
        m_bValid = m_Dir.isValid() && root.mkpath(QStringLiteral("game")) &&
                   root.mkpath(QStringLiteral("patcher")) && patcher.open(QIODevice::WriteOnly) &&
                   patcher.write("#!/bin/sh\necho started > patcher_ran\n") > 0 &&
                   patcher.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner) &&
                   QDir::setCurrent(root.filePath(QStringLiteral("patcher")));
    }
    ~TestGameFolder() { QDir::setCurrent(m_PreviousDir); }
    bool IsValid() const { return m_bValid; }
    QString OptionFile() const { return m_Dir.filePath(QStringLiteral("game/option.ini")); }
    QString PatcherMarker() const { return m_Dir.filePath(QStringLiteral("patcher/patcher_ran")); }

private:
    QTemporaryDir m_Dir;
    QString m_PreviousDir;
    bool m_bValid = false;
};

/// The real toolkit, also recording each StartProcess call.
class RecordingToolkit : public QtToolkit
{
public:
    bool StartProcess(const std::string& commandLine, int nShowMode) override
    {
        m_Started.push_back(commandLine);
        return QtToolkit::StartProcess(commandLine, nShowMode);
    }
    std::vector<std::string> m_Started;
};

/// What each dialog test runs in: its own game folder and the recording
/// toolkit installed, with no patcher switch; made in init(), gone in cleanup().
struct DialogFixture
{
    DialogFixture()
    {
        SetToolkit(&toolkit);
        theApp.m_bRunPatcher = false;
    }
    ~DialogFixture()
    {
        g_inspector.m_pDlg = nullptr;
        SetToolkit(nullptr);
    }
    TestGameFolder folder;
    RecordingToolkit toolkit;
};

/// Actions to take in order, each once its condition holds, checked every few
/// milliseconds from whatever loop is pumping. Past the time limit the script
/// posts the quit message, which ends every dialog, so a stuck test fails
/// instead of hanging.
class UiScript
{
public:
    explicit UiScript(QtToolkit& toolkit, int nTimeLimitMs = 20000)
        : m_Toolkit(toolkit), m_nTimeLimitMs(nTimeLimitMs)
    {
        m_Clock.start();
        QObject::connect(&m_Timer, &QTimer::timeout, [this] { Poll(); });
        m_Timer.start(5);
    }
    void Then(std::function<bool()> ready, std::function<void()> action)
    {
        m_Steps.push_back(Step{std::move(ready), std::move(action)});
    }
    /// Acts on the dialog made from nTemplateId once it runs modally and shows.
    void WhenShown(int nTemplateId, std::function<void(QtDialogWindow*)> action)
    {
        auto shown = [this, nTemplateId]
        {
            QtDialogWindow* pWindow = m_Toolkit.GetActiveDialog();
            return pWindow && pWindow->isVisible() && !pWindow->IsEnded() &&
                   pWindow->GetTemplateId() == nTemplateId;
        };
        Then(shown, [this, action = std::move(action)] { action(m_Toolkit.GetActiveDialog()); });
    }
    /// Every action ran in time.
    bool Succeeded() const { return m_Steps.empty() && !m_bTimedOut; }

private:
    void Poll()
    {
        if (m_Clock.elapsed() > m_nTimeLimitMs)
        {
            m_bTimedOut = true;
            m_Timer.stop();
            m_Toolkit.PostQuitMessage(0);
            return;
        }
        if (m_Steps.empty() || !m_Steps.front().ready())
            return;
        // The action may open a modal dialog and not return for a while; run it
        // from a call of its own so this timer keeps polling meanwhile.
        QTimer::singleShot(0, std::move(m_Steps.front().action));
        m_Steps.pop_front();
    }

    struct Step
    {
        std::function<bool()> ready;
        std::function<void()> action;
    };
    QtToolkit& m_Toolkit;
    int m_nTimeLimitMs;
    std::deque<Step> m_Steps;
    QTimer m_Timer;
    QElapsedTimer m_Clock;
    bool m_bTimedOut = false;
};

/// A click now, through the mouse events a user's click makes.
inline void Click(QAbstractButton* pButton)
{
    QTest::mouseClick(pButton, Qt::LeftButton);
}
