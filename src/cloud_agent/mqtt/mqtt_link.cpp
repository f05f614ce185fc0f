#include "cloud_agent/mqtt/mqtt_link.h"

#include <mosquitto.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <utility>

#include "platform/log.h"

namespace agent {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kLoop_ms = 1000;
constexpr milliseconds kLook{1000};
constexpr int kLastLoop_ms = 50;
constexpr seconds kLastPatience{1};
constexpr seconds kStopPatience{3};

// Responses that are sent at once; the broker that acknowledges none gets no more.
constexpr std::size_t kMaxOwn = 4096;

// Message ids have 16 bits.
constexpr unsigned kMessageIdBits = 16;

std::uint32_t RandomBelow(std::uint32_t limit) {
  static std::mt19937 generator(std::random_device{}());
  return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(generator);
}

std::uint64_t PublicationId(std::uint64_t connection_number, int message_id) {
  return connection_number << kMessageIdBits | static_cast<std::uint64_t>(message_id);
}

}  // namespace

MqttLink::MqttLink(Options options, boost::asio::io_context& context,
                   std::function<void(std::function<void()>)> post, RequestTaker take_request)
    : options_(std::move(options)),
      context_(context),
      post_(std::move(post)),
      take_request_(std::move(take_request)),
      turns_(options_.broker.addresses, options_.broker.version),
      ends_(options_.broker.client_id, milliseconds(options_.backoff_max_ms)),
      backoff_(options_.backoff_min_ms, options_.backoff_max_ms, RandomBelow) {}

MqttLink::~MqttLink() {
  if (thread_.joinable() && !MqttLink::Stop({})) {
    thread_.join();
  }
}

void MqttLink::Start(LinkListener* listener) {
  listener_ = listener;
  thread_ = std::thread([this] { Run(); });
}

Publication MqttLink::Publish(const OutboundMessage& message) {
  if (connection_ == nullptr) {
    return {};
  }
  int message_id = 0;
  const int error = connection_->Publish(message, &message_id);
  if (error == MOSQ_ERR_NO_CONN) {
    return {};
  }
  const bool is_being_lost =
      error == MOSQ_ERR_CONN_LOST || error == MOSQ_ERR_ERRNO || error == MOSQ_ERR_TLS;
  if (is_being_lost) {
    Look();
  } else if (error != MOSQ_ERR_SUCCESS) {
    SYS_LOG(kLogError, "%s cannot be published: %s", message.topic.substr(0, 200).c_str(),
            mosquitto_strerror(error));
    return {PublishResult::kRefused, 0};
  }
  AwaitWriting();
  return {PublishResult::kAccepted, PublicationId(connection_number_, message_id)};
}

void MqttLink::Drop(const std::string& reason) {
  if (connection_ == nullptr) {
    return;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  drop_reason_ = reason;
  changed_.notify_all();
}

/// Has the network thread look at the connection, which may be over.
void MqttLink::Look() {
  const std::lock_guard<std::mutex> lock(mutex_);
  is_to_look_ = true;
  changed_.notify_all();
}

void MqttLink::AwaitReading() {
  socket_->async_wait(Socket::wait_read,
                      [this, socket = socket_](const boost::system::error_code& error) {
                        if (!error && socket == socket_ && Read()) {
                          AwaitReading();
                        }
                      });
}

/// @return false when the connection is over; the network thread tells of it.
bool MqttLink::Read() {
  if (!connection_->Read()) {
    Look();
    return false;
  }
  AwaitWriting();
  return true;
}

void MqttLink::AwaitWriting() {
  if (awaits_writing_ || !connection_->WantsToWrite()) {
    return;
  }
  awaits_writing_ = true;
  socket_->async_wait(Socket::wait_write,
                      [this, socket = socket_](const boost::system::error_code& error) {
                        if (!error && socket == socket_) {
                          awaits_writing_ = false;
                          Read();
                        }
                      });
}

bool MqttLink::Stop(const OutboundMessage& last) {
  is_stopped_ = true;
  if (!thread_.joinable()) {
    return true;
  }
  {
    // Its acknowledgement is not to be read before it is awaited.
    const auto reading =
        connection_ != nullptr ? connection_->Hold() : std::unique_lock<std::recursive_mutex>();
    int message_id = 0;
    const bool is_sent = connection_ != nullptr && !last.topic.empty() &&
                         connection_->Publish(last, &message_id) == MOSQ_ERR_SUCCESS;
    const std::lock_guard<std::mutex> lock(mutex_);
    is_stopping_ = true;
    if (is_sent) {
      last_message_id_ = message_id;
    }
    changed_.notify_all();
  }
  {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!changed_.wait_for(lock, kStopPatience, [this] { return is_finished_; })) {
      return false;
    }
  }
  thread_.join();
  socket_.reset();
  connection_.reset();
  return true;
}

