#include "GuiTestBase.h"

#include <QAbstractButton>
#include <QDir>
#include <QFile>
#include <QTest>

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

QString TestGameFolder::OptionFile() const
{
    return QDir(m_Dir.path()).filePath(QStringLiteral("game/option.ini"));
}

QString TestGameFolder::PatcherMarker() const
{
    return QDir(m_Dir.path()).filePath(QStringLiteral("patcher/patcher_ran"));
}

UiScript::UiScript(UiToolkit& toolkit, int nTimeLimitMs) : m_Toolkit(toolkit), m_nTimeLimitMs(nTimeLimitMs)
{
    m_Clock.start();
    QObject::connect(&m_Timer, &QTimer::timeout, [this] { Poll(); });
    m_Timer.start(5);
}

void UiScript::Then(std::function<bool()> ready, std::function<void()> action)
{
    m_Steps.push_back(Step{std::move(ready), std::move(action)});
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

QtDialogWindow* ShownDialog(QtToolkit& toolkit, int nTemplateId)
{
    QtDialogWindow* pWindow = toolkit.GetActiveDialog();
    if (pWindow == nullptr || !pWindow->isVisible() || pWindow->IsEnded())
        return nullptr;
    return pWindow->GetTemplateId() == nTemplateId ? pWindow : nullptr;
}

void QueueClick(QAbstractButton* pButton)
{
    QTimer::singleShot(0, pButton, [pButton] { Click(pButton); });
}

void Click(QAbstractButton* pButton)
{
    QTest::mouseClick(pButton, Qt::LeftButton);
}
