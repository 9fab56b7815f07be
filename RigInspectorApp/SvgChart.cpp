#include "SvgChart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{
constexpr double kWidth = 560, kHeight = 250;
constexpr double kLeft = 60, kRight = 16, kTop = 34, kBottom = 56;
constexpr double kPlotW = kWidth - kLeft - kRight, kPlotH = kHeight - kTop - kBottom;

std::string Fixed(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

/// A round step (1, 2 or 5 times a power of ten) that gives about five ticks.
double NiceStep(double maximum)
{
    const double raw = maximum / 5.0;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0})
        if (raw <= m * power)
            return m * power;
    return 10.0 * power;
}

struct Scale
{
    double top = 1.0;
    double step = 0.2;
    double Y(double value) const { return kTop + kPlotH - std::clamp(value / top, 0.0, 1.0) * kPlotH; }
};

Scale ScaleFor(const Chart& chart)
{
    double maximum = 0.0;
    for (const ChartSeries& s : chart.series)
    {
        for (const auto& v : s.values)
            if (v)
                maximum = std::max(maximum, *v);
        for (const auto& r : s.ranges)
            if (r)
                maximum = std::max(maximum, r->second);
    }
    Scale scale;
    if (maximum <= 0.0)
        return scale;
    scale.step = NiceStep(maximum);
    scale.top = std::ceil(maximum / scale.step) * scale.step;
    return scale;
}

std::string Open(const Chart& chart)
{
    std::string svg = "<svg class=\"chart\" xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " +
                      Fixed(kWidth) + " " + Fixed(kHeight) + "\" role=\"img\" aria-labelledby=\"" + chart.id +
                      "-t " + chart.id + "-d\"><title id=\"" + chart.id + "-t\">" + HtmlEscape(chart.title) +
                      "</title><desc id=\"" + chart.id + "-d\">" + HtmlEscape(chart.description) + "</desc>";
    return svg;
}

/// Grid, y ticks, both axis labels and the legend.
std::string Frame(const Chart& chart, const Scale& scale)
{
    std::string svg = "<g class=\"grid\">";
    for (double v = 0.0; v <= scale.top + scale.step / 2; v += scale.step)
    {
        const std::string y = Fixed(scale.Y(v));
        svg += "<line x1=\"" + Fixed(kLeft) + "\" x2=\"" + Fixed(kLeft + kPlotW) + "\" y1=\"" + y +
               "\" y2=\"" + y + "\"/><text class=\"tick\" x=\"" + Fixed(kLeft - 6) + "\" y=\"" + y +
               "\" text-anchor=\"end\" dominant-baseline=\"middle\">" + FormatNumber(v) + "</text>";
    }
    svg += "</g>";
    svg += "<line class=\"axis\" x1=\"" + Fixed(kLeft) + "\" x2=\"" + Fixed(kLeft + kPlotW) + "\" y1=\"" +
           Fixed(kTop + kPlotH) + "\" y2=\"" + Fixed(kTop + kPlotH) + "\"/>";
    svg += "<text class=\"label\" x=\"" + Fixed(kLeft + kPlotW / 2) + "\" y=\"" + Fixed(kHeight - 8) +
           "\" text-anchor=\"middle\">" + HtmlEscape(chart.xLabel) + "</text>";
    svg += "<text class=\"label\" transform=\"translate(14 " + Fixed(kTop + kPlotH / 2) +
           ") rotate(-90)\" text-anchor=\"middle\">" + HtmlEscape(chart.yLabel) + "</text>";
    double x = kLeft + kPlotW;
    for (auto it = chart.series.rbegin(); it != chart.series.rend(); ++it)
    {
        // Right-aligned legend: about 6.5 units a character at the tick size.
        const double width = 18 + 6.5 * static_cast<double>(it->name.size());
        x -= width + 10;
        svg += "<rect x=\"" + Fixed(x) + "\" y=\"10\" width=\"12\" height=\"12\" rx=\"2\" fill=\"" +
               it->colour + "\"/><text class=\"tick\" x=\"" + Fixed(x + 17) + "\" y=\"20\">" +
               HtmlEscape(it->name) + "</text>";
    }
    return svg;
}

