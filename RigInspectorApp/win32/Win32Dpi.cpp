#include "Win32Dpi.h"

namespace
{
template <class F> F UserProc(const char* pName)
{
    const HMODULE hUser = ::GetModuleHandleW(L"user32.dll");
    return hUser != nullptr ? reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(hUser, pName)))
                            : nullptr;
}

UINT ScreenDpi()
{
    const HDC hdc = ::GetDC(nullptr);
    const int dpi = hdc != nullptr ? ::GetDeviceCaps(hdc, LOGPIXELSY) : USER_DEFAULT_SCREEN_DPI;
    if (hdc != nullptr)
        ::ReleaseDC(nullptr, hdc);
    return dpi > 0 ? static_cast<UINT>(dpi) : USER_DEFAULT_SCREEN_DPI;
}
} // namespace

UINT WindowDpi(HWND hWnd)
{
    using GetDpiForWindowFn = UINT(WINAPI*)(HWND);
    static const auto pGetDpiForWindow = UserProc<GetDpiForWindowFn>("GetDpiForWindow");
    const UINT dpi = pGetDpiForWindow != nullptr && hWnd != nullptr ? pGetDpiForWindow(hWnd) : 0;
    return dpi != 0 ? dpi : ScreenDpi();
}

void TakeOverDialogDpiScaling(HWND hDialog)
{
    using SetBehaviorFn = BOOL(WINAPI*)(HWND, DIALOG_DPI_CHANGE_BEHAVIORS, DIALOG_DPI_CHANGE_BEHAVIORS);
    static const auto pSetBehavior = UserProc<SetBehaviorFn>("SetDialogDpiChangeBehavior");
    if (pSetBehavior != nullptr)
        pSetBehavior(hDialog, DDC_DISABLE_ALL, DDC_DISABLE_ALL);
}

HFONT CreateDialogFont(int nPointSize, UINT dpi)
{
    LOGFONTW font{};
    font.lfHeight = -::MulDiv(nPointSize, static_cast<int>(dpi), 72);
    font.lfWeight = FW_NORMAL;
    font.lfCharSet = DEFAULT_CHARSET;
    lstrcpynW(font.lfFaceName, L"MS Shell Dlg", LF_FACESIZE);
    return ::CreateFontIndirectW(&font);
}

SIZE DialogBaseUnits(HFONT hFont)
{
    static constexpr wchar_t kLetters[] = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    SIZE units{8, 16};
    const HDC hdc = ::GetDC(nullptr);
    if (hdc == nullptr)
        return units;
    const HGDIOBJ hOld = ::SelectObject(hdc, hFont);
    TEXTMETRICW metrics{};
    SIZE extent{};
    if (::GetTextMetricsW(hdc, &metrics) && ::GetTextExtentPoint32W(hdc, kLetters, 52, &extent))
        units = SIZE{(extent.cx / 26 + 1) / 2, metrics.tmHeight};
    ::SelectObject(hdc, hOld);
    ::ReleaseDC(nullptr, hdc);
    return units;
}

RECT DialogRectToPixels(int x, int y, int cx, int cy, SIZE baseUnits)
{
    // Position and size convert on their own, as in the dialog manager.
    const int left = ::MulDiv(x, baseUnits.cx, 4);
    const int top = ::MulDiv(y, baseUnits.cy, 8);
    return RECT{left, top, left + ::MulDiv(cx, baseUnits.cx, 4), top + ::MulDiv(cy, baseUnits.cy, 8)};
}

HICON LoadIconForDpi(HINSTANCE hInstance, int nId, bool bSmall, UINT dpi)
{
    const int nSize = ::MulDiv(bSmall ? 16 : 32, static_cast<int>(dpi), USER_DEFAULT_SCREEN_DPI);
    return static_cast<HICON>(::LoadImageW(hInstance, MAKEINTRESOURCEW(nId), IMAGE_ICON, nSize, nSize, 0));
}

HFONT ScaleFont(HFONT hFont, UINT fromDpi, UINT toDpi, bool bFixedPitch)
{
    LOGFONTW font{};
    if (hFont == nullptr || ::GetObjectW(hFont, sizeof font, &font) == 0)
        return nullptr;
    font.lfHeight = ::MulDiv(font.lfHeight, static_cast<int>(toDpi), static_cast<int>(fromDpi));
    font.lfWidth = ::MulDiv(font.lfWidth, static_cast<int>(toDpi), static_cast<int>(fromDpi));
    if (bFixedPitch)
    {
        font.lfWidth = 0;
        font.lfPitchAndFamily = FIXED_PITCH | FF_MODERN;
        ::lstrcpynW(font.lfFaceName, L"Courier New", LF_FACESIZE);
    }
    return ::CreateFontIndirectW(&font);
}
