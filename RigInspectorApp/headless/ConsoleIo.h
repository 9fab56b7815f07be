#pragma once
// The few calls on the standard streams that differ between platforms.

/// Sets the standard streams up for the report: on Windows binary (no "\r"
/// added to the lines), UTF-8 and colour escapes on a console; nothing on POSIX.
void PrepareConsole();

/// Whether the descriptor is a terminal (a console on Windows).
bool IsTerminal(int fd);

/// Keeps a duplicate of standard output aside, not inherited by child
/// processes, and makes standard output a copy of standard error. The
/// duplicate's descriptor, or -1 when that could not be done.
int SetStandardOutputAside();
