// Pictures of the two dialogs for people to look at: the main dialog after a
// run of this build's checks against the reference server, and the graphic
// configuration dialog at each recommendation tier. Written into the build
// tree (screenshots/), replaced at every run.
#include <QDir>
#include <QImage>
#include <QProcess>
#include <QTest>
#include <memory>

#include "GuiTestBase.h"
#include "RigInspectorApp/GraphicConfigDlg.h"
#include "RigInspectorApp/InspectorApp.h"
#include "RigInspectorApp/InspectorDlg.h"

class TestScreenshots : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void mainDialogAfterARun();
    void graphicDialogAtEachTier_data();
    void graphicDialogAtEachTier();

private:
    /// Saves the window as screenshots/<name>.png and checks the file back.
    void Save(QWidget* pWindow, const QString& name, QString* pError);

    QDir m_Out;
    std::unique_ptr<TestGameFolder> m_pFolder;
    std::unique_ptr<RecordingToolkit> m_pToolkit;
};

void TestScreenshots::initTestCase()
{
    m_Out = QDir(QStringLiteral(RIG_SCREENSHOT_DIR));
    QVERIFY(m_Out.mkpath(QStringLiteral(".")));
}

void TestScreenshots::init()
{
    m_pFolder = std::make_unique<TestGameFolder>();
    QVERIFY(m_pFolder->IsValid());
    m_pToolkit = std::make_unique<RecordingToolkit>();
    SetToolkit(m_pToolkit.get());
    theApp.m_bRunPatcher = false;
}

void TestScreenshots::cleanup()
{
    g_inspector.m_pDlg = nullptr;
    SetToolkit(nullptr);
    m_pToolkit.reset();
    m_pFolder.reset();
}

void TestScreenshots::Save(QWidget* pWindow, const QString& name, QString* pError)
{
    const QString path = m_Out.filePath(name + QStringLiteral(".png"));
    const QImage image = pWindow->grab().toImage();
    if (!image.save(path))
        *pError = QStringLiteral("cannot write ") + path;
    else if (QImage(path).size() != pWindow->size())
        *pError = path + QStringLiteral(" does not hold the whole window");
}

void TestScreenshots::mainDialogAfterARun()
{
    // The reference server on its default ports (this test runs in a network
    // namespace of its own), so the network checks report a real exchange.
    QProcess server;
    server.setProgram(QStringLiteral(RIG_TEST_SERVER));
    server.start();
    QVERIFY(server.waitForStarted(5000));
    QVERIFY(QTest::qWaitFor(
        [&] { return server.canReadLine() || (server.waitForReadyRead(100) && server.canReadLine()); },
        10000));
    QVERIFY(server.readLine().contains("listening"));

    CInspectorDlg dlg; // this build's checks
    UiScript script(*m_pToolkit, 120000);
    QString error;
    script.Then([&] { return dlg.IsSequenceDone(); },
                [&]
                {
                    QtDialogWindow* pWindow = m_pToolkit->GetActiveDialog();
                    Save(pWindow, QStringLiteral("inspector_dialog"), &error);
                    Click(pWindow->GetButton(IDCANCEL));
                });
    QCOMPARE(dlg.DoModal(), IDCANCEL);
    QVERIFY(!script.HasTimedOut());
    QVERIFY2(error.isEmpty(), qPrintable(error));
    server.terminate();
    QVERIFY(server.waitForFinished(5000));
}

void TestScreenshots::graphicDialogAtEachTier_data()
{
    QTest::addColumn<QList<int>>("measured"); // CPU MHz, video MB, system MB
    QTest::newRow("high") << QList<int>{2400, 128, 1024};
    QTest::newRow("middle") << QList<int>{1000, 64, 512};
    QTest::newRow("low") << QList<int>{2400, 31, 1024};
}

void TestScreenshots::graphicDialogAtEachTier()
{
    QFETCH(QList<int>, measured);
    g_inspector.m_CpuSpeed = measured[0];
    g_inspector.m_VideoMemory = measured[1];
    g_inspector.m_SystemMemory = measured[2];
    const char* tier = TierName(
        RecommendGraphicOptions(g_inspector.m_CpuSpeed, g_inspector.m_VideoMemory, g_inspector.m_SystemMemory)
            .tier);
    QCOMPARE(tier, QTest::currentDataTag());

    CGraphicConfigDlg dlg;
    UiScript script(*m_pToolkit);
    QString error;
    script.Then([&] { return ShownDialog(*m_pToolkit, IDD_GRAPHIC_CONFIG_DIALOG) != nullptr; },
                [&]
                {
                    QtDialogWindow* pWindow = m_pToolkit->GetActiveDialog();
                    Save(pWindow, QStringLiteral("graphic_config_") + tier, &error);
                    Click(pWindow->GetButton(IDCANCEL));
                });
    QCOMPARE(dlg.DoModal(), IDCANCEL);
    QVERIFY(!script.HasTimedOut());
    QVERIFY2(error.isEmpty(), qPrintable(error));
}

QTEST_MAIN(TestScreenshots)
#include "TestScreenshots.moc"
