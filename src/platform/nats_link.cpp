#include "platform/nats_link.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <iterator>
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
  OnState on_state;
  std::atomic<unsigned> connections{0};

  void Announce(bool connected) {
    if (connected) {
      ++connections;
    }
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

/// The clients of a cluster begin with any of its servers, so that each has its share.
natsStatus SetServers(natsOptions* options, std::vector<SocketAddress> servers) {
  std::shuffle(servers.begin(), servers.end(), std::minstd_rand(std::random_device{}()));
  std::vector<std::string> places;
  std::transform(servers.begin(), servers.end(), std::back_inserter(places),
                 [](const SocketAddress& server) { return "nats://" + ServerText(server); });
  std::vector<const char*> urls;
  std::transform(places.begin(), places.end(), std::back_inserter(urls),
                 [](const std::string& place) { return place.c_str(); });
  urls.push_back(kNowhere);
  const natsStatus status = natsOptions_SetNoRandomize(options, true);
  return status == NATS_OK
             ? natsOptions_SetServers(options, urls.data(), static_cast<int>(urls.size()))
             : status;
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
                                            const std::string& client_name, Options options) {
  if (!IsUsablePrefix()) {
    return nullptr;
  }
  if (!IsUsableAddress(address)) {
    SYS_LOG(kLogError, "%s: no usable server address", client_name.c_str());
    return nullptr;
  }
  const std::vector<SocketAddress> servers = EffectiveServers(address);
  if (servers.empty()) {
    return nullptr;  // EffectiveServers has said why
  }
  std::shared_ptr<NatsLink> link(new NatsLink);
  link->watcher_ = std::make_shared<Watcher>();
  link->watcher_->title = client_name + " at " + EffectiveServersText(address);
  link->watcher_->on_state = std::move(options.on_state);
  if (options.service != nullptr) {
    link->loop_ = std::make_shared<NatsLoop>(*options.service);
    link->watcher_->loop = link->loop_;
  }
  natsOptions* created = nullptr;
  FirstFailure check;
  check(natsOptions_Create(&created));
  const NatsOptions of_library(created);
  check(SetServers(created, servers));
  check(natsOptions_SetName(created, client_name.c_str()));
  check(SetBehaviour(created));
  check(natsOptions_UseOldRequestStyle(created, options.has_few_requests));
  if (check.status() == NATS_OK) {
    check(link->Begin(created));
  }
  if (link->connection_ == nullptr) {
    SYS_LOG(kLogError, "%s: %s", link->watcher_->title.c_str(), natsStatus_GetText(check.status()));
    return nullptr;
  }
  SYS_LOG(kLogInfo, "%s: %s", link->watcher_->title.c_str(),
          check.status() == NATS_OK ? "connected" : "not there yet, waiting for it");
  return link;
}

natsStatus NatsLink::Begin(natsOptions* options) {
  auto closure = std::make_unique<std::shared_ptr<Watcher>>(watcher_);
  FirstFailure check;
  check(natsOptions_SetRetryOnFailedConnect(options, true, Watcher::OnConnected, closure.get()));
  check(natsOptions_SetReconnectedCB(options, Watcher::OnConnected, closure.get()));
  check(natsOptions_SetDisconnectedCB(options, Watcher::OnDisconnected, closure.get()));
  check(natsOptions_SetClosedCB(options, Watcher::OnClosed, closure.get()));
  if (loop_) {
    check(loop_->Configure(options));
  }
  if (check.status() == NATS_OK) {
    check(natsConnection_Connect(&connection_, options));
  }
  if (connection_ == nullptr) {
    return check.status();
  }
  (void)closure.release();  // OnClosed deletes it
  if (loop_) {
    loop_->Begin(connection_);
  }
  return check.status();
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

natsStatus NatsLink::PublishSoon(const std::string& subject, const std::string& body) {
  return natsConnection_Publish(connection_, subject.c_str(), body.data(),
                                static_cast<int>(body.size()));
}

std::size_t NatsLink::Unwritten() const {
  const int bytes = natsConnection_Buffered(connection_);
  return bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
}

natsStatus NatsLink::Publish(const std::string& subject, const std::string& body) {
  const natsStatus status = PublishSoon(subject, body);
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

unsigned NatsLink::connections() const { return watcher_->connections; }

bool NatsLink::IsConnected() const {
  return natsConnection_Status(connection_) == NATS_CONN_STATUS_CONNECTED;
}

}  // namespace tarvex
