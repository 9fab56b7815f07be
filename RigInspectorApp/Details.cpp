#include "Details.h"

#include "DesktopRun.h"
#include "RigInspector/Diagnostics.h"

std::vector<DetailSection> CollectDetails()
{
    std::vector<DetailSection> sections;
    const std::vector<Diagnostic> diagnostics = GetDiagnostics().List();
    if (!diagnostics.empty())
    {
        DetailSection section{u"Diagnostics", {}};
        for (const Diagnostic& d : diagnostics)
            section.lines.push_back(d.message);
        sections.push_back(std::move(section));
    }
    if (std::optional<DetailSection> previous = PreviousRunDetails())
        sections.push_back(std::move(*previous));
    return sections;
}
