#pragma once
// The two dialog templates (resources 102 and 130) as data, so the window
// that draws them and any later window-system layer build from one source.
// Positions and sizes are dialog units, as in the resource script.
#include <span>

#include "DialogIds.h"

/// One control of a dialog template.
struct DialogControlTemplate
{
    enum class Kind
    {
        PushButton,
        DefPushButton,
        AutoRadioButton,
        GroupBox,
        StaticText,
        ReportView
    };

    Kind kind;
    int nId; // IDC_STATIC for the controls the logic never looks up
    const char16_t* text;
    int x, y, cx, cy;
    /// WS_GROUP: the radio button starts a new exclusive group.
    bool bGroup = false;
};

/// A dialog template: the client size, the caption, the font and the controls.
struct DialogTemplate
{
    int nId;
    int cx, cy;
    const char16_t* caption;
    int nFontPointSize;
    /// WS_SYSMENU: the title bar has a close box.
    bool bCloseBox;
    /// WS_EX_APPWINDOW and WS_VISIBLE: the application's main window, with
    /// its own taskbar button, shown as it is created.
    bool bMainWindow;
    std::span<const DialogControlTemplate> controls;
};

/// The template with that resource id, or null.
const DialogTemplate* FindDialogTemplate(int nTemplateId);
