// What a person who watches the agent sees.
#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>

#include <json/value.h>

#include "cloud_agent/screen/message_line.h"
#include "cloud_agent/screen/redelivery_progress.h"

namespace agent {

/// Writes whole lines, "2026-01-31 23:59:59 TEXT", and flushes each. Used on the event
/// thread.
class Screen {
 public:
  using TimePoint = RedeliveryProgress::TimePoint;

  /// @param out not owned; null: nothing is shown, and nothing is spent on it.
  explicit Screen(std::ostream* out) : out_(out) {}

  /// Describes a message of the plug-in, for ShowFate().
  std::string Describe(const std::string& name, const Json::Value& payload,
                       unsigned long long tag) const;
  void ShowFate(const std::string& description, Fate fate);
  void ShowEvent(const std::string& text);

  /// A message of the plug-in is on its way.
  /// @return whether a re-delivery begins with it: then ShowUndelivered() is awaited.
  bool OnPublished(unsigned long long tag, TimePoint now);

  /// What the store counts as undelivered now.
  void ShowUndelivered(std::int64_t count);

  /// A message of the plug-in was delivered.
  void OnDelivered(unsigned long long tag, TimePoint now);
  void OnLinkDown();

 private:
  std::ostream* const out_;
  RedeliveryProgress progress_;
};

}  // namespace agent
