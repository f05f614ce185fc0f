#include "virtual_camera/world/replay.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

ReplayFile::ReplayFile(const std::string& path) : file_(path, std::ios::binary) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error) {
    throw std::runtime_error(path + ": " + error.message());
  }
  if (!file_) {
    throw std::runtime_error(path + ": " + std::strerror(errno));
  }
  if (size % kIvsRecordSize != 0) {
    throw std::runtime_error(
        path + ": the last record is incomplete: " + std::to_string(size % kIvsRecordSize) +
        " of " + std::to_string(kIvsRecordSize) + " bytes");
  }
  total_ = static_cast<int64_t>(size / kIvsRecordSize);
}

std::optional<std::string> ReplayFile::Next() {
  std::string record(kIvsRecordSize, '\0');
  if (!file_.read(record.data(), static_cast<std::streamsize>(record.size()))) {
    return std::nullopt;
  }
  return record;
}

}  // namespace virtual_camera
