#pragma once
// The dialog templates' resource and control ids: one list that the dialogs'
// logic, the template table and every front end read.

constexpr int IDD_INSPECTOR_DIALOG = 102;
constexpr int IDD_GRAPHIC_CONFIG_DIALOG = 130;

// Main dialog.
constexpr int IDC_EXPLORER = 1000;
constexpr int IDC_FIREWALL_OFF = 3;

// Graphic configuration dialog: each option's High button, then its Low one.
constexpr int IDC_CHAR_HIGH = 1001;
constexpr int IDC_CHAR_LOW = 1002;
constexpr int IDC_SHADOW_HIGH = 1003;
constexpr int IDC_SHADOW_LOW = 1004;
constexpr int IDC_SPECTATORS_HIGH = 1005;
constexpr int IDC_SPECTATORS_LOW = 1006;
constexpr int IDC_PIP_HIGH = 1007;
constexpr int IDC_PIP_LOW = 1008;
constexpr int IDC_RECOMMEND = 3;

/// The controls the logic never looks up.
constexpr int IDC_STATIC = -1;
