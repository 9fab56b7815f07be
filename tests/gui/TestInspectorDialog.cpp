// The main dialog driven through the Qt toolkit, over fake checks.
#include <QAbstractButton>
#include <QFile>
#include <QTest>
#include <QWindow>
#include <map>
#include <memory>

#include "GuiTestBase.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"

namespace
{
constexpr int kEscape = -1, kClose = -2, kFirewall = CInspectorDlg::kFirewallOffButtonId;

/// What the user does while step i runs (delivered after it, as queued input
/// is), and what the steps then log: "+" marks a step that ran with the
/// firewall button enabled, "R" the game's registration.
struct Scenario
{
    const char* name;
    int firewallResult;
    std::map<int, std::vector<int>> actions;
    int result;
    QString log;
};
const Scenario kScenarios[] = {
    {"Cancel during the TCP step", 0, {{2, {IDCANCEL}}}, IDCANCEL, "0 1 2"},
    {"Esc", 0, {{1, {kEscape}}}, IDCANCEL, "0 1"},
    {"window manager's close", 0, {{1, {kClose}}}, IDCANCEL, "0 1"},
    {"Next after step 0", 0, {{0, {IDOK}}}, IDOK, "0"},
    // The second click meets a disabled button: no second registration.
    {"firewall asks", 3, {{2, {kFirewall}}, {3, {kFirewall}}, {4, {IDCANCEL}}}, IDCANCEL, "0 1 2+ R 3 4"},
    {"firewall does not ask", 2, {{2, {kFirewall}}, {4, {IDCANCEL}}}, IDCANCEL, "0 1 2 3 4"},
};
} // namespace

class TestInspectorDialog : public QObject
{
    Q_OBJECT

    std::unique_ptr<DialogFixture> m_pF;

    /// Runs the main dialog over five steps that do what the scenario asks
    /// and log; a Next leaves through the graphic dialog's graphicButton.
    int Run(const Scenario& s, QStringList& log, int graphicButton = IDCANCEL)
    {
        InspectorChecks checks;
        for (int i = 0; i < 5; ++i)
            checks.steps.push_back(
                [&, i]
                {
                    QtDialogWindow* pMain = m_pMain = m_pF->toolkit.GetActiveDialog();
                    log << QString::number(i) + (pMain->GetButton(kFirewall)->isEnabled() ? "+" : "");
                    for (int action : s.actions.contains(i) ? s.actions.at(i) : std::vector<int>{})
                        QTimer::singleShot(0, pMain,
                                           [pMain, action]
                                           {
                                               if (action == kEscape)
                                                   QTest::keyClick(pMain, Qt::Key_Escape);
                                               else if (action == kClose)
                                                   pMain->windowHandle()->close();
                                               else
                                                   Click(pMain->GetButton(action));
                                           });
                    m_bEndedInAStep = m_bEndedInAStep || pMain->IsEnded();
                    return i == 1 ? s.firewallResult : 0;
                });
        checks.registerGameWithFirewall = [&] { log << "R"; };
        UiScript script(m_pF->toolkit);
        if (s.result == IDOK)
            script.WhenShown(IDD_GRAPHIC_CONFIG_DIALOG,
                             [this, graphicButton](QtDialogWindow* pGraphic)
                             {
                                 m_bMainHidden = !m_pMain->isVisible();
                                 Click(pGraphic->GetButton(graphicButton));
                             });
        CInspectorDlg dlg(std::move(checks));
        const int nResult = dlg.DoModal();
        return script.Succeeded() && m_pF->toolkit.IsQuitPosted() ? nResult : -1;
    }

    QtDialogWindow* m_pMain = nullptr;
    bool m_bEndedInAStep = false, m_bMainHidden = false;

private slots:
    void init()
    {
        m_pF = std::make_unique<DialogFixture>();
        QVERIFY(m_pF->folder.IsValid());
        m_bEndedInAStep = m_bMainHidden = false;
    }
    void cleanup() { m_pF.reset(); }

    void userActionsDuringTheSequence_data()
    {
        QTest::addColumn<int>("row");
        for (int row = 0; row < int(std::size(kScenarios)); ++row)
            QTest::newRow(kScenarios[row].name) << row;
    }

    void userActionsDuringTheSequence()
    {
        QFETCH(int, row);
        const Scenario& s = kScenarios[row];
        theApp.m_bRunPatcher = s.result == IDCANCEL; // leaving the main dialog never starts it
        QStringList log;
        QCOMPARE(Run(s, log), s.result);
        QCOMPARE(log.join(' '), s.log);
        QVERIFY(!m_bEndedInAStep); // a click waits for the step to end
        QCOMPARE(m_bMainHidden, s.result == IDOK);
        QVERIFY(m_pF->toolkit.m_Started.empty());
    }

    void patcherStartsOnlyAfterAStartWithPatcher_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("bStarted");
        QTest::newRow("patcher") << QStringList{"patcher"} << true;
        QTest::newRow("none") << QStringList{} << false;
        QTest::newRow("Qt option first") << QStringList{"-reverse", "patcher"} << false;
    }

    void patcherStartsOnlyAfterAStartWithPatcher()
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

        QStringList log;
        QCOMPARE(Run(kScenarios[3], log, IDOK), IDOK);
        QCOMPARE(m_pF->toolkit.m_Started,
                 bStarted ? std::vector<std::string>{"./patcher.exe"} : std::vector<std::string>{});
        if (bStarted)
            QVERIFY(QTest::qWaitFor([&] { return QFile::exists(m_pF->folder.PatcherMarker()); }, 10000));
    }
};

QTEST_MAIN(TestInspectorDialog)
#include "TestInspectorDialog.moc"
