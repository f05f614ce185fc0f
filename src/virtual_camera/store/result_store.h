// The results that the camera has recognised, each with its delivery status.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "virtual_camera/store/database.h"
#include "virtual_camera/store/settings.h"

namespace virtual_camera {

/// How much the store keeps before it removes results.
struct Retention {
  int64_t results = 20000;  ///< at least 1
  int64_t picture_bytes = int64_t{2} * 1024 * 1024 * 1024;
};

/// As in the column "status".
enum class Delivery { kUndelivered = 0, kDelivered = 1, kCleared = 2 };

/// Keeps records by plate id. Ids count up from 1 and are never given twice, also after a
/// removal or a kill. What Insert has returned from survives SIGKILL
/// and loss of power. A failing disk throws std::runtime_error, and nothing has changed
/// then. Used on the camera's thread.
class ResultStore {
 public:
  struct Totals {
    int64_t results = 0;
    int64_t undelivered = 0;
    int64_t picture_bytes = 0;
    int64_t undelivered_removed = 0;  ///< since the store was made
  };

  struct Inserted {
    std::vector<uint32_t> removed;  ///< to make room; their pictures are to be removed too
    int64_t undelivered_removed = 0;
  };

  /// Creates its table where it is missing.
  /// @param settings of the same database; must outlive this, as the database.
  ResultStore(Database& database, Settings& settings, Retention retention);

  /// The id that the next result is to carry. Throws when no more ids are left.
  uint32_t NextId() const;

  /// Stores a record as undelivered, and removes the oldest delivered ones, and if need
  /// be the oldest undelivered ones, to keep within the retention.
  /// @param id            NextId() or higher; becomes the key.
  /// @param picture_bytes what its pictures take on the disk.
  /// @param now_s         seconds since 1970 by the host's clock.
  Inserted Insert(uint32_t id, const std::string& record, int64_t picture_bytes, int64_t now_s);

  /// The record with the highest id.
  std::optional<std::string> Newest();

  std::optional<std::string> Find(uint32_t id);

  /// Undelivered records of that id or higher, oldest first, at most `count`.
  std::vector<std::string> SelectUndelivered(uint32_t min_id, int64_t count);

  /// Does not wait for the disk: the mark survives SIGKILL, and loss of power once the next
  /// result was stored.
  /// @return whether it was undelivered until now.
  bool MarkDelivered(uint32_t id);

  /// Marks every undelivered result as cleared.
  /// @return how many that were.
  int64_t ClearUndelivered();

  /// Seconds since the oldest undelivered result was stored; 0 without one.
  int64_t OldestUndeliveredAge(int64_t now_s);

  const Totals& totals() const { return totals_; }

 private:
  struct Victim {
    uint32_t id;
    int64_t picture_bytes;
    bool undelivered;
  };

  std::optional<Victim> OldestToRemove();

  Database& database_;
  Settings& settings_;
  const Retention retention_;
  Totals totals_;  // updated with the table, so that no request has to count
  uint32_t last_id_ = 0;
  Statement insert_;
  Statement remove_;
  Statement newest_;
  Statement find_;
  Statement select_;
  Statement mark_;
  Statement clear_;
  Statement oldest_done_;
  Statement oldest_undelivered_;
};

}  // namespace virtual_camera
