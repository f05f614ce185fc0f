#include "platform/nats_dp_client.h"

#include <chrono>
#include <climits>
#include <utility>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include "platform/bus_gate.h"
#include "platform/bus_watch.h"
#include "platform/log.h"
#include "platform/nats_names.h"
#include "platform/socket_service.h"

namespace tarvex {
namespace {

constexpr int kAnswered = 1;
constexpr int kNotAnswered = 0;
constexpr int kListening = 0;
constexpr int kNotListening = -1;

/// How long to wait for the server to confirm that it has noted a topic.
constexpr std::int64_t kConfirmation_ms = 500;

void Accept(BusInbox* inbox, const std::shared_ptr<const BusTopic>& topic, natsMsg* message) {
  try {
    inbox->Accept(topic, natsMsg_GetData(message),
                  static_cast<std::size_t>(natsMsg_GetDataLength(message)));
  } catch (const std::exception& error) {
    SYS_LOG(kLogError, "message of %s lost: %s", topic->name.c_str(), error.what());
  }
}

}  // namespace

boost::shared_ptr<DpClient> DpClient::CreateDpClient(boost::shared_ptr<EventService> event_service,
                                                     const SocketAddress& address,
                                                     const std::string& name) {
  if (!event_service) {
    return nullptr;
  }
  auto connection = BusConnection::Of(event_service.get(), address, name);
  if (!connection) {
    return nullptr;
  }
  return boost::make_shared<NatsDpClient>(event_service, std::move(connection));
}

NatsDpClient::NatsDpClient(boost::shared_ptr<EventService> event_service,
                           std::shared_ptr<BusConnection> connection)
    : connection_(std::move(connection)),
      inbox_(std::make_shared<BusInbox>(std::move(event_service), this)) {}

NatsDpClient::~NatsDpClient() {
  inbox_->Close();
  for (auto& [name, listening] : listenings_) {
    listening.topic->listened = false;  // for those that a bus gate holds
    connection_->Unsubscribe(listening.subscription);
  }
}

int NatsDpClient::SendRequest(const std::string& type, int /*flags*/, const char* data,
                              size_t length, std::string* reply, int timeout_ms) {
  const std::string subject = BusSubject(type);
  // A request without time to wait is not sent: whether it would be answered depends on
  // the order in which threads run.
  if (!IsPlainSubject(subject) || length > INT_MAX || timeout_ms <= 0) {
    return kNotAnswered;
  }
  BusRequest request;
  request.queue = type;
  request.body = {data, length};
  request.timeout_ms = timeout_ms;
  if (!connection_->link().IsConnected()) {
    NoteBusRequest(request);
    return kNotAnswered;
  }
  const auto begin = std::chrono::steady_clock::now();
  const natsStatus status = connection_->Request(
      subject, data, static_cast<int>(length), timeout_ms, [&](natsMsg* answer) {
        request.reply.assign(natsMsg_GetData(answer),
                             static_cast<std::size_t>(natsMsg_GetDataLength(answer)));
      });
  request.time = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - begin);
  if (status != NATS_OK) {
    SYS_LOG(kLogDebug, "%s: %s", subject.c_str(), natsStatus_GetText(status));
    if (status == NATS_NO_RESPONDERS) {
      request.outcome = BusOutcome::kNobody;
    } else if (status == NATS_TIMEOUT) {
      request.outcome = BusOutcome::kTimedOut;
    }
    NoteBusRequest(request);
    return kNotAnswered;
  }
  request.outcome = BusOutcome::kAnswered;
  NoteBusRequest(request);
  if (reply != nullptr) {
    *reply = std::move(request.reply);
  }
  return kAnswered;
}

int NatsDpClient::ListenMessage(const std::string& topic, int /*flags*/) {
  const auto found = listenings_.find(topic);
  if (found != listenings_.end() && connection_->IsSubscribed(found->second.subscription)) {
    return kListening;
  }
  if (!IsPlainSubject(BusSubject(topic))) {
    SYS_LOG(kLogError, "not a topic: %s", topic.c_str());
    return kNotListening;
  }
  auto bus_topic = std::make_shared<BusTopic>(topic);
  natsStatus status = NATS_OK;
  const unsigned subscription = connection_->Subscribe(
      topic, "",
      [inbox = inbox_, bus_topic](natsMsg* message) { Accept(inbox.get(), bus_topic, message); },
      &status);
  if (status != NATS_OK) {
    SYS_LOG(kLogError, "cannot listen to %s: %s", topic.c_str(), natsStatus_GetText(status));
    return kNotListening;
  }
  RemoveListenMessage(topic);  // one that has lost its subscription
  listenings_.emplace(topic, Listening{std::move(bus_topic), subscription});
  if (connection_->link().IsConnected()) {
    // From here on the topic's messages arrive, whoever sends them. Without an answer
    // the connection is about to be lost; the next one begins with all topics.
    connection_->link().Flush(kConfirmation_ms);
  }
  return kListening;
}

int NatsDpClient::RemoveListenMessage(const std::string& topic) {
  const auto found = listenings_.find(topic);
  if (found != listenings_.end()) {
    found->second.topic->listened = false;
    connection_->Unsubscribe(found->second.subscription);
    listenings_.erase(found);
  }
  return kListening;
}

void NatsDpClient::OnMessage(Message* msg) {
  const auto arrived = boost::static_pointer_cast<ArrivedMessage>(msg->data);
  const auto topic = arrived->topic();
  if (!topic->listened) {
    return;
  }
  const auto message = arrived->message();
  const boost::weak_ptr<NatsDpClient> weak = weak_from_this();
  auto delivered = std::make_shared<bool>(false);
  PassBusGate(*message, [weak, topic, message, delivered] {
    const auto client = weak.lock();
    if (client && !std::exchange(*delivered, true)) {
      client->Deliver(*topic, message);
    }
  });
}

void NatsDpClient::Deliver(const BusTopic& topic, const boost::shared_ptr<DpMessage>& message) {
  if (topic.listened) {
    SignalDpMessage(shared_from_this(), message);
  }
}

}  // namespace tarvex
