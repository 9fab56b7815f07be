// The two dialogs as the templates make them: the font is set by DS_SETFONT
// alone, so "MS Shell Dlg" is the face the dialog units come from
// (DS_SHELLFONT's DS_FIXEDSYS would swap in another on Windows; Wine shows
// no difference, so the template's bits are read), and on a (Wine) desktop
// only the main dialog carries the application's icon.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RigInspectorApp/DialogTemplate.h"
#include "Win32Dialog.h"
#include "tests/common/ProbeDialog.h"

namespace
{
using ProbeDialog = ProbeDialogOf<Win32DialogWindow>;

struct TemplateHeader
{
    DWORD style = 0;
    WORD nPointSize = 0;
    std::u16string face;
};

// The DLGTEMPLATEEX header: version, signature, help id, extended style,
// style, item count, position, size, menu, class, caption, then the font.
TemplateHeader ReadHeader(const std::vector<WORD>& words)
{
    TemplateHeader header;
    header.style = MAKELONG(words.at(6), words.at(7));
    std::size_t at = 15;
    while (words.at(at) != 0) // the caption
        ++at;
    header.nPointSize = words.at(at + 1);
    for (at += 4; words.at(at) != 0; ++at)
        header.face.push_back(static_cast<char16_t>(words[at]));
    return header;
}

TEST(DialogFidelity, FontSetByDsSetFontAndTheIconOnTheMainDialogOnly)
{
    const HICON hIcon = ::LoadIconW(nullptr, reinterpret_cast<LPCWSTR>(IDI_APPLICATION));
    ASSERT_NE(hIcon, nullptr);
    Win32Toolkit toolkit(::GetModuleHandleW(nullptr), hIcon);
    SetToolkit(&toolkit);
    for (const int nTemplate : {IDD_INSPECTOR_DIALOG, IDD_GRAPHIC_CONFIG_DIALOG})
    {
        SCOPED_TRACE(nTemplate);
        const bool bMain = nTemplate == IDD_INSPECTOR_DIALOG;
        const TemplateHeader header = ReadHeader(BuildDialogTemplate(*FindDialogTemplate(nTemplate)));
        EXPECT_EQ(header.style & DS_SETFONT, static_cast<DWORD>(DS_SETFONT));
        EXPECT_EQ(header.style & DS_FIXEDSYS, 0u);
        EXPECT_EQ(header.face, u"MS Shell Dlg");
        EXPECT_EQ(header.nPointSize, bMain ? 9 : 8);

        ProbeDialog dlg(nTemplate);
        dlg.m_OnInit = [&](ProbeDialog& d)
        {
            const HWND hWnd = d.m_pWindow->GetHwnd();
            const auto big = reinterpret_cast<HICON>(::SendMessageW(hWnd, WM_GETICON, ICON_BIG, 0));
            const auto small = reinterpret_cast<HICON>(::SendMessageW(hWnd, WM_GETICON, ICON_SMALL, 0));
            EXPECT_EQ(big, bMain ? hIcon : nullptr);
            EXPECT_EQ(small, bMain ? hIcon : nullptr);
            d.End(1);
        };
        EXPECT_EQ(toolkit.RunModal(dlg), 1);
    }
    SetToolkit(nullptr);
}
} // namespace
