#pragma once
// The report view of the main dialog (control 1000): a QTextBrowser standing
// where the WebBrowser control stood, taking the whole report document at once.
#include <QTextBrowser>

#include "RigInspectorApp/UiToolkit.h"

class QtReportView : public QTextBrowser, public IReportView
{
public:
    explicit QtReportView(QWidget* pParent);

    /// Completes on the next turn of the event loop, as the browser's own
    /// navigation does: until then the view has no document.
    void Navigate(const tstring& url) override;
    bool HasDocument() const override { return m_bHasDocument; }
    bool LoadDocument(const char16_t* pStream, std::size_t nBytes) override;
    bool ScrollToEnd() override;

    /// The document last loaded, as given (for tests and screenshots).
    const QString& GetLoadedHtml() const { return m_LoadedHtml; }

protected:
    void showEvent(QShowEvent* pEvent) override;

private:
    bool m_bHasDocument = false;
    QString m_LoadedHtml;
};
