// Files that survive loss of power.
#pragma once

#include <string>
#include <string_view>

namespace virtual_camera {

/// Writes a file, whole and on the disk before it gets its name: it is written and synced
/// as "unfinished" in the same directory first, so one thread at a time writes there.
/// Throws std::runtime_error when it cannot; nothing is left then. The name itself
/// survives loss of power after SyncDirectory.
void WriteDurably(const std::string& path, std::string_view bytes);

/// Has the names in a directory survive loss of power. Throws std::runtime_error when
/// that is not certain.
void SyncDirectory(const std::string& directory);

}  // namespace virtual_camera
