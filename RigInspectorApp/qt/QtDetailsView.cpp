#include "QtDetailsView.h"

#include <QDialog>
#include <QPlainTextEdit>
#include <QVBoxLayout>

QtDetailsView::QtDetailsView(QWidget* pParent) : QLabel(pParent)
{
    setText(QStringLiteral("<a href=\"details\">Details</a>"));
    setTextFormat(Qt::RichText);
    setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    setAlignment(Qt::AlignCenter);
    setVisible(false);
    connect(this, &QLabel::linkActivated, this, [this] { OpenWindow(); });
}

void QtDetailsView::SetDetails(const std::vector<DetailSection>& sections)
{
    QString text;
    for (const DetailSection& section : sections)
    {
        if (!text.isEmpty())
            text += QLatin1Char('\n');
        text += QString::fromStdU16String(section.title) + QLatin1Char('\n');
        for (const tstring& line : section.lines)
            text += QStringLiteral("- ") + QString::fromStdU16String(line) + QLatin1Char('\n');
    }
    m_Text = text;
    setVisible(!sections.empty());
    if (m_pWindow)
        m_pTextEdit->setPlainText(m_Text);
}

void QtDetailsView::OpenWindow()
{
    if (!m_pWindow)
    {
        // A window of its own, not a child of the dialog: it may be moved
        // and sized freely, and the dialog's layout stays as its template says.
        m_pWindow = new QDialog(window(), Qt::Window);
        m_pWindow->setAttribute(Qt::WA_DeleteOnClose);
        m_pWindow->setWindowTitle(QStringLiteral("Rig Inspector Details"));
        m_pTextEdit = new QPlainTextEdit(m_pWindow);
        m_pTextEdit->setReadOnly(true);
        auto* pLayout = new QVBoxLayout(m_pWindow);
        pLayout->addWidget(m_pTextEdit);
        m_pWindow->resize(480, 240);
    }
    m_pTextEdit->setPlainText(m_Text);
    m_pWindow->show();
    m_pWindow->raise();
}
