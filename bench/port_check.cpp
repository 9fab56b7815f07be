// How long the port check takes over a large range when every fragment
// re-renders the whole report, as the dialog's view does: the check as built
// (marks joined above a few hundred ports) against one fragment per mark.
// Run it in a namespace of its own: tests/netns_run.sh bench_port_check
#include <chrono>
#include <cstdio>

#include "RigInspectorApp/AnalyzerSettings.h"
#include "RigInspectorApp/Inspector.h"

namespace
{
/// Keeps the report and rebuilds the whole document on every fragment.
class RenderingSink : public IReportSink
{
public:
    void AppendReport(const char16_t* text) override
    {
        m_Body += text;
        m_Document = u"<html><body>" + m_Body + u"</body></html>";
        ++m_Renders;
    }
    void ScrollReportToEnd() override {}

    tstring m_Body, m_Document;
    long m_Renders = 0;
};

double Seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}
} // namespace

int main()
{
    g_settings.m_CheckPortMin = 20000;
    g_settings.m_CheckPortMax = 60000;

    RenderingSink joined;
    g_inspector.m_pDlg = &joined;
    auto start = std::chrono::steady_clock::now();
    g_inspector.CheckUdpPorts();
    std::printf("40000 ports, marks joined:  %ld renders, %.2f s\n", joined.m_Renders, Seconds(start));

    // The same report text, one render per mark (probing left out).
    RenderingSink perMark;
    g_inspector.m_pDlg = &perMark;
    start = std::chrono::steady_clock::now();
    g_inspector.Print(u"<br>Checking UDP port");
    for (int port = 20000; port < 60000; ++port)
        g_inspector.Print(u".");
    std::printf("40000 ports, one per mark:  %ld renders, %.2f s (rendering alone)\n", perMark.m_Renders,
                Seconds(start));
    g_inspector.m_pDlg = nullptr;
    return 0;
}
