// One connection to a NATS server, kept up for as long as it is wanted, and the
// names that subjects and buckets have there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <nats/nats.h>

#include "platform/nats_handle.h"
#include "tarvex/socket_address.h"

namespace tarvex {

class NatsLoop;
class SocketService;

/// Sends every message as soon as possible, and reconnects for ever, to whichever of the servers
/// of its address is there. While there is no connection one published message is kept for the
/// next (the library has no way to keep none), and publishing more fails. Requests that wait for
/// an answer fail when the connection is lost. Usable from any thread, but on the thread of its
/// event service only where it has one.
class NatsLink {
 public:
  /// Called when the connection is established (true) or lost (false) after Connect() has
  /// returned, on a thread of the NATS library; not any more once the link is destroyed. It
  /// must not destroy the link. One that stands on return is not announced.
  using OnState = std::function<void(bool connected)>;

  struct Options {
    OnState on_state;
    /// Whose thread reads and writes the connection, and that outlives it; null: threads of
    /// the NATS library do.
    SocketService* service = nullptr;
    /// Requests are few and have time: they cost no thread of their own, and go on waiting
    /// for their answer when the connection is lost. Without a service only.
    bool has_few_requests = false;
  };

  /// Connects to one of the servers of EffectiveServers(address), or begins to: one that is
  /// not there yet is waited for in the background.
  /// @param client_name how the connection calls itself on the server.
  /// @return null, after an error in the log, when there can be no such connection,
  ///         as with a malformed address.
  static std::shared_ptr<NatsLink> Connect(const SocketAddress& address,
                                           const std::string& client_name, Options options);
  static std::shared_ptr<NatsLink> Connect(const SocketAddress& address,
                                           const std::string& client_name, OnState on_state = {}) {
    return Connect(address, client_name, Options{std::move(on_state), nullptr, false});
  }

  /// Closes the connection and waits for an on_state call that is under way.
  ~NatsLink();

  NatsLink(const NatsLink&) = delete;
  NatsLink& operator=(const NatsLink&) = delete;

  /// The connection, owned by the link.
  natsConnection* get() const { return connection_; }

  bool IsConnected() const;

  /// How often a connection was established since Connect(): another number means that what
  /// the server knew of the one before is gone.
  unsigned connections() const;

  /// Closes the connection before the link's own end, to end what waits on it: on_state
  /// is not called any more, and no loss is logged.
  void Close();

  natsStatus Publish(const std::string& subject, const std::string& body);

  /// The same, but with an event service it is written together with what else its thread
  /// has by the time that it turns to its sockets.
  natsStatus PublishSoon(const std::string& subject, const std::string& body);

  /// Bytes that were published and not written yet.
  std::size_t Unwritten() const;

  /// Waits for an answer.
  /// @param take gets the answer; called before this returns NATS_OK. NATS_NO_RESPONDERS means
  ///             that nobody serves the subject.
  natsStatus Request(const std::string& subject, const char* data, int length,
                     std::int64_t timeout_ms, const std::function<void(natsMsg* answer)>& take);

  /// Waits until the server has taken in what was sent before.
  natsStatus Flush(std::int64_t timeout_ms);

  /// @param queue empty: every listener of the subject gets each message, otherwise one of
  ///              those with the same queue.
  /// @param take  called with each message on the event service's thread, within its other
  ///              work, or without one on a thread of the NATS library. Throws nothing, and
  ///              does not use the link.
  /// @return null, with the reason in `status`, where that cannot be.
  NatsSubscription Subscribe(const std::string& subject, const std::string& queue,
                             std::function<void(natsMsg* message)> take, natsStatus* status);

  /// Ends a subscription of this link and takes it over; it may be null. While the link
  /// stands, none is to be destroyed in another way: the library's reading thread may be
  /// about to hand it one more message. One that outlives its link may be destroyed freely.
  void Retire(natsSubscription* subscription);

 private:
  struct Watcher;

  NatsLink() = default;
  natsStatus Begin(natsOptions* options);

  natsConnection* connection_ = nullptr;
  std::shared_ptr<NatsLoop> loop_;  // null without an event service
  std::mutex retired_mutex_;
  std::vector<natsSubscription*> retired_;  // unsubscribed, not destroyed yet
  std::shared_ptr<Watcher> watcher_;
};

/// Where the bus is on a device, and its databases.
SocketAddress BusAddress();
SocketAddress KvAddress();

/// Where the servers of an address really are: TARVEX_BUS_ADDRESS ("host:port", several with
/// commas between them: those of one cluster) stands in for 127.0.0.1:6101, TARVEX_KV_ADDRESS
/// for 127.0.0.1:6102. After an error in the log, a malformed value gives none.
std::vector<SocketAddress> EffectiveServers(const SocketAddress& address);

/// The same for people: "host:port", several with commas between them.
std::string EffectiveServersText(const SocketAddress& address);

/// Subject of a service queue or a topic: its name, after TARVEX_SUBJECT_PREFIX and a
/// dot where that is set.
std::string BusSubject(const std::string& name);

/// Bucket of a key-value database: its name, after TARVEX_SUBJECT_PREFIX and an
/// underscore where that is set; what a bucket's name cannot hold of the prefix is '_'.
std::string KvBucket(const std::string& database);

}  // namespace tarvex
