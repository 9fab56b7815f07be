#include "QtDetailsView.h"

#include <QDesktopServices>
#include <QDialog>
#include <QFileDialog>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

#include "RigInspectorApp/ReportActions.h"

namespace
{
/// The save dialog, the browser and the message, the Qt way.
class QtReportActionsUi : public IReportActionsUi
{
public:
    explicit QtReportActionsUi(QWidget* pParent) : m_pParent(pParent) {}

    std::optional<std::filesystem::path> AskSavePath(const std::filesystem::path& suggested) override
    {
        const QString chosen = QFileDialog::getSaveFileName(m_pParent, QStringLiteral("Save report"),
                                                            QString::fromStdU16String(suggested.u16string()),
                                                            QStringLiteral("Web page, one file (*.html)"));
        if (chosen.isEmpty())
            return std::nullopt;
        return std::filesystem::path(chosen.toStdU16String());
    }
    bool OpenInBrowser(const std::filesystem::path& file) override
    {
        return QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdU16String(file.u16string())));
    }
    void ShowError(const tstring& text) override
    {
        QMessageBox::warning(m_pParent, QStringLiteral("Rig Inspector"), QString::fromStdU16String(text));
    }

private:
    QWidget* m_pParent;
};
} // namespace

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
    m_bHasSections = !sections.empty();
    UpdateShown();
    if (m_pWindow)
        m_pTextEdit->setPlainText(m_Text);
}

void QtDetailsView::OfferReport(std::function<std::string()> renderBundle)
{
    m_RenderBundle = std::move(renderBundle);
    UpdateShown();
}

void QtDetailsView::UpdateShown()
{
    setVisible(m_bHasSections || m_RenderBundle != nullptr);
    if (m_pWindow)
    {
        m_pSave->setEnabled(m_RenderBundle != nullptr);
        m_pOpen->setEnabled(m_RenderBundle != nullptr);
    }
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
        // The path table is laid out in columns.
        m_pTextEdit->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        m_pSave = new QPushButton(QStringLiteral("Save report…"), m_pWindow);
        m_pOpen = new QPushButton(QStringLiteral("Open in browser"), m_pWindow);
        const auto act = [this](bool bSave)
        {
            QtReportActionsUi ui(m_pWindow);
            ReportActions actions(ui, m_RenderBundle);
            bSave ? actions.Save() : actions.Open();
        };
        connect(m_pSave, &QPushButton::clicked, m_pWindow, [act] { act(true); });
        connect(m_pOpen, &QPushButton::clicked, m_pWindow, [act] { act(false); });
        auto* pButtons = new QHBoxLayout;
        pButtons->addStretch();
        pButtons->addWidget(m_pSave);
        pButtons->addWidget(m_pOpen);
        auto* pLayout = new QVBoxLayout(m_pWindow);
        pLayout->addWidget(m_pTextEdit);
        pLayout->addLayout(pButtons);
        m_pWindow->resize(680, 320); // a hop of the path table on one line
    }
    UpdateShown();
    m_pTextEdit->setPlainText(m_Text);
    m_pWindow->show();
    m_pWindow->raise();
}
