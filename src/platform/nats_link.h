// One connection to a NATS server, kept up for as long as it is wanted, and the
// names that subjects and buckets have there.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <nats/nats.h>

#include "tarvex/socket_address.h"

namespace tarvex {

/// Sends every message as soon as possible, and reconnects for ever. While there is no
/// connection one published message is kept for the next (the library has no way to keep
/// none), and publishing more fails. Requests that wait for an answer fail when the
/// connection is lost. Usable from any thread.
class NatsLink {
 public:
  /// Connects to the server at EffectiveAddress(address), or begins to: a server that
  /// is not there yet is waited for in the background.
  /// @param client_name how the connection calls itself on the server.
  /// @param on_state    called when the connection is established (true) or lost
  ///                    (false) after this function has returned, on a thread of the
  ///                    NATS library; not any more once the link is destroyed. It must
  ///                    not destroy the link. One that stands on return is not announced.
  /// @return null, after an error in the log, when there can be no such connection,
  ///         as with a malformed address.
  static std::shared_ptr<NatsLink> Connect(const SocketAddress& address,
                                           const std::string& client_name,
                                           std::function<void(bool connected)> on_state = {});

  /// Closes the connection and waits for an on_state call that is under way.
  ~NatsLink();

  NatsLink(const NatsLink&) = delete;
  NatsLink& operator=(const NatsLink&) = delete;

  /// The connection, owned by the link.
  natsConnection* get() const { return connection_; }

  bool IsConnected() const;

  /// Closes the connection before the link's own end, to end what waits on it: on_state
  /// is not called any more, and no loss is logged.
  void Close();

  /// Ends a subscription of this link and takes it over; it may be null. While the link
  /// stands, none is to be destroyed in another way: the library's reading thread may be
  /// about to hand it one more message. One that outlives its link may be destroyed freely.
  void Retire(natsSubscription* subscription);

 private:
  struct Watcher;

  NatsLink() = default;

  natsConnection* connection_ = nullptr;
  std::mutex retired_mutex_;
  std::vector<natsSubscription*> retired_;  // unsubscribed, not destroyed yet
  std::shared_ptr<Watcher> watcher_;
};

/// Where the server of an address really is: TARVEX_BUS_ADDRESS ("host:port") stands in
/// for 127.0.0.1:6101, TARVEX_KV_ADDRESS for 127.0.0.1:6102. After an error in the log,
/// a malformed value gives an empty host with port 0, which NatsLink refuses.
SocketAddress EffectiveAddress(const SocketAddress& address);

/// Subject of a service queue or a topic: its name, after TARVEX_SUBJECT_PREFIX and a
/// dot where that is set.
std::string BusSubject(const std::string& name);

/// Bucket of a key-value database: its name, after TARVEX_SUBJECT_PREFIX and an
/// underscore where that is set; what a bucket's name cannot hold of the prefix is '_'.
std::string KvBucket(const std::string& database);

}  // namespace tarvex
