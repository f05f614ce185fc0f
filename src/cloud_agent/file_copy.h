// Copies one file, completely or not at all.
#pragma once

#include <cstddef>
#include <string>

namespace agent {

/// Copies a regular file so that `target` is never seen half-written.
/// @param temporary name of the unfinished copy, on the file system of `target`.
/// @param max_bytes larger files are refused.
/// @return empty, or what went wrong; nothing is left behind then.
std::string CopyFileWhole(const std::string& source, const std::string& target,
                          const std::string& temporary, std::size_t max_bytes);

}  // namespace agent
