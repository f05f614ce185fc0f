// The record that holds the settings of the voice prompts and of the display.
#pragma once

#include <json/value.h>

#include "virtual_camera/store/settings.h"

namespace virtual_camera {

/// One JSON object, read and written whole, kept over restarts.
class VoiceDisplay {
 public:
  static constexpr size_t kMaxBytes = 65536;

  /// Must outlive this.
  explicit VoiceDisplay(Settings& settings);

  const Json::Value& record() const { return record_; }

  /// Throws RequestError for what is no object or has more than kMaxBytes as text.
  void Write(const Json::Value& record);

 private:
  Settings& settings_;
  Json::Value record_;
};

}  // namespace virtual_camera
