// Small values that the camera keeps over restarts, by name.
#pragma once

#include <map>
#include <optional>
#include <string>

#include <json/value.h>

#include "virtual_camera/store/database.h"

namespace virtual_camera {

/// Every change is on the disk when its function returns; a failing disk throws
/// std::runtime_error. Used on the camera's thread.
class Settings {
 public:
  /// Creates its table where it is missing.
  explicit Settings(Database& database);

  std::optional<std::string> Text(const std::string& name);
  void SetText(const std::string& name, const std::string& text);

  /// Sets all of them or, when it throws, none. Not within a transaction.
  void SetTexts(const std::map<std::string, std::string>& texts);

  /// @return `otherwise` when the value is not there or is not JSON.
  Json::Value JsonValue(const std::string& name, const Json::Value& otherwise);
  void SetJson(const std::string& name, const Json::Value& value);

 private:
  Database& database_;
  Statement select_;
  Statement replace_;
};

}  // namespace virtual_camera
