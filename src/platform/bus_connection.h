// The connection to the bus that a process shares.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/nats_link.h"

namespace tarvex {

class EventService;

/// Used on the thread of its event service where that reads sockets. It survives a request
/// that failed because the connection was lost: another link takes its place then, with all
/// subscriptions. For the library keeps what it could not send, and sends it with the next
/// connection, and a request that has failed must not reach its service an outage later: no
/// gate is to open then. So it goes down with its link.
class BusConnection {
 public:
  using Connect = std::function<std::shared_ptr<NatsLink>()>;
  using Taker = std::function<void(natsMsg* message)>;

  /// Of an event service that reads sockets there is one for each bus, which all share that ask
  /// for it; where another one is given, or none, each has its own.
  /// @param client_name of whoever is first: how the connection calls itself on the server.
  /// @param on_state    of whoever is first; as NatsLink's.
  /// @return null, after an error in the log, when there can be no such connection.
  static std::shared_ptr<BusConnection> Of(EventService* service, const SocketAddress& address,
                                           const std::string& client_name,
                                           const NatsLink::OnState& on_state = {});

  /// @param connect makes a link.
  /// @param link    the first one that it made.
  BusConnection(Connect connect, std::shared_ptr<NatsLink> link);
  ~BusConnection();

  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  /// The present one, for what needs no subscription of it.
  NatsLink& link() const { return *link_; }

  /// As NatsLink's. What was not answered because the connection was lost is
  /// NATS_CONNECTION_DISCONNECTED.
  natsStatus Request(const std::string& subject, const char* data, int length,
                     std::int64_t timeout_ms, const Taker& take);

  /// As NatsLink's, but for as long as this lives, or until Unsubscribe().
  /// @param name of a service queue or a topic, see BusSubject().
  /// @param take stays until the link that it was given to has gone.
  /// @return what to unsubscribe with; 0, with the reason in `status`, where that cannot be.
  unsigned Subscribe(const std::string& name, const std::string& queue, Taker take,
                     natsStatus* status);
  void Unsubscribe(unsigned subscription);

  /// Whether it is still there: the link that took another's place may have refused it.
  bool IsSubscribed(unsigned subscription) const;

 private:
  struct Subscription {
    std::string name;
    std::string queue;
    Taker take;
    NatsSubscription of_link;
  };

  void TakeAnotherLink();

  const Connect connect_;
  std::shared_ptr<NatsLink> link_;
  std::map<unsigned, Subscription> subscriptions_;
  unsigned last_subscription_ = 0;
};

}  // namespace tarvex
