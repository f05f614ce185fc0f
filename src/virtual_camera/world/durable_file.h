// Files that survive loss of power.
#pragma once

#include <string>
#include <string_view>

namespace virtual_camera {

/// Writes a file: as "unfinished" in the same directory first, and under its name when it
/// is whole and synced. One thread at a time may write in a directory. The name survives
/// loss of power after SyncDirectory. Throws std::runtime_error when the file cannot be
/// written, and removes what there is of it.
void WriteDurably(const std::string& path, std::string_view bytes);

/// Syncs the names of the files in a directory. Throws std::runtime_error when that fails.
void SyncDirectory(const std::string& directory);

}  // namespace virtual_camera
