// The graphic configuration dialog driven through the Qt toolkit.
#include <QAbstractButton>
#include <QFile>
#include <QTest>
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

const QList<int> kHigh{2400, 128, 1024}, kMiddle{1000, 64, 512}, kLow{2400, 31, 1024};
} // namespace

class TestGraphicConfigDialog : public QObject
{
    Q_OBJECT

    std::unique_ptr<DialogFixture> m_pF;

    /// Runs the dialog over measured CPU MHz, video MB and system MB, doing
    /// action once it is shown; action must end it. The patcher must start on
    /// the way out exactly when the switch asked for it.
    int Run(const QList<int>& measured, const std::function<void(QtDialogWindow*)>& action)
    {
        g_inspector.m_CpuSpeed = measured[0];
        g_inspector.m_VideoMemory = measured[1];
        g_inspector.m_SystemMemory = measured[2];
        CGraphicConfigDlg dlg;
        UiScript script(m_pF->toolkit);
        script.WhenShown(IDD_GRAPHIC_CONFIG_DIALOG, action);
        const int nResult = dlg.DoModal();
        const bool bPatcher = theApp.m_bRunPatcher;
        const bool bOk =
            script.Succeeded() && m_pF->toolkit.IsQuitPosted() &&
            m_pF->toolkit.m_Started.size() == (bPatcher ? 1u : 0u) &&
            (!bPatcher ||
             QTest::qWaitFor([&] { return QFile::exists(m_pF->folder.PatcherMarker()); }, 10000));
        return bOk ? nResult : -1;
    }

private slots:
    void init()
    {
        m_pF = std::make_unique<DialogFixture>();
        QVERIFY(m_pF->folder.IsValid());
    }
    void cleanup() { m_pF.reset(); }

    void eachPairIsExclusiveOnItsOwnAndRecommendUndoesTheChanges()
    {
        QStringList states;
        QCOMPARE(Run(kLow,
                     [&](QtDialogWindow* pWindow)
                     {
                         states << Checks(pWindow);
                         for (int nId : {1001, 1003, 1005, 1007, 1002, CGraphicConfigDlg::kRecommendButtonId})
                         {
                             Click(pWindow->GetButton(nId));
                             states << Checks(pWindow);
                         }
                         Click(pWindow->GetButton(IDCANCEL));
                     }),
                 IDCANCEL);
        QCOMPARE(states, (QStringList{"01010101", "10010101", "10100101", "10101001", "10101010", "01101010",
                                      "01010101"}));
    }

    void acceptWritesTheShownChoices_data()
    {
        QTest::addColumn<QList<int>>("measured");
        QTest::addColumn<QList<int>>("clicks");
        QTest::addColumn<bool>("bRunPatcher");
        QTest::addColumn<QString>("expected"); // char_lod, shadow, audience, event_screen
        QTest::newRow("high tier, patcher") << kHigh << QList<int>{} << true << "1111";
        QTest::newRow("low tier, user raises P.I.P") << kLow << QList<int>{1007} << false << "0001";
        QTest::newRow("middle tier, user lowers Character") << kMiddle << QList<int>{1002} << false << "0110";
    }

    void acceptWritesTheShownChoices()
    {
        QFETCH(QList<int>, measured);
        QFETCH(QList<int>, clicks);
        QFETCH(bool, bRunPatcher);
        QFETCH(QString, expected);
        theApp.m_bRunPatcher = bRunPatcher;
        QCOMPARE(Run(measured,
                     [&](QtDialogWindow* pWindow)
                     {
                         for (int nId : clicks)
                             Click(pWindow->GetButton(nId));
                         Click(pWindow->GetButton(IDOK));
                     }),
                 IDOK);

        QVERIFY(QFile::exists(m_pF->folder.OptionFile()));
        QString written;
        for (const char16_t* key : {u"char_lod", u"shadow", u"audience", u"event_screen"})
            written += QString::fromStdU16String(GetPrivateProfileString(u"video", key, u"?", g_optionFile));
        QCOMPARE(written, expected);
    }

    // Esc and the close box become Cancel in the toolkit, tested there.
    void cancelLeavesTheFileUntouchedAndStartsThePatcher()
    {
        theApp.m_bRunPatcher = true;
        const QByteArray before = "; kept as it is\r\n[video]\r\nshadow=0\r\nchar_lod=0\r\n";
        QFile file(m_pF->folder.OptionFile());
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(before) == before.size());
        file.close();
        QCOMPARE(Run(kHigh, [](QtDialogWindow* pWindow) { Click(pWindow->GetButton(IDCANCEL)); }), IDCANCEL);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), before);
    }
};

QTEST_MAIN(TestGraphicConfigDialog)
#include "TestGraphicConfigDialog.moc"
