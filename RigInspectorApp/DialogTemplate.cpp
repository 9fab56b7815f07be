#include "DialogTemplate.h"

#include <array>

#include "UiToolkit.h"

namespace
{
using K = DialogControlTemplate::Kind;

constexpr std::array kInspectorControls{
    DialogControlTemplate{K::ReportView, IDC_EXPLORER, u"", 7, 7, 206, 256},
    DialogControlTemplate{K::PushButton, IDOK, u"Next", 138, 268, 41, 16},
    DialogControlTemplate{K::PushButton, IDCANCEL, u"Cancel", 183, 268, 29, 16},
    DialogControlTemplate{K::PushButton, IDC_FIREWALL_OFF, u"Windows Firewall off", 7, 268, 79, 16},
};

constexpr std::array kGraphicConfigControls{
    DialogControlTemplate{K::GroupBox, IDC_STATIC, u"Detail", 7, 7, 222, 120},
    DialogControlTemplate{K::StaticText, IDC_STATIC, u"Character :", 37, 24, 47, 15},
    DialogControlTemplate{K::AutoRadioButton, IDC_CHAR_HIGH, u"High", 102, 24, 30, 10, true},
    DialogControlTemplate{K::AutoRadioButton, IDC_CHAR_LOW, u"Low", 161, 24, 29, 10},
    DialogControlTemplate{K::StaticText, IDC_STATIC, u"Shadow :", 44, 50, 47, 15},
    DialogControlTemplate{K::AutoRadioButton, IDC_SHADOW_HIGH, u"High", 101, 50, 30, 10, true},
    DialogControlTemplate{K::AutoRadioButton, IDC_SHADOW_LOW, u"Low", 161, 50, 29, 10},
    DialogControlTemplate{K::StaticText, IDC_STATIC, u"Spectators :", 34, 74, 47, 15},
    DialogControlTemplate{K::AutoRadioButton, IDC_SPECTATORS_HIGH, u"High", 101, 74, 30, 10, true},
    DialogControlTemplate{K::AutoRadioButton, IDC_SPECTATORS_LOW, u"Low", 161, 74, 29, 10},
    DialogControlTemplate{K::StaticText, IDC_STATIC, u"P.I.P :", 53, 99, 27, 15},
    DialogControlTemplate{K::AutoRadioButton, IDC_PIP_HIGH, u"High", 102, 99, 30, 10, true},
    DialogControlTemplate{K::AutoRadioButton, IDC_PIP_LOW, u"Low", 162, 99, 29, 10},
    DialogControlTemplate{K::PushButton, IDC_RECOMMEND, u"Recommend", 7, 136, 50, 14},
    DialogControlTemplate{K::DefPushButton, IDOK, u"Accept", 121, 136, 50, 14},
    DialogControlTemplate{K::PushButton, IDCANCEL, u"Cancel", 179, 136, 50, 14},
};

constexpr DialogTemplate kTemplates[] = {
    {IDD_INSPECTOR_DIALOG, 219, 291, u"Dunmore Nine Rig Inspector v1.1", 9, false, true, kInspectorControls},
    {IDD_GRAPHIC_CONFIG_DIALOG, 236, 157, u"Dunmore Nine Graphic Configuration", 8, true, false,
     kGraphicConfigControls},
};
} // namespace

const DialogTemplate* FindDialogTemplate(int nTemplateId)
{
    for (const DialogTemplate& t : kTemplates)
    {
        if (t.nId == nTemplateId)
            return &t;
    }
    return nullptr;
}
