#pragma once
// Dialog units to pixels, computed the way Windows computes them, so that the
// dialogs keep the proportions their templates were drawn with.
#include <QFont>
#include <QRect>

/// Windows' MulDiv: a * b / c rounded half away from zero; -1 when c is 0.
int MulDiv(int a, int b, int c);

/// The dialog base units: the font's average character width and its height in
/// pixels. One horizontal dialog unit is cx / 4 pixels, one vertical cy / 8.
struct DialogBaseUnits
{
    int cx;
    int cy;
};

/// Windows' average width: the advance of "A".."Z" and "a".."z" together over
/// 52, rounded ((width / 26 + 1) / 2, as GDI does it).
int AverageCharWidth(int nAlphabetWidth);

/// Converts each coordinate on its own (MapDialogRect and dialog creation
/// convert x and cx separately, so a width never depends on its position).
QRect MapDialogRect(const DialogBaseUnits& units, int x, int y, int cx, int cy);

/// The face standing in for "MS Shell Dlg", which Debian does not have.
/// Liberation Sans (fonts-liberation, installed by scripts/setup.sh) is the
/// nearest: a metric-compatible Arial, the sans-serif face Windows' dialog
/// font falls back to in its Western form.
extern const char* const kDialogFaceName;

/// The dialog font at nPointSize, its pixel height rounded to whole pixels for
/// the given vertical dpi, as the template's font is created (MulDiv(pt, dpi, 72)).
QFont MakeDialogFont(int nPointSize, int nDpiY);

/// The base units of a font as the dialog manager measures them.
DialogBaseUnits MeasureBaseUnits(const QFont& font);
