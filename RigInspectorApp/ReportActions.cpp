#include "ReportActions.h"

#include <fstream>

#include "RunRecord.h"
#include "UserFolders.h"

ReportActions::ReportActions(IReportActionsUi& ui, Render render, Clock clock)
    : m_Ui(ui), m_Render(std::move(render)), m_Clock(std::move(clock))
{
}

std::filesystem::path ReportActions::SuggestedPath() const
{
    return DocumentsFolder() / BundleFileName(m_Clock());
}

bool ReportActions::Write(const std::filesystem::path& file)
{
    const std::string bundle = m_Render();
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bundle.data(), static_cast<std::streamsize>(bundle.size()));
    out.close();
    if (out)
        return true;
    m_Ui.ShowError(u"The report could not be written to " + file.u16string() + u".");
    return false;
}

bool ReportActions::Save()
{
    const std::optional<std::filesystem::path> chosen = m_Ui.AskSavePath(SuggestedPath());
    return chosen && Write(*chosen);
}

bool ReportActions::Open()
{
    std::error_code ec;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(ec);
    const std::filesystem::path file = folder / BundleFileName(m_Clock());
    if (ec)
    {
        m_Ui.ShowError(u"There is no temporary folder to write the report to.");
        return false;
    }
    if (!Write(file))
        return false;
    if (m_Ui.OpenInBrowser(file))
        return true;
    m_Ui.ShowError(u"No web browser could be started for " + file.u16string() + u".");
    return false;
}
