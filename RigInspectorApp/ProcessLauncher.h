#pragma once
// Starting a program without waiting for it (WinExec's role).
#include <string>

/// Starts commandLine (blank-separated words, the first is the program; a
/// program without "/" is searched in PATH). Returns at once: true when the
/// program was started, false on any failure. The child is reaped in the
/// background, so no zombie is left behind.
bool LaunchProcess(const std::string& commandLine);