std::string CategoryLabel(double x, const std::string& text, const char* anchor = "middle")
{
    return "<text class=\"tick\" x=\"" + Fixed(x) + "\" y=\"" + Fixed(kTop + kPlotH + 16) +
           "\" text-anchor=\"" + anchor + "\">" + HtmlEscape(text) + "</text>";
}
} // namespace

std::string HtmlEscape(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (char c : text)
    {
        switch (c)
        {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string FormatNumber(double value)
{
    if (!std::isfinite(value))
        return "—";
    char text[48];
    std::snprintf(text, sizeof text, "%.2f", value);
    std::string s = text;
    while (!s.empty() && s.back() == '0')
        s.pop_back();
    if (!s.empty() && s.back() == '.')
        s.pop_back();
    return s == "-0" ? "0" : s;
}

std::string BarChartSvg(const Chart& chart)
{
    const Scale scale = ScaleFor(chart);
    std::string svg = Open(chart) + Frame(chart, scale);
    const std::size_t groups = std::max<std::size_t>(chart.categories.size(), 1);
    const std::size_t bars = std::max<std::size_t>(chart.series.size(), 1);
    const double groupW = kPlotW / static_cast<double>(groups);
    const double barW = std::min(36.0, groupW * 0.7 / static_cast<double>(bars));
    const double base = kTop + kPlotH;
    for (std::size_t g = 0; g < chart.categories.size(); ++g)
    {
        const double centre = kLeft + groupW * (static_cast<double>(g) + 0.5);
        const double first = centre - barW * static_cast<double>(bars) / 2;
        for (std::size_t s = 0; s < chart.series.size(); ++s)
        {
            const ChartSeries& series = chart.series[s];
            const double x = first + barW * static_cast<double>(s);
            if (g < series.values.size() && series.values[g])
            {
                const double y = scale.Y(*series.values[g]);
                svg += "<rect x=\"" + Fixed(x + 1) + "\" y=\"" + Fixed(y) + "\" width=\"" + Fixed(barW - 2) +
                       "\" height=\"" + Fixed(std::max(base - y, 0.0)) + "\" fill=\"" + series.colour +
                       "\"/>";
            }
            if (g < series.ranges.size() && series.ranges[g])
            {
                const std::string mid = Fixed(x + barW / 2);
                svg += "<path class=\"whisker\" d=\"M" + mid + " " + Fixed(scale.Y(series.ranges[g]->first)) +
                       "V" + Fixed(scale.Y(series.ranges[g]->second)) + "\"/>";
            }
        }
        svg += CategoryLabel(centre, chart.categories[g]);
    }
    return svg + "</svg>";
}

std::string LineChartSvg(const Chart& chart)
{
    const Scale scale = ScaleFor(chart);
    std::string svg = Open(chart) + Frame(chart, scale);
    const std::size_t n = chart.categories.size();
    const auto xAt = [n](std::size_t i)
    {
        return n <= 1 ? kLeft + kPlotW / 2
                      : kLeft + kPlotW * static_cast<double>(i) / static_cast<double>(n - 1);
    };
    for (const ChartSeries& series : chart.series)
    {
        std::string path, points;
        bool bDrawing = false;
        for (std::size_t i = 0; i < n && i < series.values.size(); ++i)
        {
            if (!series.values[i])
            {
                bDrawing = false;
                continue;
            }
            const std::string xy = Fixed(xAt(i)) + " " + Fixed(scale.Y(*series.values[i]));
            path += (bDrawing ? "L" : "M") + xy;
            bDrawing = true;
            points += "M" + xy + "h0";
        }
        // Points as zero-length round-capped strokes: one element for all.
        svg += "<path class=\"line\" stroke=\"" + series.colour + "\" d=\"" + path +
               "\"/><path class=\"dots\" stroke=\"" + series.colour + "\" d=\"" + points + "\"/>";
    }
    // About six labels, always the first and the last.
    const std::size_t every = n <= 6 ? 1 : (n + 4) / 5;
    for (std::size_t i = 0; i < n; ++i)
        if (i % every == 0 || i + 1 == n)
            if (i + 1 == n || n - 1 - i >= every / 2)
                svg += CategoryLabel(xAt(i), chart.categories[i],
                                     n == 1       ? "middle"
                                     : i == 0     ? "start"
                                     : i + 1 == n ? "end"
                                                  : "middle");
    return svg + "</svg>";
}
