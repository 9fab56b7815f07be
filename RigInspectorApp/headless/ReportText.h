#pragma once
// Turns the report's HTML fragments into terminal text as they arrive.
#include <string>
#include <string_view>
#include <vector>

#include "RigInspectorApp/ReportHtml.h"

/// A streaming converter over the report's reader: line breaks stay line
/// breaks, a link shows its address after its text, and the font colours and
/// bold become ANSI attributes when colour is on.
class ReportText
{
public:
    explicit ReportText(bool bColor) : m_bColor(bColor) {}

    /// The terminal text for the next fragment of the report body.
    std::string Feed(std::u16string_view html);
    /// Closes what is open: attributes reset, the last line ended.
    std::string Finish();

private:
    void Render(const std::vector<HtmlSpan>& spans);
    void Emit(std::string_view text);
    void ApplyStyle(const HtmlStyle& style);

    bool m_bColor;
    ReportHtmlReader m_Reader;
    std::string m_out;
    bool m_bLineOpen = false;
    bool m_bBold = false;
    std::string m_appliedColour = "\x1b[39m"; // the terminal's own colour
    bool m_bStyled = false;                   // a style is open that Finish must reset
    bool m_bInLink = false;
    std::string m_linkHref;
    std::string m_linkText;
};
