#include "virtual_camera/surroundings/bus_server.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "platform/log.h"

namespace virtual_camera {

namespace {

constexpr int kMaxWaiting = 1000;
constexpr int64_t kFlush_ms = 1000;

}  // namespace

// What waits for its turn on the camera's thread. Shared with the tasks that wait.
struct BusServer::Mailbox {
  int waiting = 0;
  int64_t dropped = 0;
};

BusServer::BusServer(tarvex::AsioEventService& event_service, std::function<void(bool)> on_state)
    : event_service_(event_service), mailbox_(std::make_shared<Mailbox>()) {
  const auto announce = [&event_service, on_state](bool connected) {
    event_service.PostTask([on_state, connected] { on_state(connected); });
  };
  connection_ =
      tarvex::BusConnection::Of(&event_service, tarvex::BusAddress(), "virtual_camera", announce);
  if (!connection_) {
    throw std::runtime_error("there can be no connection to the bus");
  }
  if (IsConnected()) {
    announce(true);
  }
}

BusServer::~BusServer() {
  for (const auto& [name, subscription] : routes_) {
    connection_->Unsubscribe(subscription);
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
  natsStatus status = NATS_OK;
  const unsigned subscription = connection_->Subscribe(
      name, is_queue ? name : "",
      [this, is_queue, shared = std::make_shared<Handler>(std::move(handler))](natsMsg* message) {
        Accept(message, is_queue, shared);
      },
      &status);
  if (status != NATS_OK) {
    SYS_LOG(kLogError, "\"%s\" cannot be heard: %s", name.c_str(), natsStatus_GetText(status));
    return;
  }
  routes_[name] = subscription;
}

void BusServer::StopServing(const std::string& queue) {
  const auto found = routes_.find(queue);
  if (found != routes_.end()) {
    connection_->Unsubscribe(found->second);
    routes_.erase(found);
  }
}

BusServer::Asked BusServer::Ask(const std::string& topic, const std::string& question,
                                int64_t timeout_ms) {
  const natsStatus status =
      connection_->link().Request(tarvex::BusSubject(topic), question.data(),
                                  static_cast<int>(question.size()), timeout_ms, [](natsMsg*) {});
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

bool BusServer::Flush() { return connection_->link().Flush(kFlush_ms) == NATS_OK; }

bool BusServer::Announce(const std::string& topic, const std::string& body) {
  return IsConnected() && connection_->link().Publish(tarvex::BusSubject(topic), body) == NATS_OK;
}

void BusServer::Accept(natsMsg* message, bool is_queue,
                       const std::shared_ptr<Handler>& handler) try {
  const char* reply_to = natsMsg_GetReply(message);
  if (reply_to == nullptr && is_queue) {
    return;  // nobody waits for an answer: not a request
  }
  if (is_queue && mailbox_->waiting >= kMaxWaiting) {
    ++mailbox_->dropped;
    return;
  }
  const char* data = natsMsg_GetData(message);
  const auto length = static_cast<size_t>(natsMsg_GetDataLength(message));
  std::string request = length > 0 ? std::string(data, length) : std::string();
  Reply reply;
  if (reply_to != nullptr) {
    reply = [to = std::weak_ptr(connection_), subject = std::string(reply_to)](const auto& answer) {
      if (const auto connection = to.lock()) {
        connection->link().Publish(subject, answer);
      }
    };
  }
  ++mailbox_->waiting;
  event_service_.PostTask(
      [mailbox = mailbox_, handler, request = std::move(request), reply = std::move(reply)] {
        --mailbox->waiting;
        (*handler)(request, reply);
      });
} catch (const std::exception& error) {
  SYS_LOG(kLogError, "message of %s lost: %s", natsMsg_GetSubject(message), error.what());
}

}  // namespace virtual_camera
