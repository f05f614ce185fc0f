#include "cloud_agent/mqtt_link_core.h"

#include <mosquitto.h>

#include <random>
#include <utility>

#include "platform/log.h"

namespace agent {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kLoop_ms = 1000;
// A connection that lived as long as this was a good one.
constexpr seconds kStable{5};
constexpr seconds kGoodbye{1};
constexpr seconds kStopPatience{3};

std::uint32_t RandomBelow(std::uint32_t limit) {
  static std::mt19937 generator(std::random_device{}());
  return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(generator);
}

}  // namespace

MqttLinkCore::MqttLinkCore(
    MqttLink::Options options, std::function<void(std::function<void()>)> post,
    std::function<std::vector<OutboundMessage>(const InboundRequest&)> turn_away)
    : options_(std::move(options)),
      post_(std::move(post)),
      turn_away_(std::move(turn_away)),
      backoff_(options_.backoff_min_ms, options_.backoff_max_ms, RandomBelow),
      ledger_(options_.max_unacknowledged) {}

void MqttLinkCore::Run() {
  while (!IsStopping()) {
    std::string reason;
    try {
      reason = RunConnection();
    } catch (const std::exception& failure) {
      reason = failure.what();
    }
    attempt_ = nullptr;
    EndConnection(reason);
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  is_finished_ = true;
  changed_.notify_all();
}

std::string MqttLinkCore::RunConnection() {
  MqttConnection connection(options_.broker, this);
  attempt_ = &connection;
  // Nobody publishes on it any more before it is destroyed.
  struct Retreat {
    MqttLinkCore* core;
    ~Retreat() {
      const std::lock_guard<std::mutex> lock(core->mutex_);
      core->connection_ = nullptr;
    }
  } const retreat{this};

  const std::string error = connection.Open();
  if (!error.empty()) {
    return error;
  }
  Clock::time_point next_look = Clock::now();
  while (connection.Loop(kLoop_ms)) {
    if (IsStopping()) {
      SayGoodbye(&connection);
      return "stopped";
    }
    // Not after every packet: there may be many debts.
    if (Clock::now() < next_look) {
      continue;
    }
    next_look = Clock::now() + milliseconds(kLoop_ms);
    if (IsAckOverdue()) {
      return "no acknowledgement of a message in " + std::to_string(options_.ack_timeout_s) + " s";
    }
  }
  return connection.LastError();
}

void MqttLinkCore::SayGoodbye(MqttConnection* connection) {
  const Clock::time_point deadline = Clock::now() + kGoodbye;
  const auto owes_acknowledgements = [this] {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connection_ != nullptr && !ledger_.IsEmpty();
  };
  while (owes_acknowledgements() && Clock::now() < deadline && connection->Loop(50)) {
  }
  connection->Disconnect();
  while (Clock::now() < deadline && connection->Loop(50)) {
  }
}

void MqttLinkCore::EndConnection(const std::string& reason) {
  bool was_up = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (is_stopping_) {
      return;
    }
    was_up = ready_at_ != Clock::time_point{};
    if (was_up && Clock::now() - ready_at_ >= kStable) {
      backoff_.Reset();
    }
    ready_at_ = {};
    ledger_.Clear();
  }
  if (was_up) {
    PostToListener([this, reason](LinkListener* listener) {
      announced_ = 0;
      listener->OnLinkDown(reason);
    });
  }
  const int delay_ms = backoff_.NextDelay_ms();
  SYS_LOG(kLogWarning, "%s %s:%d: %s; next attempt in %d ms", was_up ? "lost" : "no connection to",
          options_.broker.host.c_str(), options_.broker.port, reason.c_str(), delay_ms);
  WaitBeforeNextAttempt(delay_ms);
}

void MqttLinkCore::WaitBeforeNextAttempt(int delay_ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, milliseconds(delay_ms), [this] { return is_stopping_; });
}

