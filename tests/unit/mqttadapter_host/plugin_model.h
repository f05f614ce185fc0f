// A camera's store and a plug-in's queues, as far as they decide what is delivered.
//
// The model does what a plug-in does with acknowledgements, which carry a tag only: it
// confirms the newest pending result for tag 11, and for tag 16 whatever record stands
// first in its re-delivery queue.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <set>

namespace mqttadapter_host {

/// Results are known by their plate id.
struct StoreModel {
  std::deque<unsigned> undelivered;  // oldest first
  std::set<unsigned> marked;         // delivered, as far as the store was told

  void Add(unsigned plate_id) { undelivered.push_back(plate_id); }
  void Mark(unsigned plate_id);
};

class PluginModel {
 public:
  /// @param post       to the event thread.
  /// @param post_later the same, after the pause between two re-delivered records.
  /// @param publish    (tag, plate id)
  PluginModel(StoreModel* store, std::function<void(std::function<void()>)> post,
              std::function<void(std::function<void()>)> post_later,
              std::function<void(unsigned long long, unsigned)> publish);

  void OnBusResult(unsigned plate_id);
  void OnMessagePublished(unsigned long long tag);
  void Push(unsigned max_count);
  void Stop();

 private:
  void PublishNewest();
  void OfflineStep();
  bool FetchIfEmpty();
  void ConfirmNewest();
  void ConfirmFirstOffline();

  StoreModel* store_;
  std::function<void(std::function<void()>)> post_;
  std::function<void(std::function<void()>)> post_later_;
  std::function<void(unsigned long long, unsigned)> publish_;
  std::list<unsigned> results_;  // newest at the back
  std::list<unsigned> offline_;  // next at the back
  unsigned remaining_ = 100;
};

}  // namespace mqttadapter_host
