#pragma once
// What the analyzer learned beside the report: settings that cannot work as
// given, a port held by another program, pongs refused and why. The report
// says only what it always said; these go to the terminal, the JSON and the
// desktop's details view, which all read this one list.
#include <mutex>
#include <string>
#include <vector>

#include "share/common/TString.h"

struct Diagnostic
{
    std::string code; // stable snake_case id, for scripts
    tstring message;  // one plain sentence, for people
};

class Diagnostics
{
public:
    /// Safe from any thread; a code already listed with the same message is
    /// not listed twice (the settings are read more than once in tests).
    void Add(std::string code, tstring message);
    std::vector<Diagnostic> List() const;
    void Clear();

private:
    mutable std::mutex m_Lock;
    std::vector<Diagnostic> m_List;
};

/// The one list. A function, not a global object: the settings feed it during
/// static initialisation, before another translation unit's globals exist.
Diagnostics& GetDiagnostics();
