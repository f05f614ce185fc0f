#include "platform/bus_connection.h"

#include <mutex>
#include <utility>
#include <vector>

#include "platform/log.h"
#include "platform/nats_names.h"
#include "platform/socket_service.h"

namespace tarvex {

std::shared_ptr<BusConnection> BusConnection::Of(EventService* service,
                                                 const SocketAddress& address,
                                                 const std::string& client_name,
                                                 const NatsLink::OnState& on_state) {
  auto* const sockets = dynamic_cast<SocketService*>(service);
  const auto connect = [address, client_name, on_state, sockets] {
    return NatsLink::Connect(address, client_name, {on_state, sockets, false});
  };
  const auto connection = [&connect]() -> std::shared_ptr<BusConnection> {
    auto link = connect();
    return link ? std::make_shared<BusConnection>(connect, std::move(link)) : nullptr;
  };
  if (sockets == nullptr) {
    return connection();
  }
  static std::mutex mutex;
  static std::map<std::pair<SocketService*, std::string>, std::weak_ptr<BusConnection>> shared;
  const std::lock_guard<std::mutex> lock(mutex);
  std::weak_ptr<BusConnection>& known = shared[{sockets, EffectiveServersText(address)}];
  auto present = known.lock();
  if (!present) {
    present = connection();
    known = present;
  }
  return present;
}

BusConnection::BusConnection(Connect connect, std::shared_ptr<NatsLink> link)
    : connect_(std::move(connect)), link_(std::move(link)) {}

BusConnection::~BusConnection() {
  link_.reset();  // before the subscriptions, see NatsLink::Retire
}

natsStatus BusConnection::Request(const std::string& subject, const char* data, int length,
                                  std::int64_t timeout_ms, const Taker& take) {
  const natsStatus status = link_->Request(subject, data, length, timeout_ms, take);
  if (status == NATS_OK || link_->IsConnected()) {
    return status;
  }
  TakeAnotherLink();
  return NATS_CONNECTION_DISCONNECTED;
}

/// A subscription that the new one refuses is left without.
void BusConnection::TakeAnotherLink() {
  auto fresh = connect_();
  if (!fresh) {
    return;
  }
  link_.swap(fresh);
  std::vector<NatsSubscription> ended;
  for (auto& [number, subscription] : subscriptions_) {
    natsStatus status = NATS_OK;
    auto again = link_->Subscribe(BusSubject(subscription.name), subscription.queue,
                                  subscription.take, &status);
    if (status != NATS_OK) {
      SYS_LOG(kLogError, "cannot listen to %s: %s", subscription.name.c_str(),
              natsStatus_GetText(status));
    }
    ended.push_back(std::exchange(subscription.of_link, std::move(again)));
  }
  fresh.reset();  // before the subscriptions, see NatsLink::Retire
}

unsigned BusConnection::Subscribe(const std::string& name, const std::string& queue, Taker take,
                                  natsStatus* status) {
  auto of_link = link_->Subscribe(BusSubject(name), queue, take, status);
  if (*status != NATS_OK) {
    return 0;
  }
  ++last_subscription_;
  subscriptions_.emplace(last_subscription_,
                         Subscription{name, queue, std::move(take), std::move(of_link)});
  return last_subscription_;
}

void BusConnection::Unsubscribe(unsigned subscription) {
  const auto found = subscriptions_.find(subscription);
  if (found != subscriptions_.end()) {
    if (found->second.of_link) {
      link_->Retire(found->second.of_link.release());
    }
    subscriptions_.erase(found);
  }
}

bool BusConnection::IsSubscribed(unsigned subscription) const {
  const auto found = subscriptions_.find(subscription);
  return found != subscriptions_.end() && found->second.of_link;
}

}  // namespace tarvex
