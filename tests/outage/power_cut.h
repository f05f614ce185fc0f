// The camera's store as a loss of power leaves it, and what must be true of it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

#include "outage/journal.h"
#include "outage/store_reader.h"

/// Copies the database as it lies in its files, for a camera that stands still: what the
/// system has at that instant. What a disk has not written yet of it is not imitated; the
/// camera waits for the disk at every commit. The file of shared memory is left behind,
/// as a loss of power does.
void CopyStoreFiles(const std::filesystem::path& from, const std::filesystem::path& to);

/// Holds a store that was cut off against what was known before the cut, and prints what
/// is wrong: every announced result must be in it, with its pictures; whatever it has as
/// delivered must be at the subscriber, or come there now; SQLite must find no fault.
/// @param announced plate ids that had passed on the bus before the cut.
/// @param pictures  the camera's directory of pictures.
/// @param checked   up to this plate id pictures were looked at before; moves on.
/// @return how much is wrong.
std::uint64_t CountFaultsOf(const StoreReader& store, const std::set<std::uint32_t>& announced,
                            const Journal& journal, const std::filesystem::path& pictures,
                            std::uint32_t* checked);
