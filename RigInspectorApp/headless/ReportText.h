#pragma once
// Turns the report's HTML fragments into terminal text as they arrive.
#include <string>
#include <string_view>
#include <vector>

/// A streaming converter: tags are dropped, "<br>" becomes a line break,
/// entities are decoded, a link shows its address after its text, and the
/// font colours and bold become ANSI attributes when colour is on. A tag or an
/// entity split across two fragments is held until its end arrives.
class ReportText
{
public:
    explicit ReportText(bool bColor) : m_bColor(bColor) {}

    /// The terminal text for the next fragment of the report body.
    std::string Feed(std::u16string_view html);
    /// Closes what is open: attributes reset, the last line ended.
    std::string Finish();

private:
    void Text(std::u16string_view text);
    void Tag(std::u16string_view tag);
    void Entity(std::u16string_view entity);
    void Emit(std::string_view text);
    void ApplyColour();

    bool m_bColor;
    std::u16string m_pending; // an unfinished tag or entity
    std::string m_out;
    bool m_bLineOpen = false;
    std::vector<std::string> m_colours; // one per open <font>, "" for none
    int m_bold = 0;
    std::string m_appliedColour = "\x1b[39m"; // the terminal's own colour
    bool m_bInLink = false;
    std::string m_linkHref;
    std::string m_linkText;
};
