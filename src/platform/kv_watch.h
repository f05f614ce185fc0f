// Keeps a copy of a key-value bucket up to date.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/kv_copy.h"
#include "platform/nats_handle.h"
#include "platform/nats_link.h"

namespace tarvex {

/// Watches a bucket on a thread of its own, and creates it where it is missing. The
/// watch is begun anew, with the bucket's whole content, after every new connection and
/// when the bucket turns out to be another one; until then the copy stays as it was.
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
  NatsJetStream OpenJetStream(natsStatus* status) const;
  NatsStore OpenBucket(jsCtx* jet_stream, natsStatus* status) const;
  std::int64_t CreationTime(jsCtx* jet_stream, natsStatus* status) const;
  natsStatus FollowChanges(kvWatcher* watcher, jsCtx* jet_stream, std::int64_t created_ns);
  void Apply(kvEntry* entry);

  const std::string bucket_;
  KvCopy copy_;
  std::mutex mutex_;  // guards the next four
  std::condition_variable changed_;
  bool stopping_ = false;
  bool begin_anew_ = false;  // there is a new connection
  NatsWatcher watcher_;      // made and destroyed by the watching thread only
  std::shared_ptr<NatsLink> link_;
  std::thread thread_;
};

}  // namespace tarvex
