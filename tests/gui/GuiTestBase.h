#pragma once
// Shared pieces of the GUI tests: a temporary game folder to run in, a toolkit
// that records the programs it starts, and a script of user actions that runs
// while the dialogs' own loops are turning.
#include <QElapsedTimer>
#include <QString>
#include <QTemporaryDir>
#include <QTimer>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "QtDialogWindow.h"
#include "QtToolkit.h"

/// game/ beside patcher/ in a temporary directory, patcher/ the working
/// directory while it lives, with a patcher.exe that leaves a marker file.
class TestGameFolder
{
public:
    TestGameFolder();
    ~TestGameFolder();
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
    DialogFixture();
    ~DialogFixture();
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
    explicit UiScript(QtToolkit& toolkit, int nTimeLimitMs = 20000);
    void Then(std::function<bool()> ready, std::function<void()> action);
    /// Acts on the dialog made from nTemplateId once it runs modally and shows.
    void WhenShown(int nTemplateId, std::function<void(QtDialogWindow*)> action);
    /// Every action ran in time.
    bool Succeeded() const { return m_Steps.empty() && !m_bTimedOut; }

private:
    void Poll();

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

/// A click queued as the user's would be: delivered by the next pump.
void QueueClick(QAbstractButton* pButton);
/// A click now, through the mouse events a user's click makes.
void Click(QAbstractButton* pButton);
