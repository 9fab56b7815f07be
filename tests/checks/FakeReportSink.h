#pragma once
#include <vector>

#include "RigInspectorApp/Inspector.h"

/// Records every report fragment g_inspector writes while it lives, then restores the old sink.
class ScopedReportSink : public IReportSink
{
public:
    ScopedReportSink() : m_pOld(g_inspector.m_pDlg) { g_inspector.m_pDlg = this; }
    ~ScopedReportSink() override { g_inspector.m_pDlg = m_pOld; }
    ScopedReportSink(const ScopedReportSink&) = delete;
    ScopedReportSink& operator=(const ScopedReportSink&) = delete;

    void AppendReport(const char16_t* text) override { m_Fragments.emplace_back(text); }
    void ScrollReportToEnd() override {}
    std::vector<tstring>& Fragments() { return m_Fragments; }

private:
    std::vector<tstring> m_Fragments;
    IReportSink* m_pOld;
};
