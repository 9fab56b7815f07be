#include "DialogTemplate.h"

#include <array>

namespace
{
using K = DialogControlTemplate::Kind;

constexpr std::array kInspectorControls{
    DialogControlTemplate{K::ReportView, 1000, u"", 7, 7, 206, 256},
    DialogControlTemplate{K::PushButton, 1, u"Next", 138, 268, 41, 16},
    DialogControlTemplate{K::PushButton, 2, u"Cancel", 183, 268, 29, 16},
    DialogControlTemplate{K::PushButton, 3, u"Windows Firewall off", 7, 268, 79, 16},
};

constexpr std::array kGraphicConfigControls{
    DialogControlTemplate{K::GroupBox, -1, u"Detail", 7, 7, 222, 120},
    DialogControlTemplate{K::StaticText, -1, u"Character :", 37, 24, 47, 15},
    DialogControlTemplate{K::AutoRadioButton, 1001, u"High", 102, 24, 30, 10, true},
    DialogControlTemplate{K::AutoRadioButton, 1002, u"Low", 161, 24, 29, 10},
    DialogControlTemplate{K::StaticText, -1, u"Shadow :", 44, 50, 47, 15},
    DialogControlTemplate{K::AutoRadioButton, 1003, u"High", 101, 50, 30, 10, true},
    DialogControlTemplate{K::AutoRadioButton, 1004, u"Low", 161, 50, 29, 10},
    DialogControlTemplate{K::StaticText, -1, u"Spectators :", 34, 74, 47, 15},
    DialogControlTemplate{K::AutoRadioButton, 1005, u"High", 101, 74, 30, 10, true},
    DialogControlTemplate{K::AutoRadioButton, 1006, u"Low", 161, 74, 29, 10},
    DialogControlTemplate{K::StaticText, -1, u"P.I.P :", 53, 99, 27, 15},
    DialogControlTemplate{K::AutoRadioButton, 1007, u"High", 102, 99, 30, 10, true},
    DialogControlTemplate{K::AutoRadioButton, 1008, u"Low", 162, 99, 29, 10},
    DialogControlTemplate{K::PushButton, 3, u"Recommend", 7, 136, 50, 14},
    DialogControlTemplate{K::DefPushButton, 1, u"Accept", 121, 136, 50, 14},
    DialogControlTemplate{K::PushButton, 2, u"Cancel", 179, 136, 50, 14},
};

constexpr DialogTemplate kTemplates[] = {
    {IDD_INSPECTOR_DIALOG, 219, 291, u"Dunmore Nine Rig Inspector v1.1", 9, false, kInspectorControls},
    {IDD_GRAPHIC_CONFIG_DIALOG, 236, 157, u"Dunmore Nine Graphic Configuration", 8, true,
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
