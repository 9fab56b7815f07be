#pragma once
// The check object: the checks are its member functions, and Print is the one
// way they write to the report.
#include <cstdint>

#include "RigInspector/CheckResults.h"
#include "share/common/Format.h"

/// What the check object needs of the dialog that shows the report; the main
/// dialog's logic (CInspectorDlg) implements it.
class IReportSink
{
public:
    virtual ~IReportSink() = default;
    virtual void AppendReport(const char16_t* text) = 0;
    virtual void ScrollReportToEnd() = 0;
};

class Inspector
{
public:
    /// The dialog that shows the report; null until its OnInitDialog sets it.
    IReportSink* m_pDlg = nullptr;
    /// Measured by the system check, read by the graphic configuration dialog.
    std::int32_t m_SystemMemory = 0; // report megabytes
    std::int32_t m_VideoMemory = 0;  // report megabytes, 0 when the probe failed
    std::int32_t m_CpuSpeed = 0;     // MHz
    /// Every check's findings, for the terminal text and the JSON.
    CheckResults m_Results;

    void CheckSystem();              // step 0
    int CheckFirewall();             // step 1: 3 offers the "Windows Firewall off" button
    void RegisterGameWithFirewall(); // the "Windows Firewall off" button
    void CheckTcp();                 // step 2
    void CheckUdp();                 // step 3
    void CheckUdpPorts();            // step 4

    /// Formats one report fragment into a 512-character buffer (at most 511
    /// characters; longer output is cut there), appends it to the dialog's
    /// report and scrolls to the end. Dropped while m_pDlg is null.
    template <class... Args> void Print(const char16_t* format, const Args&... args)
    {
        if (m_pDlg == nullptr)
            return;
        const tstring text = zul::FormatStringN(kPrintMaxChars, format, args...);
        m_pDlg->AppendReport(text.c_str());
        m_pDlg->ScrollReportToEnd();
    }

    static constexpr std::size_t kPrintMaxChars = 511;
};

/// The one check object.
extern Inspector g_inspector;
