// Pictures of the two dialogs for people to look at: the main dialog after a
// run of this build's checks against the reference server, and the graphic
// configuration dialog at each recommendation tier. Written into the build
// tree (screenshots/), replaced at every run.
#include <QDir>
#include <QImage>
#include <QTest>
#include <memory>

#include "GuiTestBase.h"
#include "RigInspectorApp/GraphicConfigDlg.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"
#include "tests/server/ServerProcess.h"

class TestScreenshots : public QObject
{
    Q_OBJECT

    std::unique_ptr<DialogFixture> m_pF;
    QString m_Error;

    /// Saves the window as screenshots/<name>.png and checks the file back, then leaves by Cancel.
    void SaveAndCancel(QtDialogWindow* pWindow, const QString& name)
    {
        const QString path = QDir(QStringLiteral(RIG_SCREENSHOT_DIR)).filePath(name + QStringLiteral(".png"));
        if (!pWindow->grab().toImage().save(path))
            m_Error = QStringLiteral("cannot write ") + path;
        else if (QImage(path).size() != pWindow->size())
            m_Error = path + QStringLiteral(" does not hold the whole window");
        Click(pWindow->GetButton(IDCANCEL));
    }

private slots:
    void initTestCase() { QVERIFY(QDir().mkpath(QStringLiteral(RIG_SCREENSHOT_DIR))); }
    void init()
    {
        m_pF = std::make_unique<DialogFixture>();
        QVERIFY(m_pF->folder.IsValid());
        m_Error.clear();
    }
    void cleanup() { m_pF.reset(); }

    void mainDialogAfterARun()
    {
        // The reference server on its default ports (this test runs in a
        // network namespace of its own), so the network checks report a real exchange.
        ServerProcess server({});
        QVERIFY(server.WaitUntilReady());

        CInspectorDlg dlg; // this build's checks
        UiScript script(m_pF->toolkit, 120000);
        script.Then([&] { return dlg.IsSequenceDone(); }, [&]
                    { SaveAndCancel(m_pF->toolkit.GetActiveDialog(), QStringLiteral("inspector_dialog")); });
        QCOMPARE(dlg.DoModal(), IDCANCEL);
        QVERIFY(script.Succeeded());
        QVERIFY2(m_Error.isEmpty(), qPrintable(m_Error));
    }

    void graphicDialogAtEachTier_data()
    {
        QTest::addColumn<QList<int>>("measured"); // CPU MHz, video MB, system MB
        QTest::newRow("high") << QList<int>{2400, 128, 1024};
        QTest::newRow("middle") << QList<int>{1000, 64, 512};
        QTest::newRow("low") << QList<int>{2400, 31, 1024};
    }

    void graphicDialogAtEachTier()
    {
        QFETCH(QList<int>, measured);
        g_inspector.m_CpuSpeed = measured[0];
        g_inspector.m_VideoMemory = measured[1];
        g_inspector.m_SystemMemory = measured[2];
        // Named by the tier the dialog shows, so a picture is never mislabelled.
        const QString tier = QString::fromLatin1(
            TierName(RecommendGraphicOptions(measured[0], measured[1], measured[2]).tier));

        CGraphicConfigDlg dlg;
        UiScript script(m_pF->toolkit);
        script.WhenShown(IDD_GRAPHIC_CONFIG_DIALOG, [&](QtDialogWindow* pWindow)
                         { SaveAndCancel(pWindow, QStringLiteral("graphic_config_") + tier); });
        QCOMPARE(dlg.DoModal(), IDCANCEL);
        QVERIFY(script.Succeeded());
        QVERIFY2(m_Error.isEmpty(), qPrintable(m_Error));
    }
};

QTEST_MAIN(TestScreenshots)
#include "TestScreenshots.moc"
