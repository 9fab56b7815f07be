#pragma once
// The report's HTML read once into styled spans, for the views that cannot
// show HTML (the terminal, a RichEdit control). It understands what the
// report is written in: <br>, <p>, <b>, <strong>, <font color=... style=...>,
// <a href=...> and character references; other tags are dropped and their
// text kept, as a browser keeps it.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What is in effect for the text that follows.
struct HtmlStyle
{
    bool bBold = false;
    std::optional<std::uint32_t> colour; // 0xRRGGBB; nothing = the view's own
    int nHalfPoints = 0;                 // 0 = the view's own size
};

struct HtmlSpan
{
    enum class Kind
    {
        Text,      // text: decoded characters, white space as written
        LineBreak, // <br> or <p>
        Style,     // style: after a <b> or <font> opened or closed
        LinkStart, // text: the address, references decoded
        LinkEnd
    };
    Kind kind = Kind::Text;
    std::u16string text;
    HtmlStyle style;
};

/// A streaming reader: a tag or a reference split across two fragments is
/// held until its end arrives. A tag cut off at the very end shows nothing,
/// as in a browser; a cut-off reference shows as written.
class ReportHtmlReader
{
public:
    std::vector<HtmlSpan> Feed(std::u16string_view html);
    std::vector<HtmlSpan> Finish();

private:
    void Text(std::u16string_view text);
    void Tag(std::u16string_view tag);
    void Reference(std::u16string_view name);
    void StyleChanged();

    struct Font
    {
        std::optional<std::uint32_t> colour;
        int nHalfPoints = 0;
    };
    std::u16string m_Pending;
    std::vector<HtmlSpan> m_Out;
    std::vector<Font> m_Fonts;
    int m_Bold = 0;
    bool m_bInLink = false;
};

/// The whole of a document at once.
std::vector<HtmlSpan> ReadReportHtml(std::u16string_view html);
