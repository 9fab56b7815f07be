#pragma once
// Charts for the report bundle, drawn as inline SVG: nothing runs in the
// browser to show them, and they print. Each carries a <title> and a <desc>
// for screen readers, and axis labels; the bundle puts a table of the same
// figures beside each. Hand-written: no packaged C++ library draws SVG charts.
#include <optional>
#include <string>
#include <vector>

struct ChartSeries
{
    std::string name;
    std::string colour;                        // a CSS colour
    std::vector<std::optional<double>> values; // one per category; nothing: no bar or point
    /// Optional low..high range drawn as a whisker over each bar (bar charts).
    std::vector<std::optional<std::pair<double, double>>> ranges;
};

struct Chart
{
    std::string id; // unique in the document, for the title's aria reference
    std::string title;
    std::string description;
    std::string xLabel;
    std::string yLabel;
    std::vector<std::string> categories; // x axis, left to right
    std::vector<ChartSeries> series;
};

/// Grouped bars, one group per category.
std::string BarChartSvg(const Chart& chart);

/// One line per series over the categories in order (runs over time); a
/// missing value breaks the line. Only some category labels are written
/// when there are many.
std::string LineChartSvg(const Chart& chart);

/// Text escaped for HTML and SVG content and attribute values.
std::string HtmlEscape(const std::string& text);

/// A figure as the bundle writes it: at most two decimals, no trailing zeros.
std::string FormatNumber(double value);
