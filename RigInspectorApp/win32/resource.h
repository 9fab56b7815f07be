#pragma once
// Resource ids of rig_inspector.exe, read by its resource script and its code.
// The resource compiler reads this file too: plain macros only.

#define IDR_MAINFRAME 128
