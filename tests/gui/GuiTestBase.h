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

/// A game folder (game/ beside patcher/) in a temporary directory, with
/// patcher/ as the working directory while it lives, and a fake patcher.exe
/// that leaves a marker file when it runs.
class TestGameFolder
{
public:
    TestGameFolder();
    ~TestGameFolder();
    bool IsValid() const { return m_bValid; }
    QString OptionFile() const;
    QString PatcherMarker() const;

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

/// Actions to take in order, each once its condition holds, checked every few
/// milliseconds from whatever loop is pumping. Past the time limit the script
/// posts the quit message, which ends every dialog, so a stuck test fails
/// instead of hanging.
class UiScript
{
public:
    explicit UiScript(UiToolkit& toolkit, int nTimeLimitMs = 20000);
    void Then(std::function<bool()> ready, std::function<void()> action);
    bool IsFinished() const { return m_Steps.empty(); }
    bool HasTimedOut() const { return m_bTimedOut; }

private:
    void Poll();

    struct Step
    {
        std::function<bool()> ready;
        std::function<void()> action;
    };
    UiToolkit& m_Toolkit;
    int m_nTimeLimitMs;
    std::deque<Step> m_Steps;
    QTimer m_Timer;
    QElapsedTimer m_Clock;
    bool m_bTimedOut = false;
};

/// The dialog made from nTemplateId that is running modally and shown, or null.
QtDialogWindow* ShownDialog(QtToolkit& toolkit, int nTemplateId);

/// A click queued as the user's would be: delivered by the next pump.
void QueueClick(QAbstractButton* pButton);
/// A click now, through the mouse events a user's click makes.
void Click(QAbstractButton* pButton);
