#pragma once
// The per-user folders the run history and the saved report go to, and the
// one file operation the history needs atomic. Each platform has its own file.
#include <filesystem>

/// Where history.jsonl lives: RIG_INSPECTOR_STATE_DIR when set, else the
/// platform's per-user state folder for the tool. Empty when none is known.
std::filesystem::path StateFolder();

/// The user's Documents folder, or the home folder where it has none; empty
/// when neither is known.
std::filesystem::path DocumentsFolder();

/// Moves from over to, replacing to in one step: a reader sees the old file
/// or the new one, never a mix. False when it could not.
bool ReplaceFileAtomically(const std::filesystem::path& from, const std::filesystem::path& to);
