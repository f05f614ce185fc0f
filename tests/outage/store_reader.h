// The camera's store, read as a file: not through the camera.
#pragma once

#include <cstdint>
#include <set>
#include <string>

struct sqlite3;

struct StoredResults {
  std::set<std::uint32_t> all;
  std::set<std::uint32_t> undelivered;
};

class StoreReader {
 public:
  enum class Kind {
    kLive,   ///< of a camera that runs: nothing of it is changed
    kCutOff  ///< of a camera that is gone: SQLite puts it in order first
  };

  /// Throws std::runtime_error when there is no such database.
  explicit StoreReader(const std::string& file, Kind kind = Kind::kLive);
  ~StoreReader();

  StoreReader(const StoreReader&) = delete;
  StoreReader& operator=(const StoreReader&) = delete;

  StoredResults Read() const;
  std::uint64_t CountUndelivered() const;
  std::uint64_t Count() const;

  /// "ok", or the first fault that SQLite finds.
  std::string IntegrityFinding() const;

 private:
  std::uint64_t Number(const char* sql) const;

  sqlite3* database_ = nullptr;
};
