#pragma once
// Where the main dialog draws its icon while minimised. Only a Win32 layer
// needs it (elsewhere the window manager draws minimised windows), so it is
// kept free of any toolkit.

struct IconOrigin
{
    int x;
    int y;
};

/// (client - icon + 1) / 2 on each axis, the division rounding toward zero as
/// C's does, so a client smaller than the icon gives a negative origin.
constexpr IconOrigin MinimisedIconOrigin(int nClientWidth, int nClientHeight, int nIconWidth, int nIconHeight)
{
    return IconOrigin{(nClientWidth - nIconWidth + 1) / 2, (nClientHeight - nIconHeight + 1) / 2};
}
