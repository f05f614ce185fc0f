#include "cloud_agent/pictures/picture_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/log.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

constexpr char kLockFile[] = ".lock";
constexpr char kTemporarySuffix[] = ".part";
constexpr char kPictureExtension[] = ".jpg";
constexpr std::size_t kMaxName_bytes = 200;

// How often a full disk is made room on for one picture, and for how many of its size.
constexpr int kAttempts = 3;
constexpr std::uint64_t kRoomForPictures = 2;

bool IsImageId(const std::string& source) {
  return !source.empty() && source.size() <= 20 &&
         std::all_of(source.begin(), source.end(),
                     [](char character) { return character >= '0' && character <= '9'; });
}

bool IsUsableName(const std::string& name) {
  return !name.empty() && name.size() <= kMaxName_bytes && name.front() != '.' &&
         name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

// A copy that runs out of space half-way is reported as an error of input and output.
bool IsDiskFull(const std::error_code& error, const fs::path& directory, std::uint64_t bytes) {
  std::error_code unknown;
  return error == std::errc::no_space_on_device || error.value() == EDQUOT ||
         fs::space(directory, unknown).available < bytes;
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

PictureStore::PictureStore(Options options) : options_(std::move(options)) {
  options_.keep = std::max<std::size_t>(1, options_.keep);
}

PictureStore::~PictureStore() {
  if (lock_ >= 0) {
    close(lock_);
  }
}

bool PictureStore::Open(std::string* error) {
  try {
    const fs::path directory = fs::absolute(options_.directory).lexically_normal();
    options_.directory = directory.string();
    fs::create_directories(directory);
    if (!Lock(error)) {
      return false;
    }
    if (options_.url.empty()) {
      options_.url = "file://" + UrlEncoded(options_.directory, "/");
    }
    if (options_.url.back() != '/') {
      options_.url += '/';
    }
    TakeStock();
    return true;
  } catch (const std::exception& failure) {
    *error = "the picture directory cannot be used: " + std::string(failure.what());
    return false;
  }
}

bool PictureStore::Lock(std::string* error) {
  const std::string file = options_.directory + "/" + kLockFile;
  lock_ = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (lock_ < 0) {
    throw fs::filesystem_error("open", file, std::error_code(errno, std::generic_category()));
  }
  if (flock(lock_, LOCK_EX | LOCK_NB) != 0) {
    *error = "another agent uses the picture directory " + options_.directory +
             "; give each one a --picture-dir of its own";
    return false;
  }
  return true;
}

// A picture without content is what a power failure can leave.
void PictureStore::TakeStock() {
  std::vector<std::pair<fs::file_time_type, Kept>> found;
  for (const fs::directory_entry& entry : fs::directory_iterator(options_.directory)) {
    const fs::path name = entry.path().filename();
    const bool is_unfinished = name.extension() == kTemporarySuffix && name.string().front() == '.';
    const bool is_picture = entry.is_regular_file() && name.extension() == kPictureExtension;
    if (is_unfinished || (is_picture && entry.file_size() == 0)) {
      fs::remove(entry.path());
    } else if (is_picture) {
      found.emplace_back(entry.last_write_time(), Kept{name.string(), entry.file_size()});
    }
  }
  std::sort(found.begin(), found.end(), [](const auto& left, const auto& right) {
    return std::tie(left.first, left.second.name) < std::tie(right.first, right.second.name);
  });
  for (const auto& [time, picture] : found) {
    Keep(picture.name, picture.bytes);
  }
}

PictureStore::Picture PictureStore::Store(const std::string& source,
                                          const std::string& name) noexcept try {
  ++failed_;  // until it has not
  if (!IsUsableName(name)) {
    SYS_LOG(kLogWarning, "picture name refused: %s", name.c_str());
    return {};
  }
  if (source.empty()) {
    SYS_LOG(kLogDebug, "no picture for %s", name.c_str());  // not every record has one
    return {};
  }
  const std::string unique_name = UniqueName(name);
  try {
    Copy(PathOf(source), unique_name);
  } catch (const fs::filesystem_error& failure) {
    SYS_LOG(kLogWarning, "picture %s cannot be copied: %s", source.c_str(),
            failure.code().message().c_str());
    return {};
  } catch (const std::runtime_error& failure) {
    SYS_LOG(kLogWarning, "picture %s %s", source.c_str(), failure.what());
    return {};
  }
  --failed_;
  return {unique_name, options_.url + UrlEncoded(unique_name, "")};
} catch (...) {
  SYS_LOG(kLogError, "picture not stored: out of memory");
  return {};
}

std::string PictureStore::PathOf(const std::string& source) const {
  if (!IsImageId(source)) {
    return source;
  }
  if (options_.id_directory.empty()) {
    throw std::runtime_error("is not found: no directory of pictures by id is given");
  }
  return options_.id_directory + "/" + source + kPictureExtension;
}

// The plug-in's names repeat, and the clock that they begin with can be set back.
std::string PictureStore::UniqueName(const std::string& name) {
  const fs::path given(name);
  char digits[16];
  fs::path unique;
  do {
    snprintf(digits, sizeof(digits), "_%08x", static_cast<unsigned int>(random_()));
    unique = given.stem().string() + digits + given.extension().string();
  } while (fs::exists(options_.directory / unique));
  return unique.string();
}

void PictureStore::Copy(const std::string& source, const std::string& name) {
  // A pipe or a device would block the copy.
  if (!fs::is_regular_file(source)) {
    throw std::runtime_error(fs::exists(source) ? "is not a regular file" : "does not exist");
  }
  const std::uint64_t source_bytes = fs::file_size(source);
  RefuseLarge(source_bytes);
  const fs::path directory(options_.directory);
  const fs::path temporary = directory / ("." + name + kTemporarySuffix);
  for (int attempt = 1;; ++attempt) {
    try {
      fs::copy_file(source, temporary, fs::copy_options::overwrite_existing);
      // The source may be growing, so it is the copy that is measured.
      const std::uint64_t bytes = fs::file_size(temporary);
      RefuseLarge(bytes);
      fs::rename(temporary, directory / name);
      Keep(name, bytes);
      return;
    } catch (const std::runtime_error& failure) {
      std::error_code ignored;
      fs::remove(temporary, ignored);
      const auto* error = dynamic_cast<const fs::filesystem_error*>(&failure);
      if (error == nullptr || attempt == kAttempts || kept_.empty() ||
          !IsDiskFull(error->code(), directory, kRoomForPictures * source_bytes)) {
        throw;
      }
    }
    MakeRoom(kRoomForPictures * source_bytes);
  }
}

void PictureStore::RefuseLarge(std::uint64_t bytes) const {
  if (bytes > options_.max_bytes) {
    throw std::runtime_error("is larger than " + std::to_string(options_.max_bytes) + " bytes");
  }
}

void PictureStore::MakeRoom(std::uint64_t bytes) {
  const std::uint64_t before = kept_bytes_;
  while (!kept_.empty() && before - kept_bytes_ < bytes) {
    RemoveOldest();
  }
}

void PictureStore::Keep(const std::string& name, std::uint64_t bytes) {
  kept_.push_back({name, bytes});
  kept_bytes_ += bytes;
  while (kept_.size() > options_.keep || (kept_bytes_ > options_.keep_bytes && kept_.size() > 1)) {
    RemoveOldest();
  }
}

void PictureStore::RemoveOldest() { Remove(std::string(kept_.front().name)); }

void PictureStore::Remove(const std::string& name) {
  // What is removed is mostly the newest or the oldest.
  auto found = kept_.begin();
  if (found == kept_.end() || found->name != name) {
    const auto from_the_back = std::find_if(
        kept_.rbegin(), kept_.rend(), [&name](const Kept& kept) { return kept.name == name; });
    if (from_the_back == kept_.rend()) {
      return;
    }
    found = std::prev(from_the_back.base());
  }
  std::error_code ignored;  // already gone is as good
  fs::remove(fs::path(options_.directory) / name, ignored);
  kept_bytes_ -= found->bytes;
  kept_.erase(found);
}

}  // namespace agent
