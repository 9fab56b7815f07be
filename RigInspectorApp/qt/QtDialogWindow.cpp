#include "QtDialogWindow.h"

#include <QButtonGroup>
#include <QCloseEvent>
#include <QEventLoop>
#include <QGroupBox>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QTimer>

#include "QtDetailsView.h"
#include "QtReportView.h"
#include "share/common/Assert.h"

namespace
{
QString ToQString(const char16_t* text)
{
    return QString::fromUtf16(text);
}
} // namespace

void QtButtonControl::EnableWindow(bool bEnable)
{
    m_pButton->setEnabled(bEnable);
}

bool QtButtonControl::IsWindowEnabled() const
{
    return m_pButton->isEnabled();
}

void QtButtonControl::SetCheck(int nCheck)
{
    // An exclusive group refuses to uncheck its checked button, while
    // BM_SETCHECK 0 simply clears it: lift the exclusivity for that moment.
    if (m_pGroup != nullptr && nCheck == 0)
    {
        m_pGroup->setExclusive(false);
        m_pButton->setChecked(false);
        m_pGroup->setExclusive(true);
        return;
    }
    m_pButton->setChecked(nCheck != 0);
}

int QtButtonControl::GetCheck() const
{
    return m_pButton->isChecked() ? 1 : 0;
}

QtDialogWindow::QtDialogWindow(CDialogLogic& logic, const DialogTemplate& dialogTemplate)
    : QDialog(nullptr, Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                           (dialogTemplate.bCloseBox ? Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint
                                                     : Qt::WindowFlags())),
      m_Logic(logic), m_nTemplateId(dialogTemplate.nId)
{
    setWindowTitle(ToQString(dialogTemplate.caption));
    const QFont font = MakeDialogFont(dialogTemplate.nFontPointSize, logicalDpiY());
    setFont(font);
    m_BaseUnits = MeasureBaseUnits(font);
    // The template gives the client area; the frame is the window manager's.
    setFixedSize(MapDialogRect(m_BaseUnits, 0, 0, dialogTemplate.cx, dialogTemplate.cy).size());
    // A top-level window without a parent gets its own taskbar entry, which
    // is what the main dialog's WS_EX_APPWINDOW asks for.
    CreateControls(dialogTemplate);
}

QtDialogWindow::~QtDialogWindow() = default;

void QtDialogWindow::CreateControls(const DialogTemplate& dialogTemplate)
{
    using Kind = DialogControlTemplate::Kind;
    QButtonGroup* pRadioGroup = nullptr;
    for (const DialogControlTemplate& control : dialogTemplate.controls)
    {
        const QRect geometry = MapDialogRect(m_BaseUnits, control.x, control.y, control.cx, control.cy);
        const QString text = ToQString(control.text);
        switch (control.kind)
        {
        case Kind::ReportView:
        {
            m_pReportView = new QtReportView(this);
            m_pReportView->setGeometry(geometry);
            // The details link sits in the button row's free stretch, from
            // just past the left button to just before "Next" (dialog units
            // 90 to 134 under the view), so no control of the template moves.
            const int row = control.y + control.cy + 5;
            m_pDetailsView = new QtDetailsView(this);
            m_pDetailsView->setGeometry(MapDialogRect(m_BaseUnits, 90, row, 44, 16));
            break;
        }
        case Kind::GroupBox:
        {
            // Created before the controls it frames, so it stays beneath them.
            auto* pBox = new QGroupBox(text, this);
            pBox->setGeometry(geometry);
            break;
        }
        case Kind::StaticText:
        {
            auto* pLabel = new QLabel(text, this);
            pLabel->setAlignment(Qt::AlignLeft | Qt::AlignTop);
            pLabel->setWordWrap(true);
            pLabel->setGeometry(geometry);
            break;
        }
        case Kind::PushButton:
        case Kind::DefPushButton:
        {
            auto* pButton = new QPushButton(text, this);
            pButton->setGeometry(geometry);
            pButton->setDefault(control.kind == Kind::DefPushButton);
            const int nId = control.nId;
            connect(pButton, &QPushButton::clicked, this, [this, nId] { DeliverCommand(nId); });
            m_Controls[nId] = std::make_unique<QtButtonControl>(pButton, nullptr);
            break;
        }
        case Kind::AutoRadioButton:
        {
            // Qt makes all radio buttons of one parent a single exclusive
            // set; each template group (High/Low pair) needs a group of its own.
            if (control.bGroup || pRadioGroup == nullptr)
            {
                pRadioGroup = new QButtonGroup(this);
                pRadioGroup->setExclusive(true);
            }
            auto* pRadio = new QRadioButton(text, this);
            pRadio->setGeometry(geometry);
            pRadioGroup->addButton(pRadio, control.nId);
            // Automatic radio buttons check themselves; neither dialog maps
            // their clicks, so they are not delivered to the logic.
            m_Controls[control.nId] = std::make_unique<QtButtonControl>(pRadio, pRadioGroup);
            break;
        }
        }
    }
}

