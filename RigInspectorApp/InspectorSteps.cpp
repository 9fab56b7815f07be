// The sequence's checks, in order. A check that lands is appended here.
#include "Details.h"
#include "ExtendedStep.h"
#include "Inspector.h"
#include "InspectorApp.h"
#include "InspectorDlg.h"

InspectorChecks DefaultInspectorChecks()
{
    InspectorChecks checks;
    checks.steps = {
        []
        {
            g_inspector.CheckSystem();
            return 0;
        },
        [] { return g_inspector.CheckFirewall(); },
        []
        {
            g_inspector.CheckTcp();
            return 0;
        },
        []
        {
            g_inspector.CheckUdp();
            return 0;
        },
        []
        {
            g_inspector.CheckUdpPorts();
            return 0;
        },
    };
    checks.registerGameWithFirewall = [] { g_inspector.RegisterGameWithFirewall(); };
    if (g_settings.m_bExtendedEnable && theApp.m_bExtendedFromSettings)
    {
        checks.afterSequence = []
        {
            std::vector<DetailSection> sections;
            const ExtendedResult result = ExtendedChecker(ExtendedSettingsFrom(g_settings)).Run();
            SetExtendedForDetails(result);
            for (const ExtendedSection& found : ExtendedDetails(result))
            {
                DetailSection& section = sections.emplace_back();
                section.title = zul::ToWide(found.title);
                for (const std::string& line : found.lines)
                    section.lines.push_back(zul::ToWide(line));
            }
            return sections;
        };
    }
    return checks;
}
