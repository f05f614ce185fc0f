// Keeps copies of the key-value buckets of a server up to date.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/kv_copy.h"
#include "platform/nats_handle.h"
#include "platform/nats_link.h"

namespace tarvex {

/// One connection, and one thread that follows all buckets. They are followed anew, with their
/// whole content, after every new connection and when the server turns out to have dropped one;
/// until then a copy stays as it was.
///
/// The NATS library's own watcher is not used: after a reconnection it renews itself on
/// another thread, without regard to one that is just ending it.
class KvWatch {
 public:
  /// That of a server, which all of the process share that ask for it. Any thread.
  /// @return null, after an error in the log, when there can be no connection to it.
  static std::shared_ptr<KvWatch> Of(const SocketAddress& address);

  ~KvWatch();

  KvWatch(const KvWatch&) = delete;
  KvWatch& operator=(const KvWatch&) = delete;

  /// Follows a bucket for as long as somebody has the copy, and creates it where it is
  /// missing. Any thread.
  /// @param bucket made of letters, digits, '_' and '-'.
  std::shared_ptr<const KvCopy> Follow(const std::string& bucket);

  bool IsConnected() const { return link_->IsConnected(); }

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// What the watching thread knows of a bucket.
  struct Following {
    std::shared_ptr<KvCopy> copy;
    unsigned connections = 0;     // of the link, when it was looked at
    std::string consumer;         // at the server; empty: to begin
    TimePoint next_attempt;       // to begin
    int failures = 0;             // in a row
    bool is_complete = false;     // the copy has the first values
    KvCopy::Values first_values;  // until then
    TimePoint quiet_since;
  };

  KvWatch() = default;
  natsStatus Open();

  // On the watching thread:
  void Run();
  bool IsStopping();
  void Nap();
  void LookForCopies();
  void LookAt(const std::string& bucket, Following* following);
  natsStatus Begin(const std::string& bucket, Following* following);
  bool IsThere(const std::string& bucket, const Following& following) const;
  void End(const std::string& bucket, const Following& following) const;
  TimePoint NextLook() const;
  void TakeMessages();
  void TakeChange(natsMsg* message);

  std::shared_ptr<NatsLink> link_;
  NatsJetStream jet_stream_;
  // Where all consumers deliver to. The server heeds no wildcard there.
  std::string inbox_;
  NatsSubscription subscription_;
  std::mutex mutex_;  // guards the next two
  std::condition_variable changed_;
  bool is_stopping_ = false;
  std::map<std::string, std::weak_ptr<KvCopy>> copies_;  // by bucket
  // The watching thread's:
  std::map<std::string, Following> following_;  // by bucket
  std::thread thread_;
};

}  // namespace tarvex
