#include "cloud_agent/mqtt_link.h"

#include <mosquitto.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <random>
#include <utility>

#include "cloud_agent/backoff.h"
#include "cloud_agent/log.h"

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
// Responses are sent although the plug-in's messages have used up their share.
constexpr std::size_t kRoomForResponses = 1024;

std::uint32_t RandomBelow(std::uint32_t limit) {
  static std::mt19937 generator(std::random_device{}());
  return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(generator);
}

}  // namespace

// Everything that the network thread touches. The mutex guards what stands below it;
// it is held while the library publishes, so that an acknowledgement never overtakes
// the note of what it is for.
class MqttLink::Core : public std::enable_shared_from_this<Core>, private MqttConnectionEvents {
 public:
  Core(Options options, std::function<void(std::function<void()>)> post,
       std::function<std::vector<OutboundMessage>(const InboundRequest&)> turn_away)
      : options_(std::move(options)),
        post_(std::move(post)),
        turn_away_(std::move(turn_away)),
        backoff_(options_.backoff_min_ms, options_.backoff_max_ms, RandomBelow) {}

  void SetListener(LinkListener* listener) { listener_ = listener; }
  void Run();
  Publication Publish(const OutboundMessage& message);
  PublishResult Send(const OutboundMessage& message);
  std::uint64_t TurnedAway();
  void RequestStop(const OutboundMessage& last);
  bool WaitUntilFinished();

 private:
  struct Unacknowledged {
    std::uint64_t publication;  // 0: nobody waits for it
    Clock::time_point sent_at;
  };

  void OnReady() override;
  void OnPuback(int message_id, int reason_code) override;
  void OnRequestArrived(InboundRequest request) override;

  std::string RunConnection();
  void SayGoodbye(MqttConnection* connection);
  bool IsStopping();
  bool IsAckOverdue();
  void EndConnection(const std::string& reason);
  void WaitBeforeNextAttempt(int delay_ms);
  PublishResult SendLocked(const OutboundMessage& message, std::uint64_t publication);
  void PostToListener(std::function<void(LinkListener*)> call);

  const Options options_;
  const std::function<void(std::function<void()>)> post_;
  const std::function<std::vector<OutboundMessage>(const InboundRequest&)> turn_away_;
  Backoff backoff_;                    // network thread only
  MqttConnection* attempt_ = nullptr;  // network thread only
  LinkListener* listener_ = nullptr;   // set before the network thread starts
  std::uint64_t announced_ = 0;        // event thread only: the connection it knows of

  std::mutex mutex_;
  std::condition_variable changed_;
  MqttConnection* connection_ = nullptr;  // while it stands
  std::uint64_t connection_number_ = 0;
  Clock::time_point ready_at_;
  std::map<int, Unacknowledged> unacknowledged_;  // by the library's message id
  std::uint64_t last_publication_ = 0;
  std::size_t requests_waiting_ = 0;
  std::uint64_t turned_away_ = 0;
  bool is_stopping_ = false;
  bool is_finished_ = false;
};

void MqttLink::Core::Run() {
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

std::string MqttLink::Core::RunConnection() {
  MqttConnection connection(options_.broker, this);
  attempt_ = &connection;
  // Nobody publishes on it any more before it is destroyed.
  struct Retreat {
    Core* core;
    ~Retreat() {
      const std::lock_guard<std::mutex> lock(core->mutex_);
      core->connection_ = nullptr;
    }
  } const retreat{this};

  const std::string error = connection.Open();
  if (!error.empty()) {
    return error;
  }
  while (connection.Loop(kLoop_ms)) {
    if (IsStopping()) {
      SayGoodbye(&connection);
      return "stopped";
    }
    if (IsAckOverdue()) {
      return "no acknowledgement of a message in " + std::to_string(options_.ack_timeout_s) + " s";
    }
  }
  return connection.LastError();
}

void MqttLink::Core::SayGoodbye(MqttConnection* connection) {
  const Clock::time_point deadline = Clock::now() + kGoodbye;
  const auto owes_acknowledgements = [this] {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connection_ != nullptr && !unacknowledged_.empty();
  };
  while (owes_acknowledgements() && Clock::now() < deadline && connection->Loop(50)) {
  }
  connection->Disconnect();
  while (Clock::now() < deadline && connection->Loop(50)) {
  }
}

void MqttLink::Core::EndConnection(const std::string& reason) {
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
    unacknowledged_.clear();
  }
  if (was_up) {
    PostToListener([this, reason](LinkListener* listener) {
      announced_ = 0;
      listener->OnLinkDown(reason);
    });
  }
  const int delay_ms = backoff_.NextDelay_ms();
  AGENT_LOG(4, "%s %s:%d: %s; next attempt in %d ms", was_up ? "lost" : "no connection to",
            options_.broker.host.c_str(), options_.broker.port, reason.c_str(), delay_ms);
  WaitBeforeNextAttempt(delay_ms);
}

void MqttLink::Core::WaitBeforeNextAttempt(int delay_ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, milliseconds(delay_ms), [this] { return is_stopping_; });
}

