#pragma once
// Records every report fragment the check object writes.
#include <vector>

#include "RigInspectorApp/Inspector.h"

class FakeReportSink : public IReportSink
{
public:
    void AppendReport(const char16_t* text) override { m_Fragments.emplace_back(text); }
    void ScrollReportToEnd() override {}

    std::vector<tstring> m_Fragments;
};

/// Points g_inspector at a fake sink for one test and restores it afterwards.
class ScopedReportSink
{
public:
    ScopedReportSink() : m_pOld(g_inspector.m_pDlg) { g_inspector.m_pDlg = &m_Sink; }
    ~ScopedReportSink() { g_inspector.m_pDlg = m_pOld; }
    ScopedReportSink(const ScopedReportSink&) = delete;
    ScopedReportSink& operator=(const ScopedReportSink&) = delete;

    std::vector<tstring>& Fragments() { return m_Sink.m_Fragments; }

private:
    FakeReportSink m_Sink;
    IReportSink* m_pOld;
};
