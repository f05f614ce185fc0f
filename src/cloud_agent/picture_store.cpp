#include "cloud_agent/picture_store.h"

#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

#include "cloud_agent/file_copy.h"
#include "platform/log.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

constexpr char kTemporarySuffix[] = ".part";
constexpr char kPictureExtension[] = ".jpg";
constexpr std::size_t kMaxName_bytes = 200;

bool IsImageId(const std::string& source) {
  return !source.empty() && source.size() <= 20 &&
         std::all_of(source.begin(), source.end(),
                     [](char character) { return character >= '0' && character <= '9'; });
}

bool IsUsableName(const std::string& name) {
  return !name.empty() && name.size() <= kMaxName_bytes && name.front() != '.' &&
         name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

std::string UrlEncoded(const std::string& text, const char* kept) {
  constexpr char kHexDigits[] = "0123456789ABCDEF";
  const std::string unreserved =
      std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~") + kept;
  std::string encoded;
  for (const char character : text) {
    if (unreserved.find(character) != std::string::npos) {
      encoded += character;
    } else {
      const auto byte = static_cast<unsigned char>(character);
      encoded += '%';
      encoded += kHexDigits[byte >> 4U];
      encoded += kHexDigits[byte & 0xFU];
    }
  }
  return encoded;
}

}  // namespace

PictureStore::PictureStore(Options options)
    : options_(std::move(options)), index_(std::max<std::size_t>(1, options_.keep)) {}

bool PictureStore::Open(std::string* error) {
  try {
    const fs::path directory = fs::absolute(options_.directory).lexically_normal();
    options_.directory = directory.string();
    fs::create_directories(directory);
    if (options_.url.empty()) {
      options_.url = "file://" + UrlEncoded(options_.directory, "/");
    }
    if (options_.url.back() != '/') {
      options_.url += '/';
    }
    std::vector<std::pair<fs::file_time_type, std::string>> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
      const fs::path name = entry.path().filename();
      if (name.extension() == kTemporarySuffix && name.string().front() == '.') {
        fs::remove(entry.path());
      } else if (entry.is_regular_file() && name.extension() == kPictureExtension) {
        found.emplace_back(entry.last_write_time(), name.string());
      }
    }
    std::sort(found.begin(), found.end());
    for (const auto& [time, name] : found) {
      Note(name);
    }
    return true;
  } catch (const std::exception& failure) {
    *error = "the picture directory cannot be used: " + std::string(failure.what());
    return false;
  }
}

std::string PictureStore::Store(const std::string& source, const std::string& name) noexcept try {
  if (!IsUsableName(name)) {
    SYS_LOG(kLogWarning, "picture name refused: %s", name.c_str());
    return "";
  }
  if (source.empty()) {
    SYS_LOG(kLogWarning, "no picture for %s", name.c_str());
    return "";
  }
  std::string path = source;
  if (IsImageId(source)) {
    if (options_.id_directory.empty()) {
      SYS_LOG(kLogWarning, "picture %s not found: no directory of pictures by id is given",
              source.c_str());
      return "";
    }
    path = options_.id_directory + "/" + source + kPictureExtension;
  }
  const std::string target = options_.directory + "/" + name;
  const std::string temporary = options_.directory + "/." + name + kTemporarySuffix;
  const std::string error = CopyFileWhole(path, target, temporary, options_.max_bytes);
  if (!error.empty()) {
    SYS_LOG(kLogWarning, "picture %s %s", path.c_str(), error.c_str());
    return "";
  }
  Note(name);
  return options_.url + UrlEncoded(name, "");
} catch (...) {
  SYS_LOG(kLogError, "picture not stored: out of memory");
  return "";
}

void PictureStore::Note(const std::string& name) {
  const std::optional<std::string> oldest = index_.Add(name);
  if (oldest) {
    std::error_code ignored;  // already gone is as good
    fs::remove(fs::path(options_.directory) / *oldest, ignored);
  }
}

}  // namespace agent