void MqttLink::Core::OnReady() {
  std::uint64_t number = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    connection_ = attempt_;
    number = ++connection_number_;
    ready_at_ = Clock::now();
  }
  AGENT_LOG(6, "connected to %s:%d as %s", options_.broker.host.c_str(), options_.broker.port,
            options_.broker.client_id.c_str());
  PostToListener([this, number](LinkListener* listener) {
    announced_ = number;
    listener->OnLinkUp();
  });
}

void MqttLink::Core::OnPuback(int message_id, int reason_code) {
  std::uint64_t publication = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = unacknowledged_.find(message_id);
    if (found == unacknowledged_.end()) {
      return;
    }
    publication = found->second.publication;
    unacknowledged_.erase(found);
  }
  if (publication != 0) {
    PostToListener([publication, reason_code](LinkListener* listener) {
      listener->OnAcknowledged(publication, reason_code);
    });
  }
}

void MqttLink::Core::OnRequestArrived(InboundRequest request) {
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

Publication MqttLink::Core::Publish(const OutboundMessage& message) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Publication publication;
  // Until the event thread has heard of a connection it would take an acknowledgement
  // on it for one of the connection before.
  if (announced_ != connection_number_) {
    return publication;
  }
  if (unacknowledged_.size() >= options_.max_unacknowledged) {
    publication.result = PublishResult::kBacklogFull;
    return publication;
  }
  publication.result = SendLocked(message, last_publication_ + 1);
  if (publication.result == PublishResult::kAccepted) {
    publication.id = ++last_publication_;
  }
  return publication;
}

PublishResult MqttLink::Core::Send(const OutboundMessage& message) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (unacknowledged_.size() >= options_.max_unacknowledged + kRoomForResponses) {
    return PublishResult::kBacklogFull;
  }
  return SendLocked(message, 0);
}

PublishResult MqttLink::Core::SendLocked(const OutboundMessage& message,
                                         std::uint64_t publication) {
  if (connection_ == nullptr) {
    return PublishResult::kLinkDown;
  }
  int message_id = 0;
  const int error = connection_->Publish(message, &message_id);
  if (error == MOSQ_ERR_NO_CONN || error == MOSQ_ERR_CONN_LOST) {
    return PublishResult::kLinkDown;
  }
  if (error != MOSQ_ERR_SUCCESS) {
    AGENT_LOG(3, "%s cannot be published: %s", message.topic.substr(0, 200).c_str(),
              mosquitto_strerror(error));
    return PublishResult::kRefused;
  }
  unacknowledged_[message_id] = {publication, Clock::now()};
  return PublishResult::kAccepted;
}

bool MqttLink::Core::IsAckOverdue() {
  const Clock::time_point limit = Clock::now() - seconds(options_.ack_timeout_s);
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::any_of(unacknowledged_.begin(), unacknowledged_.end(),
                     [limit](const auto& entry) { return entry.second.sent_at < limit; });
}

bool MqttLink::Core::IsStopping() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_stopping_;
}

std::uint64_t MqttLink::Core::TurnedAway() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return turned_away_;
}

// Once Stop() has begun the event service may go, so nothing is posted under the lock
// any more; and the listener may go, so what was posted before is dropped.
void MqttLink::Core::PostToListener(std::function<void(LinkListener*)> call) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!is_stopping_) {
    post_([self = shared_from_this(), call = std::move(call)] {
      if (!self->IsStopping()) {
        call(self->listener_);
      }
    });
  }
}

void MqttLink::Core::RequestStop(const OutboundMessage& last) {
  const std::lock_guard<std::mutex> lock(mutex_);
  is_stopping_ = true;
  if (!last.topic.empty()) {
    SendLocked(last, 0);  // wakes the network thread as well
  }
  changed_.notify_all();
}

bool MqttLink::Core::WaitUntilFinished() {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, kStopPatience, [this] { return is_finished_; });
}

MqttLink::MqttLink(Options options, std::function<void(std::function<void()>)> post,
                   std::function<std::vector<OutboundMessage>(const InboundRequest&)> turn_away)
    : core_(std::make_shared<Core>(std::move(options), std::move(post), std::move(turn_away))) {}

MqttLink::~MqttLink() {
  if (thread_.joinable()) {
    MqttLink::Stop({});
  }
}

void MqttLink::Start(LinkListener* listener) {
  core_->SetListener(listener);
  thread_ = std::thread([core = core_] { core->Run(); });
}

Publication MqttLink::Publish(const OutboundMessage& message) { return core_->Publish(message); }

PublishResult MqttLink::Send(const OutboundMessage& message) { return core_->Send(message); }

std::uint64_t MqttLink::TurnedAwayRequests() const { return core_->TurnedAway(); }

void MqttLink::Stop(const OutboundMessage& last) {
  if (!thread_.joinable()) {
    return;
  }
  core_->RequestStop(last);
  if (core_->WaitUntilFinished()) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

}  // namespace agent
