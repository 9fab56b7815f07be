#pragma once
// A dialog window built from its template, delivering its buttons' clicks and
// its timers to the dialog's logic. It draws and forwards; it decides nothing.
#include <QDialog>
#include <map>
#include <memory>

#include "DialogUnits.h"
#include "RigInspectorApp/DialogTemplate.h"
#include "RigInspectorApp/UiToolkit.h"

class QAbstractButton;
class QButtonGroup;
class QEventLoop;
class QTimer;
class QtReportView;
class QtDetailsView;

/// A push button or radio button behind the logic's IControl.
class QtButtonControl : public IControl
{
public:
    /// pGroup is the exclusive pair of a radio button, or null.
    QtButtonControl(QAbstractButton* pButton, QButtonGroup* pGroup) : m_pButton(pButton), m_pGroup(pGroup) {}

    void EnableWindow(bool bEnable) override;
    bool IsWindowEnabled() const override;
    void SetCheck(int nCheck) override;
    int GetCheck() const override;

    QAbstractButton* GetButton() const { return m_pButton; }

private:
    QAbstractButton* m_pButton;
    QButtonGroup* m_pGroup;
};

class QtDialogWindow : public QDialog, public IDialogWindow
{
public:
    QtDialogWindow(CDialogLogic& logic, const DialogTemplate& dialogTemplate);
    ~QtDialogWindow() override;

    IControl* GetDlgItem(int nId) override;
    IReportView* GetReportView() override;
    IDetailsView* GetDetailsView() override;
    void ShowWindow() override;
    void EndDialog(int nResult) override;
    void SetTimer(unsigned nIdEvent, unsigned nElapse) override;
    void KillTimer(unsigned nIdEvent) override;

    /// Runs the modal loop unless the logic already ended the dialog (in its
    /// OnInitDialog, say); returns the result given to EndDialog.
    int RunModalLoop();

    /// The details link of a dialog with a report, for tests; null otherwise.
    QtDetailsView* GetDetailsWidget() const { return m_pDetailsView; }
    /// The widget of a control, for tests and screenshots; null when unknown.
    QAbstractButton* GetButton(int nId) const;
    const DialogBaseUnits& GetBaseUnits() const { return m_BaseUnits; }
    bool IsEnded() const { return m_bEnded; }
    int GetTemplateId() const { return m_nTemplateId; }

    /// Esc: the logic's Cancel path.
    void reject() override;

protected:
    /// The close box and the window manager's close: the logic's Cancel path.
    void closeEvent(QCloseEvent* pEvent) override;

private:
    void CreateControls(const DialogTemplate& dialogTemplate);
    void DeliverCommand(int nId);

    CDialogLogic& m_Logic;
    int m_nTemplateId;
    DialogBaseUnits m_BaseUnits{};
    std::map<int, std::unique_ptr<QtButtonControl>> m_Controls;
    std::map<unsigned, QTimer*> m_Timers;
    QtReportView* m_pReportView = nullptr;
    QtDetailsView* m_pDetailsView = nullptr;
    QEventLoop* m_pModalLoop = nullptr;
    bool m_bEnded = false;
    int m_nResult = 0;
};
