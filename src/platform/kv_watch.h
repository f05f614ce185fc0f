// Keeps a copy of a key-value bucket up to date.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/kv_copy.h"
#include "platform/nats_handle.h"
#include "platform/nats_link.h"

namespace tarvex {

/// For requests to the server that stores buckets, which wait for a second at the most.
NatsJetStream OpenJetStream(natsConnection* connection, natsStatus* status);

/// What the subject of every key of a bucket begins with.
std::string KvSubjectPrefix(const std::string& bucket);

/// Subscribes to the last value of every key of a bucket and to every change that follows.
NatsSubscription SubscribeToBucket(jsCtx* jet_stream, const std::string& bucket,
                                   natsStatus* status);

/// Watches a bucket on a thread of its own, and creates it where it is missing. The
/// watch is begun anew, with the bucket's whole content, after every new connection and
/// when the server turns out to have dropped it; until then the copy stays as it was.
///
/// The NATS library's own watcher is not used: after a reconnection it renews itself on
/// another thread, without regard to one that is just ending it.
class KvWatch {
 public:
  /// @param bucket made of letters, digits, '_' and '-'.
  /// @return null when there can be no connection to such an address.
  static std::unique_ptr<KvWatch> Begin(const std::string& bucket, const SocketAddress& address);

  ~KvWatch();

  KvWatch(const KvWatch&) = delete;
  KvWatch& operator=(const KvWatch&) = delete;

  const KvCopy& copy() const { return copy_; }
  bool IsConnected() const { return link_->IsConnected(); }

 private:
  explicit KvWatch(const std::string& bucket) : bucket_(bucket) {}

  // On a thread of the NATS library:
  void OnConnectionState(bool connected);

  // On the watching thread:
  void Run();
  natsStatus Watch();
  natsStatus EnsureBucket(jsCtx* jet_stream) const;
  natsStatus FollowChanges(natsSubscription* subscription);
  bool IsToEnd();

  const std::string bucket_;
  KvCopy copy_;
  std::mutex mutex_;  // guards the two flags
  std::condition_variable changed_;
  bool stopping_ = false;
  bool begin_anew_ = false;  // there is a new connection
  std::shared_ptr<NatsLink> link_;
  std::thread thread_;
};

}  // namespace tarvex