IControl* QtDialogWindow::GetDlgItem(int nId)
{
    const auto it = m_Controls.find(nId);
    return it == m_Controls.end() ? nullptr : it->second.get();
}

IDetailsView* QtDialogWindow::GetDetailsView()
{
    return m_pDetailsView;
}

IReportView* QtDialogWindow::GetReportView()
{
    return m_pReportView;
}

QAbstractButton* QtDialogWindow::GetButton(int nId) const
{
    const auto it = m_Controls.find(nId);
    return it == m_Controls.end() ? nullptr : it->second->GetButton();
}

void QtDialogWindow::ShowWindow()
{
    show();
}

void QtDialogWindow::EndDialog(int nResult)
{
    // Like EndDialog: hide now, leave the modal loop when control returns to
    // it; the widgets stay alive and readable until RunModal returns.
    m_bEnded = true;
    m_nResult = nResult;
    setResult(nResult);
    hide();
    if (m_pModalLoop != nullptr)
        m_pModalLoop->exit(nResult);
}

void QtDialogWindow::SetTimer(unsigned nIdEvent, unsigned nElapse)
{
    QTimer*& pTimer = m_Timers[nIdEvent];
    if (pTimer == nullptr)
    {
        pTimer = new QTimer(this);
        connect(pTimer, &QTimer::timeout, this, [this, nIdEvent] { m_Logic.OnTimer(nIdEvent); });
    }
    // Setting an existing timer again restarts it with the new period.
    pTimer->start(static_cast<int>(nElapse));
}

void QtDialogWindow::KillTimer(unsigned nIdEvent)
{
    const auto it = m_Timers.find(nIdEvent);
    if (it != m_Timers.end())
        it->second->stop();
}

int QtDialogWindow::RunModalLoop()
{
    if (m_bEnded)
        return m_nResult;
    // Our own loop rather than QDialog::exec: exec's ending goes through
    // close() and reject(), which here mean the logic's Cancel path.
    setWindowModality(Qt::ApplicationModal);
    show();
    QEventLoop loop;
    m_pModalLoop = &loop;
    loop.exec(QEventLoop::DialogExec);
    m_pModalLoop = nullptr;
    return m_nResult;
}

void QtDialogWindow::DeliverCommand(int nId)
{
    // Clicks queued before the dialog ended would reach a logic that has
    // already left; the hidden window takes no more commands.
    if (m_bEnded)
        return;
    m_Logic.OnCommand(nId);
}

void QtDialogWindow::reject()
{
    DeliverCommand(IDCANCEL);
}

void QtDialogWindow::closeEvent(QCloseEvent* pEvent)
{
    if (m_bEnded)
    {
        pEvent->accept();
        return;
    }
    // The logic decides whether and how the dialog ends (EndDialog hides it).
    pEvent->ignore();
    DeliverCommand(IDCANCEL);
}
