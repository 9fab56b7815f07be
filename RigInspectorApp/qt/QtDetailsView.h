#pragma once
// The main dialog's details: a "Details" link in the free space of the button
// row, shown once there is something to tell or a report to save, that opens
// a plain-text window of the sections with "Save report…" and "Open in
// browser" under it. The template's controls keep their places and sizes.
#include <QLabel>
#include <QPointer>

#include <functional>
#include <string>

#include "RigInspectorApp/UiToolkit.h"

class QPlainTextEdit;
class QDialog;
class QPushButton;

class QtDetailsView : public QLabel, public IDetailsView
{
public:
    explicit QtDetailsView(QWidget* pParent);

    void SetDetails(const std::vector<DetailSection>& sections) override;
    void OfferReport(std::function<std::string()> renderBundle) override;

    /// The text the window shows (and shows next when opened), for tests.
    const QString& GetText() const { return m_Text; }
    /// Opens (or raises) the window; what a click on the link does.
    void OpenWindow();
    /// The window's two buttons, null until it was opened; for tests.
    QPushButton* GetSaveButton() const { return m_pSave; }
    QPushButton* GetOpenButton() const { return m_pOpen; }

private:
    void UpdateShown();

    QString m_Text;
    bool m_bHasSections = false;
    std::function<std::string()> m_RenderBundle;
    QPushButton* m_pSave = nullptr;
    QPushButton* m_pOpen = nullptr;
    QPointer<QDialog> m_pWindow;
    QPlainTextEdit* m_pTextEdit = nullptr;
};
