#pragma once
// The report bundle: one self-contained HTML file to hand to support. It is
// rendered from the run's results document, section by section, a section
// only where its keys are there, so keys a newer build adds appear without
// more code here; the report as shown and the history sit beside it, and the
// document itself is embedded for tools to read back.
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

struct BundleInput
{
    const nlohmann::ordered_json* pResults = nullptr; // the run's document
    std::string resultsText;                          // exactly what --json writes for it
    std::string reportDocument;                       // the report HTML as shown (UTF-8)
    std::vector<nlohmann::ordered_json> history;      // oldest first; this run last when it was kept
};

/// The whole file. CSS and the charts' SVG are inline; it loads nothing.
std::string RenderBundle(const BundleInput& input);

/// The id of the script element that carries the results document.
inline constexpr char kBundleResultsId[] = "rig-results";

/// The document's text as it sits in the script element: "</" becomes "<\/"
/// and "<!" becomes "<\u0021", both escapes JSON allows inside the strings
/// where alone '<' can be, so JSON.parse of the element's text gives the same
/// values, and replacing them back gives the same bytes.
std::string EscapeForScript(std::string_view json);
