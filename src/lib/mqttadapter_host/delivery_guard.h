// What a host owes its plug-in so that no result is lost between them.
//
// The plug-in does not know which publication an acknowledgement belongs to: one of
// tag 11 confirms the newest result that it holds, one of tag 16 the record that is
// first in its re-delivery queue at that moment, and a confirmed result is never
// delivered again. So the host sees to it that those are the results which the broker
// has really taken:
//
//  1. Recognition results are handed to the plug-in one at a time, and only while the
//     link stands and somebody listens.
//  2. After a loss of the link the acknowledgements of earlier publications are void.
//  3. One re-delivered record is under way at a time, and its acknowledgement is
//     withheld once the plug-in's queue may begin with another record.
//
// Whatever the guard drops or withholds stays undelivered in the camera's store.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <json/value.h>
#include <boost/optional.hpp>

namespace mqttadapter_host {

/// Which duties are kept; all of them, except where a test shows what one is for.
struct Duties {
  bool one_at_a_time = true;
  bool release_unpublished = true;
  bool heed_refusals = true;
  bool ignore_stale_acks = true;
  bool one_offline = true;
  bool withhold_offline = true;
  bool unsubscribe_on_loss = true;  ///< the host's own: the guard does not subscribe
};

/// A message that the broker owes an acknowledgement for.
struct Sent {
  using TimePoint = std::chrono::steady_clock::time_point;

  unsigned long long tag = 0;  ///< 0: no message of the plug-in's, such as a response
  std::string topic;
  std::size_t bytes = 0;  ///< of topic and payload
  TimePoint sent_at;
  std::string description;               ///< for the screen
  std::vector<std::string> pictures;     ///< that were stored for it
  boost::optional<Json::UInt> plate_id;  ///< of a result
};

/// What the broker has answered.
enum class Answer {
  kTaken,
  kUnheard,  ///< taken, but nobody subscribes to it
  kRefused,
};

/// Used on the event thread only. Knows neither MQTT nor the plug-in.
class DeliveryGuard {
 public:
  struct Options {
    std::size_t results_in_flight = 1;  ///< above 1 nothing is promised any more
    std::size_t results_waiting = 64;
    std::size_t max_unacknowledged = 256;  ///< messages of the plug-in
    bool confirm_unheard = false;          ///< results that nobody heard count as delivered
    Duties duties;
  };

  struct Counters {
    std::uint64_t results_overflowed = 0;  ///< never handed over: too many waited
    std::uint64_t results_held_back = 0;   ///< never handed over: no link, or nobody listens
    std::uint64_t results_without_publication = 0;
    std::uint64_t results_unheard = 0;  ///< published, and nobody subscribes
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

  /// Whether the broker may owe one more acknowledgement of such a message.
  /// @param tag 0 for responses and the like, which are bounded in bytes only.
  bool HasRoom(unsigned long long tag, std::size_t bytes) const;

  /// The message is on its way under this number.
  void OnPublished(std::uint64_t publication, Sent sent);

  /// The message could not be sent.
  void OnNotPublished(unsigned long long tag);

  /// The broker has answered for a publication.
  /// @return what it was; empty for one of before a loss of the link.
  boost::optional<Sent> OnAcknowledged(std::uint64_t publication, Answer answer);

  /// The publication that the broker owes an acknowledgement for; null where it does not.
  const Sent* Unacknowledged(std::uint64_t publication) const;

  void OnLinkUp();

  /// @return what was under way, by publication.
  std::map<std::uint64_t, Sent> OnLinkDown();

  /// The plug-in has carried out a request of the cloud.
  void OnRequestCarriedOut(const std::string& name, const Json::Value& payload);

  /// Whether the broker owes an acknowledgement since before that time.
  bool OwesOneSentBefore(Sent::TimePoint limit) const;

  /// Whether the latest result that was published was heard by nobody. No result is
  /// handed over until one is heard again.
  bool NobodyListens() const { return nobody_listens_; }

  /// Hands over the next result although the latest was not heard.
  void AssumeListener() { nobody_listens_ = false; }

  /// Results that the plug-in has or will get: undelivered in the store, but on their way.
  std::size_t ResultsUnderWay() const { return waiting_.size() + in_hand_.size(); }
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
    boost::optional<Json::UInt> plate_id;
    bool heads_the_queue;  // the plug-in would confirm this very record
  };

  void HandOver(std::function<void()> deliver);
  void HandOverWaiting();
  void KeepWaitingInStore();
  void CheckThatPublished(std::uint64_t serial);
  void Release(std::deque<ResultInHand>::iterator result);
  std::deque<ResultInHand>::iterator FindInHand(std::uint64_t publication);
  void Settle(std::uint64_t publication, unsigned long long tag, Answer answer);
  bool MayConfirmOffline(std::uint64_t publication);

  const Options options_;
  std::function<void(std::function<void()>)> post_;
  std::function<void(unsigned long long)> confirm_;
  Counters counters_;
  bool is_link_up_ = false;
  bool nobody_listens_ = false;
  std::uint64_t last_serial_ = 0;
  std::deque<std::function<void()>> waiting_;
  std::deque<ResultInHand> in_hand_;
  std::map<std::uint64_t, Sent> unacknowledged_;  // by publication
  std::size_t unacknowledged_bytes_ = 0;
  std::size_t unacknowledged_of_plugin_ = 0;
  boost::optional<OfflineInFlight> offline_;
};

}  // namespace mqttadapter_host
