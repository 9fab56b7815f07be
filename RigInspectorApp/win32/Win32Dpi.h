#pragma once
// What the windows need to follow the DPI of the monitor they are on: the
// calls newer than the Windows 7 API level are looked up at run time, with
// the system-wide DPI where they are missing.
#include <windows.h>

/// The DPI the window is drawn at (GetDpiForWindow, else the screen's).
UINT WindowDpi(HWND hWnd);

/// The dialog lays itself out again when its DPI changes; the dialog
/// manager's own rescaling (Windows 10 1703 on) is turned off so the two do
/// not both move the controls.
void TakeOverDialogDpiScaling(HWND hDialog);

/// "MS Shell Dlg" at nPointSize for dpi, as a dialog template's font is made.
HFONT CreateDialogFont(int nPointSize, UINT dpi);

/// The dialog base units of a font: the average width of the Latin letters
/// and the font's height, as the dialog manager measures them.
SIZE DialogBaseUnits(HFONT hFont);

/// x, y, cx, cy in dialog units to a pixel rectangle, as MapDialogRect does.
RECT DialogRectToPixels(int x, int y, int cx, int cy, SIZE baseUnits);

/// The icon resource at the size the system wants for dpi (big or small).
HICON LoadIconForDpi(HINSTANCE hInstance, int nId, bool bSmall, UINT dpi);

/// A copy of the font at another DPI (its height scaled); with bFixedPitch,
/// the same size in a fixed-pitch face, for text laid out in columns.
HFONT ScaleFont(HFONT hFont, UINT fromDpi, UINT toDpi, bool bFixedPitch = false);
