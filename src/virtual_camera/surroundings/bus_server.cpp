#include "virtual_camera/surroundings/bus_server.h"

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "platform/log.h"
#include "platform/nats_handle.h"

namespace virtual_camera {

namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr int kPort = 6101;
constexpr int kMaxWaiting = 1000;
constexpr int64_t kFlush_ms = 1000;

}  // namespace

// Hands messages from the library's threads to the camera's. Closed before the event
// service is destroyed, because a callback of the library may come later than that.
struct BusServer::Mailbox {
  explicit Mailbox(tarvex::AsioEventService& service) : event_service(&service) {}

  void Post(bool may_be_dropped, std::function<void()> task) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (event_service == nullptr || (may_be_dropped && waiting >= kMaxWaiting)) {
      ++dropped;
      return;
    }
    ++waiting;
    event_service->PostTask([this, task = std::move(task)] {
      --waiting;
      task();
    });
  }

  std::mutex mutex;
  tarvex::AsioEventService* event_service;
  std::atomic<int> waiting{0};
  std::atomic<int64_t> dropped{0};
};

// What a subscription's callback knows. Deleted by the library's completion callback,
// after which no other callback of the subscription runs.
struct BusServer::Route {
  std::shared_ptr<Mailbox> mailbox;
  std::weak_ptr<tarvex::NatsLink> link;
  std::shared_ptr<Handler> handler;
  bool is_queue;
};

BusServer::BusServer(tarvex::AsioEventService& event_service, std::function<void(bool)> on_state)
    : mailbox_(std::make_shared<Mailbox>(event_service)) {
  const auto announce = [&event_service, on_state](bool connected) {
    event_service.PostTask([on_state, connected] { on_state(connected); });
  };
  link_ =
      tarvex::NatsLink::Connect(tarvex::SocketAddress(kHost, kPort), "virtual_camera", announce);
  if (!link_) {
    throw std::runtime_error("there can be no connection to the bus");
  }
  if (link_->IsConnected()) {
    announce(true);
  }
}

BusServer::~BusServer() {
  {
    const std::lock_guard<std::mutex> lock(mailbox_->mutex);
    mailbox_->event_service = nullptr;
  }
  for (const auto& route : routes_) {
    link_->Retire(route.second);
  }
}

int64_t BusServer::dropped() const { return mailbox_->dropped; }

void BusServer::Serve(const std::string& queue, Handler handler) {
  Subscribe(queue, true, std::move(handler));
}

void BusServer::Listen(const std::string& topic, Handler handler) {
  Subscribe(topic, false, std::move(handler));
}

void BusServer::Subscribe(const std::string& name, bool is_queue, Handler handler) {
  StopServing(name);
  auto route = std::make_unique<Route>(
      Route{mailbox_, link_, std::make_shared<Handler>(std::move(handler)), is_queue});
  const std::string subject = tarvex::BusSubject(name);
  natsSubscription* subscription = nullptr;
  natsStatus status =
      is_queue ? natsConnection_QueueSubscribe(&subscription, link_->get(), subject.c_str(),
                                               name.c_str(), OnMessage, route.get())
               : natsConnection_Subscribe(&subscription, link_->get(), subject.c_str(), OnMessage,
                                          route.get());
  if (status == NATS_OK) {
    status = natsSubscription_SetOnCompleteCB(subscription, OnRouteEnds, route.get());
  }
  // From here on the route may be in use by the library.
  Route* const kept = route.release();
  if (status != NATS_OK) {
    SYS_LOG(kLogError, "\"%s\" cannot be heard: %s", name.c_str(), natsStatus_GetText(status));
    natsSubscription_Destroy(subscription);
    if (subscription == nullptr) {
      delete kept;
    }
    return;
  }
  routes_[name] = subscription;
}

void BusServer::StopServing(const std::string& queue) {
  const auto found = routes_.find(queue);
  if (found != routes_.end()) {
    link_->Retire(found->second);
    routes_.erase(found);
  }
}

BusServer::Asked BusServer::Ask(const std::string& topic, const std::string& question,
                                int64_t timeout_ms) {
  natsMsg* raw_answer = nullptr;
  const natsStatus status = natsConnection_RequestString(
      &raw_answer, link_->get(), tarvex::BusSubject(topic).c_str(), question.c_str(), timeout_ms);
  const tarvex::NatsMessage owner(raw_answer);
  switch (status) {
    case NATS_OK:
      return Asked::kAnswered;
    case NATS_NO_RESPONDERS:
      return Asked::kNobodyListens;
    case NATS_TIMEOUT:
      return Asked::kNoAnswer;
    default:
      return Asked::kNotSent;
  }
}

bool BusServer::Flush() { return natsConnection_FlushTimeout(link_->get(), kFlush_ms) == NATS_OK; }

bool BusServer::Announce(const std::string& topic, const std::string& body) {
  return IsConnected() &&
         natsConnection_Publish(link_->get(), tarvex::BusSubject(topic).c_str(), body.data(),
                                static_cast<int>(body.size())) == NATS_OK;
}

void BusServer::OnMessage(natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
  const tarvex::NatsMessage owner(message);
  const Route& route = *static_cast<Route*>(closure);
  const char* reply_to = natsMsg_GetReply(message);
  if (reply_to == nullptr && route.is_queue) {
    return;  // nobody waits for an answer: not a request
  }
  const char* data = natsMsg_GetData(message);
  const auto length = static_cast<size_t>(natsMsg_GetDataLength(message));
  std::string request = length > 0 ? std::string(data, length) : std::string();
  Reply reply;
  if (reply_to != nullptr) {
    reply = [link = route.link, subject = std::string(reply_to)](const std::string& answer) {
      if (const auto connected = link.lock()) {
        natsConnection_Publish(connected->get(), subject.c_str(), answer.data(),
                               static_cast<int>(answer.size()));
      }
    };
  }
  route.mailbox->Post(route.is_queue, [handler = route.handler, request = std::move(request),
                                       reply = std::move(reply)] { (*handler)(request, reply); });
}

void BusServer::OnRouteEnds(void* closure) { delete static_cast<Route*>(closure); }

}  // namespace virtual_camera
