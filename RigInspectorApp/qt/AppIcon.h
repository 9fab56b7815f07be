#pragma once
// The application icon (resource 128 on Windows): drawn here at run time, in
// the three sizes the resource holds, instead of being shipped as images.
#include <QIcon>
#include <QPixmap>

/// The icon drawn at nSize x nSize pixels, 32 bits with alpha.
QPixmap PaintAppIcon(int nSize);

/// The icon at 48, 32 and 24 pixels.
QIcon MakeAppIcon();
