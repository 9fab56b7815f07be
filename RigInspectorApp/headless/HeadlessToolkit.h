#pragma once
// The toolkit of the headless front end: no windows, the same one-thread
// sequence. Clicks are made by the toolkit itself: once the sequence has run,
// it presses the main dialog's Next or Cancel, and in the graphic dialog
// Accept or Cancel, so the dialogs' own leaving code runs.
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "RigInspectorApp/GraphicConfigDlg.h"
#include "RigInspectorApp/UiToolkit.h"

class CInspectorDlg;

/// A view that has its document as soon as it is asked to navigate and hands
/// every newly appended piece of the report body to a listener.
class HeadlessReportView : public IReportView
{
public:
    using Listener = std::function<void(std::u16string_view appendedBody)>;
    void SetListener(Listener listener) { m_listener = std::move(listener); }

    void Navigate(const tstring& url) override;
    bool HasDocument() const override { return m_bHasDocument; }
    bool LoadDocument(const char16_t* pStream, std::size_t nBytes) override;
    bool ScrollToEnd() override { return m_bHasDocument; }

    /// The last document loaded (prefix, body, suffix), without the zero.
    const tstring& GetDocument() const { return m_document; }

private:
    bool m_bHasDocument = false;
    tstring m_document;
    std::size_t m_shownBodyLength = 0;
    Listener m_listener;
};

class HeadlessToolkit : public UiToolkit
{
public:
    struct Choices
    {
        bool bNext = false;   // leave the main dialog by Next (else Cancel)
        bool bAccept = false; // leave the graphic dialog by Accept (else Cancel)
    };

    explicit HeadlessToolkit(Choices choices) : m_choices(choices) {}

    HeadlessReportView& GetReportView() { return m_view; }

    int RunModal(CDialogLogic& dlg) override;
    bool PumpWaitingMessages() override;
    void PostQuitMessage(int nExitCode) override;
    std::uint32_t TimeGetTime() override;
    void Sleep(std::uint32_t nMilliseconds) override;
    bool StartProcess(const std::string& commandLine, int nShowMode) override;

    /// Milliseconds (of TimeGetTime) since the UI thread went into a step, or
    /// nothing while it pumps or sleeps between steps. Read by the spinner's
    /// thread.
    std::optional<std::uint32_t> BusyForMs() const;

    /// What the graphic dialog showed and what Accept wrote.
    std::optional<GraphicRecommendation> GetShownChoices() const { return m_shown; }
    std::optional<bool> GetOptionsWritten() const { return m_optionsWritten; }
    std::optional<bool> GetPatcherStarted() const { return m_patcherStarted; }

private:
    void MarkIdle() { m_busySince.store(kIdle, std::memory_order_relaxed); }

    static constexpr std::uint64_t kIdle = ~std::uint64_t{0};

    Choices m_choices;
    HeadlessReportView m_view;
    CInspectorDlg* m_pMainDlg = nullptr;
    bool m_bPressed = false;
    bool m_bQuitPosted = false;
    std::atomic<std::uint64_t> m_busySince{kIdle};
    std::optional<GraphicRecommendation> m_shown;
    std::optional<bool> m_optionsWritten;
    std::optional<bool> m_patcherStarted;
};
