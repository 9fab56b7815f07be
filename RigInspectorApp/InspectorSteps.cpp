// The sequence's checks, in order. A check that lands is appended here.
#include "Inspector.h"
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
    return checks;
}
