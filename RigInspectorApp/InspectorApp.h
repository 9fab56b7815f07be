#pragma once
// The application object: the start-up order and the one command-line switch.
#include "share/common/TString.h"

class CInspectorApp
{
public:
    /// True when the command line was exactly "patcher": the patcher is started
    /// when the user leaves the graphic configuration dialog.
    bool m_bRunPatcher = false;
    /// The desktop runs the extended network step after the sequence when the
    /// settings ask for it; the terminal front end has its own switch instead.
    bool m_bExtendedFromSettings = true;

    /// The analyzer's whole life: commandLine is the text after the program
    /// name. Runs the main dialog modally through the installed toolkit.
    /// Always returns false (no message loop of its own follows).
    bool InitInstance(const tstring& commandLine);
};

/// Whether the command-line text is the patcher switch: exact, case-sensitive.
bool IsPatcherSwitch(const tstring& commandLine);

/// The command-line text from main's arguments: argv[1..] joined by one blank,
/// as the Windows framework hands over the text after the program name.
tstring CommandLineText(int argc, const char* const argv[]);

extern CInspectorApp theApp;
