// The graphic configuration dialog driven through the Qt toolkit.
#include <QAbstractButton>
#include <QFile>
#include <QTest>
#include <QWindow>
#include <memory>

#include "GuiTestBase.h"
#include "RigInspectorApp/GraphicConfigDlg.h"
#include "RigInspectorApp/IniFile.h"
#include "RigInspectorApp/Inspector.h"
#include "RigInspectorApp/InspectorApp.h"

namespace
{
/// The check states of 1001 to 1008, as "1" and "0".
QString Checks(QtDialogWindow* pWindow)
{
    QString states;
    for (int nId = 1001; nId <= 1008; ++nId)
        states += pWindow->GetButton(nId)->isChecked() ? '1' : '0';
    return states;
}

void SetMeasured(int nCpu, int nVideo, int nSystem)
{
    g_inspector.m_CpuSpeed = nCpu;
    g_inspector.m_VideoMemory = nVideo;
    g_inspector.m_SystemMemory = nSystem;
}
} // namespace

class TestGraphicConfigDialog : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void recommendUndoesTheUsersChanges();
    void eachPairIsExclusiveOnItsOwn();
    void acceptWritesTheShownChoices_data();
    void acceptWritesTheShownChoices();
    void leavingWithoutAcceptLeavesTheFileUntouched_data();
    void leavingWithoutAcceptLeavesTheFileUntouched();
    void patcherStartsOnEveryWayOutOnlyWhenAsked_data();
    void patcherStartsOnEveryWayOutOnlyWhenAsked();

private:
    /// Runs the dialog, doing action once it is shown; action must end it.
    int Run(const std::function<void(QtDialogWindow*)>& action);

    std::unique_ptr<TestGameFolder> m_pFolder;
    std::unique_ptr<RecordingToolkit> m_pToolkit;
};

void TestGraphicConfigDialog::init()
{
    m_pFolder = std::make_unique<TestGameFolder>();
    QVERIFY(m_pFolder->IsValid());
    m_pToolkit = std::make_unique<RecordingToolkit>();
    SetToolkit(m_pToolkit.get());
    theApp.m_bRunPatcher = false;
    SetMeasured(0, 0, 0);
}

void TestGraphicConfigDialog::cleanup()
{
    SetToolkit(nullptr);
    m_pToolkit.reset();
    m_pFolder.reset();
}

int TestGraphicConfigDialog::Run(const std::function<void(QtDialogWindow*)>& action)
{
    CGraphicConfigDlg dlg;
    UiScript script(*m_pToolkit);
    script.Then([&] { return ShownDialog(*m_pToolkit, IDD_GRAPHIC_CONFIG_DIALOG) != nullptr; },
                [&] { action(m_pToolkit->GetActiveDialog()); });
    const int nResult = dlg.DoModal();
    [&]
    {
        QVERIFY2(!script.HasTimedOut(), "the dialog did not end in time");
        QVERIFY(script.IsFinished());
        QVERIFY(m_pToolkit->IsQuitPosted());
    }();
    return nResult;
}

void TestGraphicConfigDialog::recommendUndoesTheUsersChanges()
{
    SetMeasured(2400, 128, 1024);
    QString shown, changed, recommended;
    QCOMPARE(Run(
                 [&](QtDialogWindow* pWindow)
                 {
                     shown = Checks(pWindow);
                     for (int nId : {1002, 1004, 1006, 1008})
                         Click(pWindow->GetButton(nId));
                     changed = Checks(pWindow);
                     Click(pWindow->GetButton(CGraphicConfigDlg::kRecommendButtonId));
                     recommended = Checks(pWindow);
                     Click(pWindow->GetButton(IDCANCEL));
                 }),
             IDCANCEL);
    QCOMPARE(shown, QStringLiteral("10101010"));
    QCOMPARE(changed, QStringLiteral("01010101"));
    QCOMPARE(recommended, shown);
}

