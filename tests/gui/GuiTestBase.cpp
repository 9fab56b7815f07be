#include "GuiTestBase.h"

#include <QAbstractButton>
#include <QDir>
#include <QFile>
#include <QTest>

#include "RigInspectorApp/Inspector.h"
#include "RigInspectorApp/InspectorApp.h"

TestGameFolder::TestGameFolder() : m_PreviousDir(QDir::currentPath())
{
    const QDir root(m_Dir.path());
    m_bValid =
        m_Dir.isValid() && root.mkpath(QStringLiteral("game")) && root.mkpath(QStringLiteral("patcher"));
    if (!m_bValid)
        return;
    QFile patcher(root.filePath(QStringLiteral("patcher/patcher.exe")));
    m_bValid = patcher.open(QIODevice::WriteOnly) &&
               patcher.write("#!/bin/sh\necho started > patcher_ran\n") > 0 &&
               patcher.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    patcher.close();
    m_bValid = m_bValid && QDir::setCurrent(root.filePath(QStringLiteral("patcher")));
}

TestGameFolder::~TestGameFolder()
{
    QDir::setCurrent(m_PreviousDir);
}

DialogFixture::DialogFixture()
{
    SetToolkit(&toolkit);
    theApp.m_bRunPatcher = false;
}

DialogFixture::~DialogFixture()
{
    g_inspector.m_pDlg = nullptr;
    SetToolkit(nullptr);
}

UiScript::UiScript(QtToolkit& toolkit, int nTimeLimitMs) : m_Toolkit(toolkit), m_nTimeLimitMs(nTimeLimitMs)
{
    m_Clock.start();
    QObject::connect(&m_Timer, &QTimer::timeout, [this] { Poll(); });
    m_Timer.start(5);
}

void UiScript::Then(std::function<bool()> ready, std::function<void()> action)
{
    m_Steps.push_back(Step{std::move(ready), std::move(action)});
}

void UiScript::WhenShown(int nTemplateId, std::function<void(QtDialogWindow*)> action)
{
    auto shown = [this, nTemplateId]
    {
        QtDialogWindow* pWindow = m_Toolkit.GetActiveDialog();
        return pWindow && pWindow->isVisible() && !pWindow->IsEnded() &&
               pWindow->GetTemplateId() == nTemplateId;
    };
    Then(shown, [this, action = std::move(action)] { action(m_Toolkit.GetActiveDialog()); });
}

void UiScript::Poll()
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

void QueueClick(QAbstractButton* pButton)
{
    QTimer::singleShot(0, pButton, [pButton] { Click(pButton); });
}

void Click(QAbstractButton* pButton)
{
    QTest::mouseClick(pButton, Qt::LeftButton);
}
