#pragma once
#include <string>

/// Writes text to standard output if it can go at once, whole; false when
/// the reader is not keeping up (a full pipe or socket) and nothing was
/// written. A server must never stop serving because its log is not read.
bool WriteLogNow(const std::string& text);
