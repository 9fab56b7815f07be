// The main dialog driven through the Qt toolkit, over fake checks.
#include <QAbstractButton>
#include <QFile>
#include <QPushButton>
#include <QTest>
#include <map>
#include <memory>

#include "GuiTestBase.h"
#include "QtDetailsView.h"
#include "RigInspector/Diagnostics.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"

namespace
{
// Esc and the close box become Cancel in the toolkit, tested there.
constexpr int kFirewall = CInspectorDlg::kFirewallOffButtonId;

/// What the user does while step i runs (delivered after it, as queued input
/// is), and what the steps then log: "+" marks a step that ran with the
/// firewall button enabled, "R" the game's registration. A Next leaves through
/// the graphic dialog's Cancel.
struct Scenario
{
    const char* name;
    int firewallResult;
    std::map<int, std::vector<int>> actions;
    int result;
    QString log;
    bool bPatcherSwitch = false, bPatcherStarts = false;
};
const Scenario kScenarios[] = {
    // Leaving the main dialog never starts the patcher; the graphic dialog's
    // ways out (without the switch too) are that dialog's test.
    {"Cancel during the TCP step", 0, {{2, {IDCANCEL}}}, IDCANCEL, "0 1 2", true},
    {"Next, started with patcher", 0, {{0, {IDOK}}}, IDOK, "0", true, true},
    // The second click meets a disabled button: no second registration.
    {"firewall asks", 3, {{2, {kFirewall}}, {3, {kFirewall}}, {4, {IDCANCEL}}}, IDCANCEL, "0 1 2+ R 3 4"},
    {"firewall does not ask", 2, {{2, {kFirewall}}, {4, {IDCANCEL}}}, IDCANCEL, "0 1 2 3 4"},
};
} // namespace

class TestInspectorDialog : public QObject
{
    Q_OBJECT

    std::unique_ptr<DialogFixture> m_pF;

    /// Runs the main dialog over five steps that do what the scenario asks and log.
    int Run(const Scenario& s, QStringList& log)
    {
        InspectorChecks checks;
        for (int i = 0; i < 5; ++i)
            checks.steps.push_back(
                [&, i]
                {
                    QtDialogWindow* pMain = m_pMain = m_pF->toolkit.GetActiveDialog();
                    log << QString::number(i) + (pMain->GetButton(kFirewall)->isEnabled() ? "+" : "");
                    for (int action : s.actions.contains(i) ? s.actions.at(i) : std::vector<int>{})
                        QTimer::singleShot(0, pMain, [pMain, action] { Click(pMain->GetButton(action)); });
                    m_bEndedInAStep = m_bEndedInAStep || pMain->IsEnded();
                    return i == 1 ? s.firewallResult : 0;
                });
        checks.registerGameWithFirewall = [&] { log << "R"; };
        UiScript script(m_pF->toolkit);
        if (s.result == IDOK)
            script.WhenShown(IDD_GRAPHIC_CONFIG_DIALOG,
                             [this](QtDialogWindow* pGraphic)
                             {
                                 m_bMainHidden = !m_pMain->isVisible();
                                 Click(pGraphic->GetButton(IDCANCEL));
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
        theApp.m_bRunPatcher = s.bPatcherSwitch;
        QStringList log;
        QCOMPARE(Run(s, log), s.result);
        QCOMPARE(log.join(' '), s.log);
        QVERIFY(!m_bEndedInAStep); // a click waits for the step to end
        QCOMPARE(m_bMainHidden, s.result == IDOK);
        QCOMPARE(m_pF->toolkit.m_Started,
                 s.bPatcherStarts ? std::vector<std::string>{"./patcher.exe"} : std::vector<std::string>{});
        if (s.bPatcherStarts)
            QVERIFY(QTest::qWaitFor([&] { return QFile::exists(m_pF->folder.PatcherMarker()); }, 10000));
    }

    // A diagnostic brings the "Details" link up in the button row's free
    // space after the step that made it; no control of the template moves,
    // and the link covers none of them.
    void detailsAppearBesideTheReportWithoutMovingIt()
    {
        GetDiagnostics().Clear();
        bool bHiddenAtFirst = false, bShownAfter = false, bApart = false;
        QString text;
        QList<QRect> before;
        const auto geometries = [](QtDialogWindow* p)
        {
            QList<QRect> rects;
            for (int id : {kFirewall, IDOK, IDCANCEL})
                rects << p->GetButton(id)->geometry();
            return rects;
        };
        InspectorChecks checks;
        checks.steps.push_back(
            [&]
            {
                QtDialogWindow* p = m_pF->toolkit.GetActiveDialog();
                bHiddenAtFirst = !p->GetDetailsWidget()->isVisible();
                before = geometries(p);
                GetDiagnostics().Add("test_code", u"Something the report does not say.");
                return 0;
            });
        checks.steps.push_back(
            [&]
            {
                QtDialogWindow* p = m_pF->toolkit.GetActiveDialog();
                QtDetailsView* pDetails = p->GetDetailsWidget();
                bShownAfter = pDetails->isVisible();
                text = pDetails->GetText();
                bApart = geometries(p) == before;
                for (const QRect& rect : before)
                    bApart = bApart && !rect.intersects(pDetails->geometry());
                QTimer::singleShot(0, p, [p] { Click(p->GetButton(IDCANCEL)); });
                return 0;
            });
        CInspectorDlg dlg(std::move(checks));
        QCOMPARE(dlg.DoModal(), IDCANCEL);
        GetDiagnostics().Clear();
        QVERIFY(bHiddenAtFirst);
        QVERIFY(bShownAfter);
        QVERIFY(bApart);
        QCOMPARE(text, QStringLiteral("Diagnostics\n- Something the report does not say.\n"));
    }

    // With nothing to tell, the "Details" link still comes up once the steps
    // have run, and its window's "Save report…" and "Open in browser" work.
    void reportCanBeSavedOnceTheChecksHaveRun()
    {
        GetDiagnostics().Clear();
        QtDetailsView* pDetails = nullptr;
        bool bHiddenDuringSteps = false, bButtonsEnabled = false;
        InspectorChecks checks;
        checks.steps.push_back(
            [&]
            {
                pDetails = m_pF->toolkit.GetActiveDialog()->GetDetailsWidget();
                bHiddenDuringSteps = !pDetails->isVisible();
                return 0;
            });
        CInspectorDlg dlg(std::move(checks));
        QTimer poll;
        int ticks = 0;
        connect(&poll, &QTimer::timeout, &poll,
                [&]
                {
                    if (pDetails != nullptr && pDetails->isVisible())
                    {
                        pDetails->OpenWindow();
                        bButtonsEnabled =
                            pDetails->GetSaveButton()->isEnabled() && pDetails->GetOpenButton()->isEnabled();
                    }
                    if (bButtonsEnabled || ++ticks > 200)
                    {
                        poll.stop();
                        Click(m_pF->toolkit.GetActiveDialog()->GetButton(IDCANCEL));
                    }
                });
        poll.start(20);
        QCOMPARE(dlg.DoModal(), IDCANCEL);
        QVERIFY(bHiddenDuringSteps);
        QVERIFY(bButtonsEnabled);
    }
};

QTEST_MAIN(TestInspectorDialog)
#include "TestInspectorDialog.moc"
