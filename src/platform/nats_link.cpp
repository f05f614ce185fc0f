#include "platform/nats_link.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <random>
#include <utility>

#include "platform/log.h"
#include "platform/nats_loop.h"
#include "platform/nats_names.h"

namespace tarvex {

/// What the library's callbacks need. The library holds a share of it until it has
/// called back for the last time, which may be after the link's own end.
struct NatsLink::Watcher {
  std::string title;  // for the log
  std::shared_ptr<NatsLoop> loop;
  std::mutex mutex;  // held during on_state
  bool wanted = true;
  std::function<void(bool connected)> on_state;

  void Announce(bool connected) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!wanted) {
      return;
    }
    SYS_LOG(connected ? kLogInfo : kLogWarning, "%s: %s", title.c_str(),
            connected ? "connected" : "connection lost");
    if (on_state) {
      on_state(connected);
    }
  }

  void NoteEnd() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (wanted) {
      SYS_LOG(kLogError, "%s: given up by the library", title.c_str());
    }
  }

  // The library's side; `closure` is a std::shared_ptr<Watcher>*.
  static Watcher& Of(void* closure) { return **static_cast<std::shared_ptr<Watcher>*>(closure); }
  static void OnConnected(natsConnection*, void* closure) { Of(closure).Announce(true); }
  static void OnDisconnected(natsConnection*, void* closure) { Of(closure).Announce(false); }
  static void OnClosed(natsConnection*, void* closure) {
    Of(closure).NoteEnd();
    delete static_cast<std::shared_ptr<Watcher>*>(closure);
  }
};

