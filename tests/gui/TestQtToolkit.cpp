// The Qt toolkit layer on its own: dialog units, the windows built from the
// templates, the routing of clicks, keys, closes and timers, the quit message
// and the report view.
#include <QFontInfo>
#include <QGroupBox>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTimer>
#include <QWindow>

#include "QtDialogWindow.h"
#include "QtReportView.h"
#include "QtToolkit.h"
#include "RigInspectorApp/MinimisedIcon.h"
#include "tests/common/ProbeDialog.h"

using ProbeDialog = ProbeDialogOf<QtDialogWindow>;

class TestQtToolkit : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_pToolkit = std::make_unique<QtToolkit>();
        SetToolkit(m_pToolkit.get());
    }
    void cleanup()
    {
        SetToolkit(nullptr);
        m_pToolkit.reset();
    }

    void arithmeticRoundsAsWindowsDoes()
    {
        QCOMPARE(MulDiv(7, 3, 2), 11); // 10.5 rounds away from zero
        QCOMPARE(MulDiv(-7, 3, 2), -11);
        QCOMPARE(MulDiv(5, 4, 0), -1);
        QCOMPARE(AverageCharWidth(337), 6); // 12.96 -> 6.5 truncated: GDI rounds the /26 first
        QCOMPARE(AverageCharWidth(338), 7);
        // x and cx convert on their own: a width never grows with its position.
        QCOMPARE(MapDialogRect({7, 14}, 1, 1, 1, 1), QRect(2, 2, 2, 2));
        QCOMPARE(MapDialogRect({7, 14}, 138, 268, 41, 16), QRect(242, 469, 72, 28));
        // The minimised icon is centred rounding toward zero: -1 / 2 is 0.
        QCOMPARE(MinimisedIconOrigin(100, 101, 32, 32).x, 34);
        QCOMPARE(MinimisedIconOrigin(100, 101, 32, 32).y, 35);
        QCOMPARE(MinimisedIconOrigin(30, 29, 32, 32).x, 0);
        QCOMPARE(MinimisedIconOrigin(30, 29, 32, 32).y, -1);
    }

    void windowsFollowTheirTemplates_data()
    {
        QTest::addColumn<int>("nTemplateId");
        QTest::newRow("main") << IDD_INSPECTOR_DIALOG;
        QTest::newRow("graphic configuration") << IDD_GRAPHIC_CONFIG_DIALOG;
    }

    void windowsFollowTheirTemplates()
    {
        QFETCH(int, nTemplateId);
        ProbeDialog dlg(nTemplateId);
        // Checked while the window lives: it is gone once the run returns.
        dlg.m_OnInit = [this](ProbeDialog& d)
        {
            CheckLayout(d.m_pWindow, *FindDialogTemplate(d.GetTemplateId()));
            d.End(7);
        };
        QCOMPARE(m_pToolkit->RunModal(dlg), 7);
        QVERIFY(dlg.GetWindow() == nullptr); // detached after the run
    }

    void keysClosesAndClicksReachTheLogic()
    {
        ProbeDialog dlg(IDD_GRAPHIC_CONFIG_DIALOG);
        // The logic decides: it ends only on its second Cancel, so the first
        // (the close box) must not have closed the window by itself.
        dlg.m_OnCommand = [](ProbeDialog& d, int nId)
        {
            if (nId == IDCANCEL && d.m_Commands.size() == 4)
                d.End(IDCANCEL);
        };
        QTimer::singleShot(
            0,
            [&]
            {
                QTest::keyClick(dlg.m_pWindow, Qt::Key_Return); // default button
                QTest::mouseClick(dlg.m_pWindow->GetButton(3), Qt::LeftButton);
                QTest::mouseClick(dlg.m_pWindow->GetButton(1002),
                                  Qt::LeftButton); // radios are not commands
                dlg.m_pWindow->windowHandle()->close();
                QVERIFY(dlg.m_pWindow->isVisible());
                QTest::keyClick(dlg.m_pWindow, Qt::Key_Escape);
                QTest::mouseClick(dlg.m_pWindow->GetButton(IDOK), Qt::LeftButton); // after the end: ignored
            });
        QCOMPARE(m_pToolkit->RunModal(dlg), IDCANCEL);
        QCOMPARE(dlg.m_Commands, (std::vector<int>{IDOK, 3, IDCANCEL, IDCANCEL}));
    }

    void timersRunUntilKilledAndEndDialogEndsTheRun()
    {
        ProbeDialog dlg(IDD_INSPECTOR_DIALOG);
        int nTicks = 0;
        dlg.m_OnInit = [](ProbeDialog& d) { d.GetWindow()->SetTimer(9, 1); };
        dlg.m_OnTimer = [&](ProbeDialog& d, unsigned nId)
        {
            QCOMPARE(nId, 9u);
            if (++nTicks == 3)
            {
                d.GetWindow()->KillTimer(9);
                d.End(42);
                // Ended, yet still readable until the run returns.
                QVERIFY(!d.m_pWindow->isVisible());
                QVERIFY(d.GetDlgItem(IDOK)->IsWindowEnabled());
            }
        };
        QCOMPARE(m_pToolkit->RunModal(dlg), 42);
        QCOMPARE(nTicks, 3);
    }

    void quitMessageEndsThePumpAndEveryModalRun()
    {
        QVERIFY(m_pToolkit->PumpWaitingMessages());
        ProbeDialog outer(IDD_INSPECTOR_DIALOG);
        ProbeDialog inner(IDD_GRAPHIC_CONFIG_DIALOG);
        int nInnerResult = 0;
        QTimer::singleShot(0, [&] { nInnerResult = m_pToolkit->RunModal(inner); });
        QTimer::singleShot(20, [&] { m_pToolkit->PostQuitMessage(5); });
        QCOMPARE(m_pToolkit->RunModal(outer), -1);
        QCOMPARE(nInnerResult, -1);
        QCOMPARE(m_pToolkit->GetExitCode(), 5);
        QVERIFY(!m_pToolkit->PumpWaitingMessages());
        // A dialog opened after the quit does not wait for input that never comes.
        ProbeDialog late(IDD_GRAPHIC_CONFIG_DIALOG);
        QCOMPARE(m_pToolkit->RunModal(late), -1);
    }

    void reportViewLoadsOnceNavigatedKeepsFormattingAndFollowsTheEnd()
    {
        QWidget parent;
        parent.resize(300, 200);
        auto* pView = new QtReportView(&parent);
        pView->setGeometry(0, 0, 300, 200);
        auto load = [pView](const std::u16string& doc)
        { return pView->LoadDocument(doc.c_str(), doc.size() * 2 + 2); };
        QVERIFY(!load(u"<b>x</b>"));
        pView->Navigate(u"about:blank");
        QVERIFY(!pView->HasDocument());
        QVERIFY(!pView->ScrollToEnd());
        QVERIFY(QTest::qWaitFor([&] { return pView->HasDocument(); }, 5000));

        QVERIFY(load(u"<html><body><B>Head</B><br>\t    send<font color=blue>passed.</font>"
                     u"<a href=\"http://127.0.0.1/more\" target=_blank>click here</a></body></html>"));
        QVERIFY(pView->toPlainText().contains(QStringLiteral("\t    send")));
        const QString html = pView->toHtml();
        QVERIFY(html.contains(QStringLiteral("font-weight:700")));
        QVERIFY(html.contains(QStringLiteral("color:#0000ff")));
        QVERIFY(html.contains(QStringLiteral("href=\"http://127.0.0.1/more\"")));
        QVERIFY(!pView->openLinks()); // links go to the system browser, not into the report

        std::u16string doc;
        for (int i = 0; i < 200; ++i)
            doc += u"<br>line";
        QVERIFY(load(doc)); // while hidden: the end must still show once the window does
        parent.show();
        QVERIFY(QTest::qWaitForWindowExposed(&parent));
        QScrollBar* pBar = pView->verticalScrollBar();
        QVERIFY(pBar->maximum() > 0);
        QCOMPARE(pBar->value(), pBar->maximum());
        QVERIFY(load(doc + u"<br>one more"));
        QCOMPARE(pBar->value(), pBar->maximum());
    }

