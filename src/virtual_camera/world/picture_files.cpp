#include "virtual_camera/world/picture_files.h"

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "virtual_camera/world/durable_file.h"
#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

namespace fs = std::filesystem;

PictureFiles::PictureFiles(const std::string& directory) : directory_(directory) {
  const std::string longest = FullPath(UINT32_MAX);
  if (longest.size() > kMaxPathLength) {
    throw std::runtime_error("the data directory's path is too long: picture paths like " +
                             longest + " would exceed " + std::to_string(kMaxPathLength) +
                             " bytes");
  }
  std::error_code error;
  fs::create_directories(directory_, error);
  if (error) {
    throw std::runtime_error(directory_ + ": " + error.message());
  }
}

std::string PictureFiles::FullPath(uint32_t id) const {
  return directory_ + "/" + std::to_string(id) + "_full.jpg";
}

std::string PictureFiles::ClipPath(uint32_t id) const {
  return directory_ + "/" + std::to_string(id) + "_clip.jpg";
}

void PictureFiles::Sync() const { SyncDirectory(directory_); }

void PictureFiles::Remove(uint32_t id) const {
  std::error_code ignored;
  fs::remove(FullPath(id), ignored);
  fs::remove(ClipPath(id), ignored);
}

int PictureFiles::RemoveOrphans(const std::function<bool(uint32_t id)>& is_known) const {
  std::vector<fs::path> orphans;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory_, error)) {
    const std::string name = entry.path().filename().string();
    const size_t digits = name.find_first_not_of("0123456789");
    const std::string tail = digits == std::string::npos ? "" : name.substr(digits);
    // Only what this class may have written; a person's own files are left alone.
    if (digits == 0 || digits > 10 || (tail != "_full.jpg" && tail != "_clip.jpg")) {
      continue;
    }
    const uint64_t id = std::stoull(name.substr(0, digits));
    if (id > UINT32_MAX || !is_known(static_cast<uint32_t>(id))) {
      orphans.push_back(entry.path());
    }
  }
  for (const fs::path& orphan : orphans) {
    fs::remove(orphan, error);
  }
  return static_cast<int>(orphans.size());
}

}  // namespace virtual_camera
