// The main dialog driven through the Qt toolkit, over fake checks.
#include <QAbstractButton>
#include <QFile>
#include <QTest>
#include <QWindow>
#include <array>
#include <memory>

#include "GuiTestBase.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"

class TestInspectorDialog : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cancelDuringTcpStepLetsItFinishAndRunsNothingMore();
    void nextAfterFirstStepSkipsTheRestAndOpensGraphicDialog();
    void firewallButtonIsOfferedOnlyAfterTheFirewallStepAsks();
    void escapeAndCloseTakeTheCancelPath_data();
    void escapeAndCloseTakeTheCancelPath();
    void patcherStartsOnlyAfterAStartWithPatcher_data();
    void patcherStartsOnlyAfterAStartWithPatcher();

private:
    /// Five steps that log their index and run the hook set for them.
    InspectorChecks MakeChecks();
    int Run(CInspectorDlg& dlg, UiScript& script);
    QAbstractButton* MainButton(int nId) const { return m_pToolkit->GetActiveDialog()->GetButton(nId); }

    std::unique_ptr<TestGameFolder> m_pFolder;
    std::unique_ptr<RecordingToolkit> m_pToolkit;
    std::vector<QString> m_Log;
    std::array<std::function<int()>, 5> m_Hooks;
};

void TestInspectorDialog::init()
{
    m_pFolder = std::make_unique<TestGameFolder>();
    QVERIFY(m_pFolder->IsValid());
    m_pToolkit = std::make_unique<RecordingToolkit>();
    SetToolkit(m_pToolkit.get());
    m_Log.clear();
    m_Hooks = {};
    theApp.m_bRunPatcher = false;
}

void TestInspectorDialog::cleanup()
{
    g_inspector.m_pDlg = nullptr;
    SetToolkit(nullptr);
    m_pToolkit.reset();
    m_pFolder.reset();
}

InspectorChecks TestInspectorDialog::MakeChecks()
{
    InspectorChecks checks;
    for (int i = 0; i < 5; ++i)
    {
        checks.steps.push_back(
            [this, i]
            {
                const int nResult = m_Hooks[i] ? m_Hooks[i]() : 0;
                m_Log.push_back(QString::number(i));
                return nResult;
            });
    }
    checks.registerGameWithFirewall = [this] { m_Log.push_back(QStringLiteral("register")); };
    return checks;
}

int TestInspectorDialog::Run(CInspectorDlg& dlg, UiScript& script)
{
    const int nResult = dlg.DoModal();
    [&]
    {
        QVERIFY2(!script.HasTimedOut(), "the dialog did not end in time");
        QVERIFY(script.IsFinished());
        QVERIFY(m_pToolkit->IsQuitPosted());
    }();
    return nResult;
}

void TestInspectorDialog::cancelDuringTcpStepLetsItFinishAndRunsNothingMore()
{
    theApp.m_bRunPatcher = true; // Cancel leaves without the patcher even so
    bool bEndedDuringStep = true;
    m_Hooks[2] = [&]
    {
        QueueClick(MainButton(IDCANCEL));
        // The click waits for the step: the dialog is still up at its end.
        bEndedDuringStep = m_pToolkit->GetActiveDialog()->IsEnded();
        return 0;
    };
    CInspectorDlg dlg(MakeChecks());
    UiScript script(*m_pToolkit);

    QCOMPARE(Run(dlg, script), IDCANCEL);
    QVERIFY(!bEndedDuringStep);
    QCOMPARE(m_Log, (std::vector<QString>{"0", "1", "2"}));
    QCOMPARE(dlg.GetStepIndex(), 3u);
    QCOMPARE(dlg.GetReport(), tstring(kReportHeader) + u"<br><br>" + kNetworkNotice + u"<br>");
    QVERIFY(m_pToolkit->m_Started.empty());
}

void TestInspectorDialog::nextAfterFirstStepSkipsTheRestAndOpensGraphicDialog()
{
    QtDialogWindow* pMain = nullptr;
    m_Hooks[0] = [&]
    {
        pMain = m_pToolkit->GetActiveDialog();
        QueueClick(MainButton(IDOK));
        return 0;
    };
    CInspectorDlg dlg(MakeChecks());
    UiScript script(*m_pToolkit);
    bool bMainHidden = false;
    script.Then([&] { return ShownDialog(*m_pToolkit, IDD_GRAPHIC_CONFIG_DIALOG) != nullptr; },
                [&]
                {
                    bMainHidden = !pMain->isVisible();
                    Click(m_pToolkit->GetActiveDialog()->GetButton(IDCANCEL));
                });

    QCOMPARE(Run(dlg, script), IDOK);
    QVERIFY(bMainHidden);
    QCOMPARE(m_Log, std::vector<QString>{"0"});
    QCOMPARE(dlg.GetStepIndex(), 1u);
}