private:
    void CheckLayout(QtDialogWindow* pWindow, const DialogTemplate& t)
    {
        QCOMPARE(pWindow->windowTitle(), QString::fromUtf16(t.caption));
        QCOMPARE(QFontInfo(pWindow->font()).family(), QStringLiteral("Liberation Sans"));
        QCOMPARE(pWindow->font().pixelSize(), MulDiv(t.nFontPointSize, pWindow->logicalDpiY(), 72));
        const DialogBaseUnits units = pWindow->GetBaseUnits();
        QVERIFY(units.cx > 0 && units.cy > 0);
        QCOMPARE(pWindow->size(), MapDialogRect(units, 0, 0, t.cx, t.cy).size());
        QCOMPARE(pWindow->windowFlags().testFlag(Qt::WindowCloseButtonHint), t.bCloseBox);
        for (const DialogControlTemplate& c : t.controls)
        {
            if (c.nId < 0 || c.kind == DialogControlTemplate::Kind::ReportView)
                continue;
            QAbstractButton* pButton = pWindow->GetButton(c.nId);
            QVERIFY(pButton != nullptr);
            QCOMPARE(pButton->text(), QString::fromUtf16(c.text));
            QCOMPARE(pButton->geometry(), MapDialogRect(units, c.x, c.y, c.cx, c.cy));
            QVERIFY(pButton->isEnabled());
        }
        if (t.nId == IDD_INSPECTOR_DIALOG)
        {
            QVERIFY(pWindow->GetReportView() != nullptr);
            QCOMPARE(static_cast<QtReportView*>(pWindow->GetReportView())->geometry(),
                     MapDialogRect(units, 7, 7, 206, 256));
        }
        else
        {
            QVERIFY(static_cast<QPushButton*>(pWindow->GetButton(IDOK))->isDefault());
            QCOMPARE(pWindow->findChild<QGroupBox*>()->title(), QStringLiteral("Detail"));
        }
    }

    std::unique_ptr<QtToolkit> m_pToolkit;
};

QTEST_MAIN(TestQtToolkit)
#include "TestQtToolkit.moc"
