#pragma once
// What the details window's "Save report…" and "Open in browser" do, apart
// from the window system: the toolkits only draw the buttons, the save dialog
// and the message, and start the browser.
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "share/common/TString.h"

class IReportActionsUi
{
public:
    virtual ~IReportActionsUi() = default;
    /// The save dialog, opened on suggested; the path chosen, or nothing.
    virtual std::optional<std::filesystem::path> AskSavePath(const std::filesystem::path& suggested) = 0;
    /// Hands the file to the user's web browser; false when none started.
    virtual bool OpenInBrowser(const std::filesystem::path& file) = 0;
    virtual void ShowError(const tstring& text) = 0;
};

class ReportActions
{
public:
    using Render = std::function<std::string()>;
    using Clock = std::function<std::time_t()>;

    ReportActions(
        IReportActionsUi& ui, Render render, Clock clock = [] { return std::time(nullptr); });

    /// rig-inspector-YYYYMMDD-HHMMSS.html in the Documents folder.
    std::filesystem::path SuggestedPath() const;
    /// "Save report…": asks where, writes the bundle there; true when written.
    bool Save();
    /// "Open in browser": writes the bundle to the temporary folder and opens it.
    bool Open();

private:
    bool Write(const std::filesystem::path& file);

    IReportActionsUi& m_Ui;
    Render m_Render;
    Clock m_Clock;
};