void TestInspectorDialog::firewallButtonIsOfferedOnlyAfterTheFirewallStepAsks()
{
    std::array<bool, 5> bEnabledAtStep{};
    auto firewallButton = [this] { return MainButton(CInspectorDlg::kFirewallOffButtonId); };
    for (int i = 0; i < 5; ++i)
        m_Hooks[i] = [&, i]
        {
            bEnabledAtStep[i] = firewallButton()->isEnabled();
            if (i == 2)
                QueueClick(firewallButton()); // in the pause between the TCP and the UDP step
            if (i == 3)
                QueueClick(firewallButton()); // disabled by then: no second registration
            if (i == 4)
                QueueClick(MainButton(IDCANCEL));
            return i == 1 ? 3 : 0;
        };
    CInspectorDlg dlg(MakeChecks());
    UiScript script(*m_pToolkit);

    QCOMPARE(Run(dlg, script), IDCANCEL);
    QCOMPARE(bEnabledAtStep, (std::array<bool, 5>{false, false, true, false, false}));
    QCOMPARE(m_Log, (std::vector<QString>{"0", "1", "2", "register", "3", "4"}));
}

void TestInspectorDialog::escapeAndCloseTakeTheCancelPath_data()
{
    QTest::addColumn<bool>("bEscape");
    QTest::newRow("Esc") << true;
    QTest::newRow("window manager's close") << false;
}

void TestInspectorDialog::escapeAndCloseTakeTheCancelPath()
{
    QFETCH(bool, bEscape);
    theApp.m_bRunPatcher = true;
    m_Hooks[1] = [&]
    {
        QtDialogWindow* pMain = m_pToolkit->GetActiveDialog();
        if (bEscape)
            QTimer::singleShot(0, pMain, [pMain] { QTest::keyClick(pMain, Qt::Key_Escape); });
        else
            QTimer::singleShot(0, pMain, [pMain] { pMain->windowHandle()->close(); });
        return 0;
    };
    CInspectorDlg dlg(MakeChecks());
    UiScript script(*m_pToolkit);

    QCOMPARE(Run(dlg, script), IDCANCEL);
    QCOMPARE(m_Log, (std::vector<QString>{"0", "1"}));
    QVERIFY(m_pToolkit->m_Started.empty());
}

void TestInspectorDialog::patcherStartsOnlyAfterAStartWithPatcher_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("bStarted");
    QTest::newRow("patcher") << QStringList{"patcher"} << true;
    QTest::newRow("none") << QStringList{} << false;
    QTest::newRow("Qt option first") << QStringList{"-reverse", "patcher"} << false;
}

void TestInspectorDialog::patcherStartsOnlyAfterAStartWithPatcher()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, bStarted);
    // The raw arguments, as main reads them before QApplication strips any.
    std::vector<QByteArray> storage{"rig_inspector"};
    for (const QString& argument : arguments)
        storage.push_back(argument.toUtf8());
    std::vector<const char*> argv;
    for (const QByteArray& argument : storage)
        argv.push_back(argument.constData());
    theApp.m_bRunPatcher = IsPatcherSwitch(CommandLineText(static_cast<int>(argv.size()), argv.data()));

    m_Hooks[0] = [&]
    {
        QueueClick(MainButton(IDOK));
        return 0;
    };
    CInspectorDlg dlg(MakeChecks());
    UiScript script(*m_pToolkit);
    script.Then([&] { return ShownDialog(*m_pToolkit, IDD_GRAPHIC_CONFIG_DIALOG) != nullptr; },
                [&] { Click(m_pToolkit->GetActiveDialog()->GetButton(IDOK)); });
    QCOMPARE(Run(dlg, script), IDOK);

    QCOMPARE(m_pToolkit->m_Started.size(), bStarted ? 1u : 0u);
    if (bStarted)
    {
        QCOMPARE(m_pToolkit->m_Started.front(), std::string("./patcher.exe"));
        QVERIFY(QTest::qWaitFor([&] { return QFile::exists(m_pFolder->PatcherMarker()); }, 10000));
    }
}

QTEST_MAIN(TestInspectorDialog)
#include "TestInspectorDialog.moc"
