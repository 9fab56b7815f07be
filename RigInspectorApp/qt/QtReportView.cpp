#include "QtReportView.h"

#include <QDesktopServices>
#include <QScrollBar>
#include <QTimer>

QtReportView::QtReportView(QWidget* pParent) : QTextBrowser(pParent)
{
    // The report indents its detail lines with a tab and aligns them with
    // spaces; keep both rather than collapse them as plain HTML would.
    document()->setDefaultStyleSheet(QStringLiteral("body { white-space: pre-wrap; }"));
    // Links (target=_blank in the report) belong in the user's browser; the
    // view itself never leaves the report.
    setOpenLinks(false);
    connect(this, &QTextBrowser::anchorClicked, [](const QUrl& url) { QDesktopServices::openUrl(url); });
}

void QtReportView::Navigate(const tstring& /*url*/)
{
    // The analyzer only ever navigates to "about:blank"; any other address
    // also gives an empty document, since this view fetches nothing.
    QTimer::singleShot(0, this,
                       [this]
                       {
                           clear();
                           m_bHasDocument = true;
                       });
}

bool QtReportView::LoadDocument(const char16_t* pStream, std::size_t nBytes)
{
    if (!m_bHasDocument || pStream == nullptr)
        return false;
    // The stream is the document's code units and one zero unit; stop at the
    // first zero so a stray one inside never shows as a glyph.
    std::size_t nUnits = nBytes / sizeof(char16_t);
    for (std::size_t i = 0; i < nUnits; ++i)
    {
        if (pStream[i] == 0)
        {
            nUnits = i;
            break;
        }
    }
    m_LoadedHtml = QString::fromUtf16(pStream, static_cast<qsizetype>(nUnits));
    setHtml(m_LoadedHtml);
    // Reloading resets the view to the top; the newest line is what matters.
    ScrollToEnd();
    return true;
}

bool QtReportView::ScrollToEnd()
{
    if (!m_bHasDocument)
        return false;
    // Moving the caret lays the document out up to its end first, so the
    // range below is the whole document's and not a lazy layout's estimate.
    moveCursor(QTextCursor::End);
    ensureCursorVisible();
    QScrollBar* pBar = verticalScrollBar();
    pBar->setValue(pBar->maximum());
    return true;
}

void QtReportView::showEvent(QShowEvent* pEvent)
{
    QTextBrowser::showEvent(pEvent);
    // A view that was never shown has no scroll range yet: the scrolls made
    // before it appeared did nothing.
    ScrollToEnd();
}