void MqttLink::Run() {
  while (!IsStopping()) {
    RunConnection();
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  is_finished_ = true;
  changed_.notify_all();
}

void MqttLink::RunConnection() {
  const std::uint64_t number = ++last_connection_number_;
  std::shared_ptr<MqttConnection> connection;
  ConnectionEnd end;
  own_.clear();
  was_ready_ = false;
  try {
    MqttConnection::Handlers handlers;
    handlers.on_ready = [&](int subscription_code) { OnReady(connection, subscription_code); };
    handlers.on_puback = [this, number](int message_id, int reason_code) {
      OnPuback(number, message_id, reason_code);
    };
    handlers.on_request = [&](InboundRequest request) {
      OnRequest(connection.get(), std::move(request));
    };
    connection =
        std::make_shared<MqttConnection>(options_.broker, turns_.Present(), std::move(handlers));
    end.reason = Drive(connection.get());
  } catch (const std::exception& failure) {
    end.reason = failure.what();
  }
  VersionFinding finding = VersionFinding::kNothing;
  if (connection != nullptr) {
    connection->EndReading();
    finding = connection->Finding();
    end.was_taken_over = connection->WasTakenOver();
    end.denied_topic = connection->DeniedTopic();
  }
  if (IsStopping()) {
    return;
  }
  end.was_ready = was_ready_;
  if (was_ready_) {
    end.stood = Clock::now() - ready_at_;
    PostToListener([this, reason = end.reason] {
      socket_.reset();
      connection_.reset();
      listener_->OnLinkDown(reason);
    });
  }
  connection.reset();  // closes the socket, unless the event thread is about to
  AwaitNext(end, finding);
}

/// Says how a connection ended and what follows, and waits until that is due.
void MqttLink::AwaitNext(const ConnectionEnd& end, VersionFinding finding) {
  const std::string address = turns_.Present().address.Text();
  const std::string reason = ends_.Add(end);
  if (ends_.WasGood()) {
    backoff_.Reset();
  }
  const BrokerTurns::Next next = turns_.OnEnd(finding, end.was_ready);
  const int delay_ms = next.is_at_once ? 0 : backoff_.NextDelay_ms();
  const std::string delay =
      next.is_at_once ? "" : "; next attempt in " + std::to_string(delay_ms) + " ms";
  SYS_LOG(kLogWarning, "%s %s: %s%s%s%s", end.was_ready ? "lost" : "no connection to",
          address.c_str(), reason.c_str(), next.text.empty() ? "" : "; ", next.text.c_str(),
          delay.c_str());
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, milliseconds(delay_ms), [this] { return is_stopping_; });
}

std::string MqttLink::Drive(MqttConnection* connection) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    drop_reason_.clear();
  }
  const std::string error = connection->Open();
  if (!error.empty()) {
    return error;
  }
  while (connection->Loop(was_ready_ ? 0 : kLoop_ms)) {
    std::string drop_reason;
    if (AwaitWork(&drop_reason)) {
      Finish(connection);
      return "stopped";
    }
    if (!drop_reason.empty()) {
      return drop_reason;
    }
  }
  return connection->LastError();
}

/// Waits until it is time to look at a connection that the event thread reads.
/// @return whether the link is to stop.
bool MqttLink::AwaitWork(std::string* drop_reason) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (was_ready_) {
    changed_.wait_for(lock, kLook,
                      [this] { return is_stopping_ || is_to_look_ || !drop_reason_.empty(); });
  }
  is_to_look_ = false;
  *drop_reason = drop_reason_;
  return is_stopping_;
}

void MqttLink::Finish(MqttConnection* connection) {
  const Clock::time_point deadline = Clock::now() + kLastPatience;
  const auto is_unacknowledged = [this] {
    const std::lock_guard<std::mutex> lock(mutex_);
    return last_message_id_.has_value();
  };
  while (is_unacknowledged() && Clock::now() < deadline && connection->Loop(kLastLoop_ms)) {
  }
  connection->Disconnect();
  while (Clock::now() < deadline && connection->Loop(kLastLoop_ms)) {
  }
}

void MqttLink::OnReady(const std::shared_ptr<MqttConnection>& connection, int subscription_code) {
  was_ready_ = true;
  ready_at_ = Clock::now();
  const BrokerTurns::Attempt attempt = turns_.Present();
  SYS_LOG(kLogInfo, "connected to %s as %s, with %s", attempt.address.Text().c_str(),
          options_.broker.client_id.c_str(), VersionText(attempt.version));
  // A descriptor of its own: the library may close its one while the event thread waits.
  const auto socket = std::make_shared<Socket>(context_, dup(connection->Socket()));
  PostToListener([this, connection, socket, number = last_connection_number_, subscription_code] {
    connection_ = connection;
    connection_number_ = number;
    socket_ = socket;
    awaits_writing_ = false;
    AwaitReading();
    listener_->OnLinkUp(subscription_code);
  });
}

void MqttLink::OnPuback(std::uint64_t connection_number, int message_id, int reason_code) {
  if (own_.erase(message_id) != 0) {
    return;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (last_message_id_ == message_id) {
      last_message_id_.reset();
    }
  }
  PostToListener([this, publication = PublicationId(connection_number, message_id), reason_code] {
    listener_->OnAcknowledged(publication, reason_code);
  });
}

void MqttLink::OnRequest(MqttConnection* connection, InboundRequest request) {
  for (const OutboundMessage& message : take_request_(std::move(request))) {
    int message_id = 0;
    if (own_.size() < kMaxOwn && connection->Publish(message, &message_id) == MOSQ_ERR_SUCCESS) {
      own_.insert(message_id);
    }
  }
}

bool MqttLink::IsStopping() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_stopping_;
}

// Nothing is posted any more once Stop() has begun: the event service may go.
void MqttLink::PostToListener(std::function<void()> task) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!is_stopping_) {
    post_([this, task = std::move(task)] {
      if (!is_stopped_) {
        task();
      }
    });
  }
}

}  // namespace agent
