// When to ask the plug-in for the re-delivery of what the store still holds.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include <json/value.h>

#include "cloud_agent/undelivered.h"

namespace agent {

/// Asks once the link has stood for a while, and again while old results remain, but
/// never while a re-delivery runs: the plug-in cannot tell, so its records are watched
/// for. Used on the event thread.
class AutoPush {
 public:
  /// After a record the plug-in's next step follows within five seconds of its clock,
  /// and a pause of this length means that there is none any more.
  static constexpr int kQuiet_ms = 6000;

  /// Results that are just being delivered count as undelivered too.
  static constexpr std::int64_t kOld_s = 30;

  /// @param post_after runs a task on the event thread after that many milliseconds
  ///                   of the plug-in's clock.
  /// @param undelivered asks the store.
  /// @param push        hands the request to the plug-in.
  AutoPush(std::function<void(int delay_ms, std::function<void()>)> post_after,
           std::function<std::optional<Undelivered>()> undelivered, std::function<void()> push);

  void OnLinkUp();
  void OnLinkDown();

  /// A re-delivered record was published or acknowledged, or would have been.
  void OnOfflineActivity();

  /// Once in a while.
  void OnTick(const std::optional<Undelivered>& undelivered);

 private:
  void WatchForQuiet();
  void OnQuiet(std::uint64_t watched);

  std::function<void(int, std::function<void()>)> post_after_;
  std::function<std::optional<Undelivered>()> undelivered_;
  std::function<void()> push_;
  std::uint64_t activity_ = 0;  // counts whatever begins a new wait for quiet
  bool is_link_up_ = false;
  bool is_quiet_ = false;
  bool has_asked_ = false;  // since the link came up
};

/// The request that makes the plug-in re-deliver everything.
Json::Value PushEverythingRequest();

}  // namespace agent
