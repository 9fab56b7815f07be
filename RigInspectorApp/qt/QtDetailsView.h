#pragma once
// The main dialog's details: a "Details" link in the free space of the button
// row, shown once there is something to tell, that opens a plain-text window
// of the sections. The template's controls keep their places and sizes.
#include <QLabel>
#include <QPointer>

#include "RigInspectorApp/UiToolkit.h"

class QPlainTextEdit;
class QDialog;

class QtDetailsView : public QLabel, public IDetailsView
{
public:
    explicit QtDetailsView(QWidget* pParent);

    void SetDetails(const std::vector<DetailSection>& sections) override;

    /// The text the window shows (and shows next when opened), for tests.
    const QString& GetText() const { return m_Text; }
    /// Opens (or raises) the window; what a click on the link does.
    void OpenWindow();

private:
    QString m_Text;
    QPointer<QDialog> m_pWindow;
    QPlainTextEdit* m_pTextEdit = nullptr;
};
