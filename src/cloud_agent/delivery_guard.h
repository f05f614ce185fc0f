// What a host owes its plug-in so that no result is lost between them.
//
// The plug-in does not know which publication an acknowledgement belongs to: one of
// tag 11 confirms the newest result that it holds, one of tag 16 the record that is
// first in its re-delivery queue at that moment, and a confirmed result is never
// delivered again. So the host sees to it that those are the results which the broker
// has really taken:
//
//  1. Recognition results are handed to the plug-in one at a time.
//  2. After a loss of the link the acknowledgements of earlier publications are void.
//  3. One re-delivered record is under way at a time, and its acknowledgement is
//     withheld once the plug-in's queue may begin with another record.
//
// Whatever the guard drops or withholds stays undelivered in the camera's store.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include <json/value.h>

namespace agent {

/// Which duties are kept; all of them, except where a test shows what one is for.
struct Duties {
  bool one_at_a_time = true;
  bool ignore_stale_acks = true;
  bool one_offline = true;
};

/// Used on the event thread only. Knows neither MQTT nor the plug-in.
class DeliveryGuard {
 public:
  struct Options {
    std::size_t results_in_flight = 1;  ///< above 1 nothing is promised any more
    std::size_t results_waiting = 64;
    Duties duties;
  };

  struct Counters {
    std::uint64_t results_overflowed = 0;  ///< never handed over: too many waited
    std::uint64_t results_without_publication = 0;
    std::uint64_t dropped_offline_busy = 0;
    std::uint64_t ignored_acks = 0;   ///< of publications before a loss
    std::uint64_t withheld_acks = 0;  ///< rule 3
  };

  /// @param post    runs a task on the event thread, behind everything posted so far.
  /// @param confirm tells the plug-in that a message with this tag is acknowledged.
  DeliveryGuard(const Options& options, std::function<void(std::function<void()>)> post,
                std::function<void(unsigned long long tag)> confirm);
  DeliveryGuard(const DeliveryGuard&) = delete;
  DeliveryGuard& operator=(const DeliveryGuard&) = delete;

  /// A message of the device's bus, for the plug-in.
  /// @param deliver hands it over, and throws nothing; called now, later or never.
  void OnBusMessage(const std::string& topic, std::function<void()> deliver);

  /// To be asked before each message of the plug-in is published.
  /// @return false: it is to be dropped.
  bool MayPublish(unsigned long long tag, const Json::Value& payload);

  /// The message is on its way under this number.
  void OnPublished(std::uint64_t publication, unsigned long long tag, const Json::Value& payload);

  /// The message could not be sent.
  void OnNotPublished(unsigned long long tag);

  /// The broker has answered for a publication.
  /// @param taken false: it refused the message.
  void OnAcknowledged(std::uint64_t publication, bool taken);

  void OnLinkDown();

  /// The plug-in has carried out a request of the cloud.
  void OnRequestCarriedOut(const std::string& name, const Json::Value& payload);

  std::size_t ResultsWaiting() const { return waiting_.size(); }
  const Counters& counters() const { return counters_; }

 private:
  /// A result that was handed to the plug-in; `publication` is 0 until it is published.
  struct ResultInHand {
    std::uint64_t serial;
    std::uint64_t publication;
  };

  /// The re-delivered record that is under way.
  struct OfflineInFlight {
    std::uint64_t publication;
    std::optional<Json::UInt> plate_id;
    bool heads_the_queue;  // the plug-in would confirm this very record
  };

  void HandOver(std::function<void()> deliver);
  void HandOverWaiting();
  void CheckThatPublished(std::uint64_t serial);
  void Release(std::deque<ResultInHand>::iterator result);
  bool MayConfirmOffline(std::uint64_t publication);

  const Options options_;
  std::function<void(std::function<void()>)> post_;
  std::function<void(unsigned long long)> confirm_;
  Counters counters_;
  std::uint64_t last_serial_ = 0;
  std::deque<std::function<void()>> waiting_;
  std::deque<ResultInHand> in_hand_;
  std::map<std::uint64_t, unsigned long long> unacknowledged_;  // publication to tag
  std::optional<OfflineInFlight> offline_;
};

}  // namespace agent
