#include <windows.h>

#include <gtest/gtest.h>

#include <ole2.h>

#include "Win32ReportView.h"

TEST(ReportView, TakesTheWebBrowserOnlyWhenItCanMakeAnHtmlDocument)
{
    constexpr HRESULT kNoHtmlEngine = static_cast<HRESULT>(0x80040111); // CLASS_E_CLASSNOTAVAILABLE
    EXPECT_EQ(ChooseReportView({S_OK, S_OK}), ReportViewKind::WebBrowser);
    EXPECT_EQ(ChooseReportView({S_OK, kNoHtmlEngine}), ReportViewKind::RichEdit);
    EXPECT_EQ(ChooseReportView({REGDB_E_CLASSNOTREG, S_OK}), ReportViewKind::RichEdit);
}

TEST(ReportView, WineWithoutItsHtmlEngineGetsTheRichEditView)
{
    // The tests run with mshtml disabled, as a Debian Wine without Gecko is:
    // the control exists, its document cannot be made.
    ASSERT_TRUE(SUCCEEDED(::OleInitialize(nullptr)));
    const ReportViewProbe probe = ProbeReportView();
    ::OleUninitialize();
    EXPECT_TRUE(SUCCEEDED(probe.hrBrowser)) << std::hex << probe.hrBrowser;
    EXPECT_TRUE(FAILED(probe.hrHtmlDocument));
    EXPECT_EQ(ChooseReportView(probe), ReportViewKind::RichEdit);
}
