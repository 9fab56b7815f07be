#include "Diagnostics.h"

#include <algorithm>

void Diagnostics::Add(std::string code, tstring message)
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    const bool bKnown =
        std::any_of(m_List.begin(), m_List.end(),
                    [&](const Diagnostic& d) { return d.code == code && d.message == message; });
    if (!bKnown)
        m_List.push_back({std::move(code), std::move(message)});
}

std::vector<Diagnostic> Diagnostics::List() const
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    return m_List;
}

void Diagnostics::Clear()
{
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_List.clear();
}

Diagnostics& GetDiagnostics()
{
    static Diagnostics s_Diagnostics;
    return s_Diagnostics;
}
