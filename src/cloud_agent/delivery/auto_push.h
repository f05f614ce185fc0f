// When to ask the plug-in for re-delivery although the cloud has not asked.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "cloud_agent/delivery/host_duties.h"
#include "cloud_agent/delivery/undelivered.h"

namespace agent {

/// Asks for everything, where it is told to, once the link has stood for a while, and
/// again while old results remain. While nobody listens it asks for one stored result
/// now and then, whether it is told to or not: only a publication shows that somebody
/// does again. Never asks while a re-delivery runs: the plug-in cannot tell, so its
/// records are watched for. Used on the event thread.
class AutoPush {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// After a record the plug-in's next step follows within five seconds of its clock,
  /// and a pause of this length means that there is none any more.
  static constexpr int kQuiet_ms = 6000;

  /// How often Look() is to be called.
  static constexpr std::chrono::seconds kLook{5};

  /// Results that are just being delivered count as undelivered too, for a moment.
  static constexpr std::chrono::seconds kOld{30};

  /// What there is to be had at a time.
  static constexpr int kEverything = 1000000;

  struct Host {
    /// Runs a task on the event thread after that many milliseconds of the plug-in's clock.
    std::function<void(int delay_ms, std::function<void()>)> post_after;
    std::function<TimePoint()> now;
    std::function<std::optional<Undelivered>()> undelivered;  ///< asks the store
    std::function<void(int max_count)> push;                  ///< asks the plug-in
  };

  /// @param everything also asks for everything.
  /// @param guard      not owned.
  AutoPush(bool everything, DeliveryGuard* guard, Host host);

  void OnLinkUp();
  void OnLinkDown();

  /// A re-delivered record was published or acknowledged, or would have been.
  void OnOfflineActivity();

  /// Decides; blocks for the store's answer when there is something to decide.
  void Look();

 private:
  void WatchForQuiet();
  void OfferOne(const Undelivered& undelivered);
  void AskForTheRest(const Undelivered& undelivered);
  void Push(int max_count);

  const bool everything_;
  DeliveryGuard* const guard_;
  const Host host_;
  std::uint64_t activity_ = 0;  // counts whatever begins a new wait for quiet
  bool is_link_up_ = false;
  bool is_quiet_ = false;
  bool has_asked_ = false;              // since the link came up
  std::optional<TimePoint> old_since_;  // since when results remain that are not under way
};

}  // namespace agent