void MqttLinkCore::OnReady() {
  std::uint64_t number = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    connection_ = attempt_;
    number = ++connection_number_;
    ready_at_ = Clock::now();
  }
  SYS_LOG(kLogInfo, "connected to %s:%d as %s", options_.broker.host.c_str(), options_.broker.port,
          options_.broker.client_id.c_str());
  PostToListener([this, number](LinkListener* listener) {
    announced_ = number;
    listener->OnLinkUp();
  });
}

void MqttLinkCore::OnPuback(int message_id, int reason_code) {
  std::uint64_t publication = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    publication = ledger_.Take(message_id).value_or(0);
  }
  if (publication != 0) {
    PostToListener([publication, reason_code](LinkListener* listener) {
      listener->OnAcknowledged(publication, reason_code);
    });
  }
}

void MqttLinkCore::OnRequestArrived(InboundRequest request) {
  bool is_too_much = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_too_much = requests_waiting_ >= options_.max_requests_waiting;
    ++(is_too_much ? turned_away_ : requests_waiting_);
  }
  if (is_too_much) {
    for (const OutboundMessage& message : turn_away_(request)) {
      Send(message);
    }
    return;
  }
  auto shared = std::make_shared<const InboundRequest>(std::move(request));
  PostToListener([this, shared](LinkListener* listener) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      --requests_waiting_;
    }
    listener->OnRequest(*shared);
  });
}

Publication MqttLinkCore::Publish(const OutboundMessage& message) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Publication publication;
  // Until the event thread has heard of a connection it would take an acknowledgement
  // on it for one of the connection before.
  if (announced_ != connection_number_) {
    return publication;
  }
  if (!ledger_.HasRoomForPublication()) {
    publication.result = PublishResult::kBacklogFull;
    return publication;
  }
  publication.result = SendLocked(message, last_publication_ + 1);
  if (publication.result == PublishResult::kAccepted) {
    publication.id = ++last_publication_;
  }
  return publication;
}

PublishResult MqttLinkCore::Send(const OutboundMessage& message) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return SendLocked(message, 0);
}

PublishResult MqttLinkCore::SendLocked(const OutboundMessage& message, std::uint64_t publication) {
  if (connection_ == nullptr) {
    return PublishResult::kLinkDown;
  }
  const std::size_t message_bytes = message.topic.size() + message.payload.size();
  if (!ledger_.HasRoom(message_bytes)) {
    return PublishResult::kBacklogFull;
  }
  int message_id = 0;
  const int error = connection_->Publish(message, &message_id);
  if (error == MOSQ_ERR_NO_CONN || error == MOSQ_ERR_CONN_LOST) {
    return PublishResult::kLinkDown;
  }
  if (error != MOSQ_ERR_SUCCESS) {
    SYS_LOG(kLogError, "%s cannot be published: %s", message.topic.substr(0, 200).c_str(),
            mosquitto_strerror(error));
    return PublishResult::kRefused;
  }
  ledger_.Add(message_id, publication, message_bytes, Clock::now());
  return PublishResult::kAccepted;
}

bool MqttLinkCore::IsAckOverdue() {
  const Clock::time_point limit = Clock::now() - seconds(options_.ack_timeout_s);
  const std::lock_guard<std::mutex> lock(mutex_);
  return ledger_.HasOneSentBefore(limit);
}

bool MqttLinkCore::IsStopping() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_stopping_;
}

std::uint64_t MqttLinkCore::TurnedAway() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return turned_away_;
}

// Once Stop() has begun the event service may go, so nothing is posted under the lock
// any more; and the listener may go, so what was posted before is dropped.
void MqttLinkCore::PostToListener(std::function<void(LinkListener*)> call) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!is_stopping_) {
    post_([self = shared_from_this(), call = std::move(call)] {
      if (!self->IsStopping()) {
        call(self->listener_);
      }
    });
  }
}

void MqttLinkCore::RequestStop(const OutboundMessage& last) {
  const std::lock_guard<std::mutex> lock(mutex_);
  is_stopping_ = true;
  if (!last.topic.empty()) {
    SendLocked(last, 0);  // wakes the network thread as well
  }
  changed_.notify_all();
}

bool MqttLinkCore::WaitUntilFinished() {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, kStopPatience, [this] { return is_finished_; });
}

}  // namespace agent