namespace {

constexpr std::int64_t kConnectTimeout_ms = 1000;
constexpr std::int64_t kWriteDeadline_ms = 1000;
constexpr std::int64_t kFlushTimeout_ms = 500;
constexpr std::size_t kMostRetired = 16;         // more only while the server is away
constexpr std::int64_t kPingInterval_ms = 1000;  // a frozen server is noticed after three
constexpr int kUnansweredPings = 2;
constexpr int kForEver = -1;
constexpr int kReconnectBuffer_bytes = 1;  // the least; full with one message of any size

/// Waits between attempts to reconnect: 20 ms at first, doubling to 1 s, of which half
/// is chance, so that the clients of a server that comes back do not all come at once.
std::int64_t ReconnectDelay_ms(natsConnection*, int attempts, void*) {
  thread_local std::minstd_rand random{std::random_device{}()};
  const std::int64_t longest_ms = std::min<std::int64_t>(1000, 20LL << std::clamp(attempts, 0, 6));
  return std::uniform_int_distribution<std::int64_t>(longest_ms / 2, longest_ms)(random);
}

void OnError(natsConnection*, natsSubscription*, natsStatus status, void*) {
  SYS_LOG(kLogWarning, "NATS: %s", natsStatus_GetText(status));
}

/// After a server that closes the connection before its first greeting, and was the last
/// one tried, the library gives up instead of trying again. So a place that no connection
/// can be made to is always tried last; that takes no time.
constexpr const char* kNowhere = "nats://255.255.255.255:1";

/// "HOST:PORT", with an IPv6 address in brackets.
std::string Place(const SocketAddress& server) {
  const std::string& host = server.host();
  const bool is_bare_ipv6 = host.find(':') != std::string::npos && host.front() != '[';
  return (is_bare_ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(server.port());
}

natsStatus SetServer(natsOptions* options, const std::string& place) {
  const std::string url = "nats://" + place;
  std::array<const char*, 2> urls = {url.c_str(), kNowhere};
  const natsStatus status = natsOptions_SetNoRandomize(options, true);
  return status == NATS_OK ? natsOptions_SetServers(options, urls.data(), urls.size()) : status;
}

/// Remembers the first failure of a row of calls.
class FirstFailure {
 public:
  void operator()(natsStatus status) { status_ = status_ == NATS_OK ? status : status_; }
  natsStatus status() const { return status_; }

 private:
  natsStatus status_ = NATS_OK;
};

natsStatus SetBehaviour(natsOptions* options) {
  FirstFailure check;
  check(natsOptions_SetSendAsap(options, true));
  check(natsOptions_SetMaxReconnect(options, kForEver));
  check(natsOptions_SetCustomReconnectDelay(options, ReconnectDelay_ms, nullptr));
  check(natsOptions_SetFailRequestsOnDisconnect(options, true));
  check(natsOptions_SetReconnectBufSize(options, kReconnectBuffer_bytes));
  check(natsOptions_SetIgnoreDiscoveredServers(options, true));
  check(natsOptions_SetTimeout(options, kConnectTimeout_ms));
  check(natsOptions_SetWriteDeadline(options, kWriteDeadline_ms));
  check(natsOptions_SetPingInterval(options, kPingInterval_ms));
  check(natsOptions_SetMaxPingsOut(options, kUnansweredPings));
  check(natsOptions_SetErrorHandler(options, OnError, nullptr));
  return check.status();
}

/// What the library keeps for a subscription, until it has called back for the last time.
struct Taking {
  std::function<void(natsMsg*)> take;

  static void OnMessage(natsConnection*, natsSubscription*, natsMsg* received, void* closure) {
    const NatsMessage message(received);
    static_cast<const Taking*>(closure)->take(received);
  }
  static void OnComplete(void* closure) { delete static_cast<Taking*>(closure); }
};

}  // namespace

std::shared_ptr<NatsLink> NatsLink::Connect(const SocketAddress& address,
                                            const std::string& client_name,
                                            std::function<void(bool connected)> on_state,
                                            SocketService* service) {
  const SocketAddress server = EffectiveAddress(address);
  if (!IsUsablePrefix()) {
    return nullptr;
  }
  if (!IsUsableAddress(address)) {
    SYS_LOG(kLogError, "%s: no usable server address", client_name.c_str());
    return nullptr;
  }
  if (!IsUsableAddress(server)) {
    return nullptr;  // EffectiveAddress has said why
  }
  const std::string place = Place(server);
  std::shared_ptr<NatsLink> link(new NatsLink);
  link->watcher_ = std::make_shared<Watcher>();
  link->watcher_->title = client_name + " at " + place;
  link->watcher_->on_state = std::move(on_state);
  if (service != nullptr) {
    link->loop_ = std::make_shared<NatsLoop>(*service);
    link->watcher_->loop = link->loop_;
  }
  auto closure = std::make_unique<std::shared_ptr<Watcher>>(link->watcher_);

  natsOptions* created = nullptr;
  FirstFailure check;
  check(natsOptions_Create(&created));
  const NatsOptions options(created);
  check(SetServer(created, place));
  check(natsOptions_SetName(created, client_name.c_str()));
  check(SetBehaviour(created));
  check(natsOptions_SetRetryOnFailedConnect(created, true, Watcher::OnConnected, closure.get()));
  check(natsOptions_SetReconnectedCB(created, Watcher::OnConnected, closure.get()));
  check(natsOptions_SetDisconnectedCB(created, Watcher::OnDisconnected, closure.get()));
  check(natsOptions_SetClosedCB(created, Watcher::OnClosed, closure.get()));
  if (link->loop_) {
    check(link->loop_->Configure(created));
  }
  if (check.status() == NATS_OK) {
    check(natsConnection_Connect(&link->connection_, created));
  }
  if (link->connection_ == nullptr) {
    SYS_LOG(kLogError, "%s: %s", link->watcher_->title.c_str(), natsStatus_GetText(check.status()));
    return nullptr;
  }
  (void)closure.release();  // OnClosed deletes it
  if (link->loop_) {
    link->loop_->Begin(link->connection_);
  }
  SYS_LOG(kLogInfo, "%s: %s", link->watcher_->title.c_str(),
          check.status() == NATS_OK ? "connected" : "not there yet, waiting for it");
  return link;
}

void NatsLink::Close() {
  {
    const std::lock_guard<std::mutex> lock(watcher_->mutex);
    watcher_->wanted = false;
  }
  natsConnection_Close(connection_);
}

NatsLink::~NatsLink() {
  if (connection_ == nullptr) {
    return;
  }
  Close();  // ends the reading thread
  if (loop_) {
    loop_->End();
  }
  std::for_each(retired_.begin(), retired_.end(), natsSubscription_Destroy);
  natsConnection_Destroy(connection_);
}

natsStatus NatsLink::Publish(const std::string& subject, const std::string& body) {
  const natsStatus status = natsConnection_Publish(connection_, subject.c_str(), body.data(),
                                                   static_cast<int>(body.size()));
  if (loop_) {
    loop_->Write();
  }
  return status;
}

natsStatus NatsLink::Request(const std::string& subject, const char* data, int length,
                             std::int64_t timeout_ms,
                             const std::function<void(natsMsg* answer)>& take) {
  if (loop_) {
    return loop_->Request(subject.c_str(), data, length, timeout_ms, take);
  }
  natsMsg* received = nullptr;
  const natsStatus status =
      natsConnection_Request(&received, connection_, subject.c_str(), data, length, timeout_ms);
  const NatsMessage answer(received);
  if (status == NATS_OK) {
    take(received);
  }
  return status;
}

natsStatus NatsLink::Flush(std::int64_t timeout_ms) {
  return loop_ ? loop_->Flush(timeout_ms) : natsConnection_FlushTimeout(connection_, timeout_ms);
}

NatsSubscription NatsLink::Subscribe(const std::string& subject, const std::string& queue,
                                     std::function<void(natsMsg* message)> take,
                                     natsStatus* status) {
  natsSubscription* created = nullptr;
  const char* queue_group = queue.empty() ? nullptr : queue.c_str();
  if (loop_) {
    *status = loop_->Subscribe(&created, subject.c_str(), queue_group, std::move(take));
    return NatsSubscription(created);
  }
  auto taking = std::make_unique<Taking>(Taking{std::move(take)});
  *status = queue.empty()
                ? natsConnection_Subscribe(&created, connection_, subject.c_str(),
                                           Taking::OnMessage, taking.get())
                : natsConnection_QueueSubscribe(&created, connection_, subject.c_str(), queue_group,
                                                Taking::OnMessage, taking.get());
  NatsSubscription subscription(created);
  if (*status == NATS_OK) {
    *status = natsSubscription_SetOnCompleteCB(created, Taking::OnComplete, taking.get());
    // From here on it may be in use by the library.
    (void)taking.release();  // OnComplete deletes it
  }
  if (*status != NATS_OK) {
    subscription.reset();
  }
  return subscription;
}

void NatsLink::Retire(natsSubscription* subscription) {
  if (loop_) {
    loop_->Unsubscribe(subscription);
    return;
  }
  natsSubscription_Unsubscribe(subscription);
  const std::lock_guard<std::mutex> lock(retired_mutex_);
  retired_.push_back(subscription);
  // Once an answer has come through the reading thread, that thread has done with
  // whatever came before.
  if (retired_.size() >= kMostRetired && IsConnected() &&
      natsConnection_FlushTimeout(connection_, kFlushTimeout_ms) == NATS_OK) {
    std::for_each(retired_.begin(), retired_.end(), natsSubscription_Destroy);
    retired_.clear();
  }
}

bool NatsLink::IsConnected() const {
  return natsConnection_Status(connection_) == NATS_CONN_STATUS_CONNECTED;
}

}  // namespace tarvex
