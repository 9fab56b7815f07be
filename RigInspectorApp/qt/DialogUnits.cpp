#include "DialogUnits.h"

#include <QFontMetrics>
#include <cstdint>

const char* const kDialogFaceName = "Liberation Sans";

int MulDiv(int a, int b, int c)
{
    if (c == 0)
        return -1;
    const std::int64_t product = static_cast<std::int64_t>(a) * b;
    const std::int64_t half = (c > 0 ? c : -c) / 2;
    const bool bNegative = (product < 0) != (c < 0);
    const std::int64_t magnitude = ((product < 0 ? -product : product) + half) / (c > 0 ? c : -c);
    return static_cast<int>(bNegative ? -magnitude : magnitude);
}

int AverageCharWidth(int nAlphabetWidth)
{
    return (nAlphabetWidth / 26 + 1) / 2;
}

QRect MapDialogRect(const DialogBaseUnits& units, int x, int y, int cx, int cy)
{
    return QRect(MulDiv(x, units.cx, 4), MulDiv(y, units.cy, 8), MulDiv(cx, units.cx, 4),
                 MulDiv(cy, units.cy, 8));
}

QFont MakeDialogFont(int nPointSize, int nDpiY)
{
    QFont font(QString::fromLatin1(kDialogFaceName));
    font.setStyleHint(QFont::SansSerif);
    font.setPixelSize(MulDiv(nPointSize, nDpiY, 72));
    return font;
}

DialogBaseUnits MeasureBaseUnits(const QFont& font)
{
    const QFontMetrics metrics(font);
    const int nAlphabetWidth =
        metrics.horizontalAdvance(QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"));
    return DialogBaseUnits{AverageCharWidth(nAlphabetWidth), metrics.height()};
}
