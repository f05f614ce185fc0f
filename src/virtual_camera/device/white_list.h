// The list of known plates, and what the gate does for a plate that is on it or not.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <json/value.h>

#include "virtual_camera/store/database.h"
#include "virtual_camera/store/settings.h"

namespace virtual_camera {

/// Kept over restarts; every change is on the disk when its function returns.
class WhiteList {
 public:
  /// What the check does with a car that passes.
  enum class Check {
    kOff = 0,
    kOpenForListed = 1,  ///< a listed plate opens the gate
    kBlockUnlisted = 2   ///< besides, an unlisted one closes it at once
  };

  struct Replaced {
    int stored = 0;
    int refused = 0;  ///< not objects, without a usable "plate", or too long
  };

  static constexpr int64_t kMaxPlates = 100000;

  /// Both must outlive this.
  WhiteList(Database& database, Settings& settings);

  /// Stores records: JSON objects whose "plate" is a text of 1 to 15 bytes and the key.
  /// One that is there already is replaced whole.
  Replaced Replace(const Json::Value& records);

  /// @return how many of the plates were listed.
  int Delete(const std::vector<std::string>& plates);

  /// The records of a plate, none or one.
  Json::Value Select(const std::string& plate);

  /// Records in the order of their plates.
  /// @param from how many to leave out, 0 or more.
  Json::Value Records(int from, int count);

  bool Contains(const std::string& plate);
  int64_t Count() const { return count_; }

  Check check() const { return check_; }
  void SetCheck(Check check);

 private:
  Database& database_;
  Settings& settings_;
  Statement replace_;
  Statement delete_;
  Statement select_;
  Statement list_;
  int64_t count_ = 0;
  Check check_ = Check::kOff;
};

}  // namespace virtual_camera