void TestGraphicConfigDialog::eachPairIsExclusiveOnItsOwn()
{
    SetMeasured(2400, 31, 1024); // low tier: every Low checked
    QStringList states;
    Run(
        [&](QtDialogWindow* pWindow)
        {
            states << Checks(pWindow);
            for (int nId : {1001, 1003, 1005, 1007, 1002})
            {
                Click(pWindow->GetButton(nId));
                states << Checks(pWindow);
            }
            Click(pWindow->GetButton(IDCANCEL));
        });
    QCOMPARE(states, (QStringList{"01010101", "10010101", "10100101", "10101001", "10101010", "01101010"}));
}

void TestGraphicConfigDialog::acceptWritesTheShownChoices_data()
{
    QTest::addColumn<QList<int>>("measured");
    QTest::addColumn<QList<int>>("clicks");
    QTest::addColumn<QString>("expected"); // char_lod, shadow, audience, event_screen
    QTest::newRow("high tier") << QList<int>{2400, 128, 1024} << QList<int>{} << "1111";
    QTest::newRow("middle tier") << QList<int>{1000, 64, 512} << QList<int>{} << "1110";
    QTest::newRow("low tier, user raises P.I.P") << QList<int>{2400, 31, 1024} << QList<int>{1007} << "0001";
}

void TestGraphicConfigDialog::acceptWritesTheShownChoices()
{
    QFETCH(QList<int>, measured);
    QFETCH(QList<int>, clicks);
    QFETCH(QString, expected);
    SetMeasured(measured[0], measured[1], measured[2]);
    QCOMPARE(Run(
                 [&](QtDialogWindow* pWindow)
                 {
                     for (int nId : clicks)
                         Click(pWindow->GetButton(nId));
                     Click(pWindow->GetButton(IDOK));
                 }),
             IDOK);

    QString written;
    for (const char16_t* key : {u"char_lod", u"shadow", u"audience", u"event_screen"})
        written += QString::fromStdU16String(GetPrivateProfileString(u"video", key, u"?", g_optionFile));
    QCOMPARE(written, expected);
    QVERIFY(QFile::exists(m_pFolder->OptionFile()));
}

void TestGraphicConfigDialog::leavingWithoutAcceptLeavesTheFileUntouched_data()
{
    QTest::addColumn<int>("way"); // 0 Cancel, 1 Esc, 2 close box
    QTest::newRow("Cancel") << 0;
    QTest::newRow("Esc") << 1;
    QTest::newRow("close box") << 2;
}

void TestGraphicConfigDialog::leavingWithoutAcceptLeavesTheFileUntouched()
{
    QFETCH(int, way);
    SetMeasured(2400, 128, 1024);
    const QByteArray before = "; kept as it is\r\n[video]\r\nshadow=0\r\nchar_lod=0\r\n";
    {
        QFile file(m_pFolder->OptionFile());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(before);
    }
    QCOMPARE(Run(
                 [&](QtDialogWindow* pWindow)
                 {
                     if (way == 0)
                         Click(pWindow->GetButton(IDCANCEL));
                     else if (way == 1)
                         QTest::keyClick(pWindow, Qt::Key_Escape);
                     else
                         pWindow->windowHandle()->close();
                 }),
             IDCANCEL);
    QFile file(m_pFolder->OptionFile());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), before);
}

void TestGraphicConfigDialog::patcherStartsOnEveryWayOutOnlyWhenAsked_data()
{
    QTest::addColumn<bool>("bRunPatcher");
    QTest::addColumn<int>("button");
    QTest::newRow("Accept, started with patcher") << true << IDOK;
    QTest::newRow("Cancel, started with patcher") << true << IDCANCEL;
    QTest::newRow("Accept, started without") << false << IDOK;
}

void TestGraphicConfigDialog::patcherStartsOnEveryWayOutOnlyWhenAsked()
{
    QFETCH(bool, bRunPatcher);
    QFETCH(int, button);
    theApp.m_bRunPatcher = bRunPatcher;
    QCOMPARE(Run([&](QtDialogWindow* pWindow) { Click(pWindow->GetButton(button)); }), button);
    QCOMPARE(m_pToolkit->m_Started.size(), bRunPatcher ? 1u : 0u);
    if (bRunPatcher)
        QVERIFY(QTest::qWaitFor([&] { return QFile::exists(m_pFolder->PatcherMarker()); }, 10000));
}

QTEST_MAIN(TestGraphicConfigDialog)
#include "TestGraphicConfigDialog.moc"
