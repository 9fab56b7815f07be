#pragma once
// The report's HTML as rich text, for a view that cannot show HTML (a RichEdit
// control where the WebBrowser control has no HTML engine). It understands
// what the report is written in: <br>, <b>, <font color=... style=...>,
// <a href=...> and character references; other tags are dropped, their text
// is kept.
#include <string>
#include <string_view>
#include <vector>

#include "share/common/TString.h"

/// A link of the rich text: the character positions it covers (as the control
/// counts them, a line break being one character) and where it leads.
struct RtfLink
{
    long cpMin;
    long cpMax;
    tstring url;
};

struct RtfReport
{
    /// 7-bit RTF; characters outside ASCII are \u escapes.
    std::string rtf;
    std::vector<RtfLink> links;
};

RtfReport ReportHtmlToRtf(std::u16string_view html);

/// The link at character position cp, or null.
const RtfLink* FindRtfLink(const RtfReport& report, long cp);
