#include "platform/trace.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "json_text.h"
#include "platform/json_member.h"
#include "platform/log.h"
#include "platform/nats_link.h"
#include "tarvex/base64.h"

namespace tarvex {
namespace {

constexpr std::size_t kMostWaiting_bytes = std::size_t{16} << 20U;
constexpr std::int64_t kLastFlush_ms = 500;
// Events of so long are published together: the thread's waking is most of what one costs.
constexpr std::chrono::milliseconds kCollecting{10};

/// Publishing writes to the socket, and so waits where the bus reads slowly: hence the thread.
class BusPublisher {
 public:
  explicit BusPublisher(std::shared_ptr<NatsLink> link)
      : link_(std::move(link)), subject_(BusSubject(kTraceTopic)), thread_([this] { Run(); }) {}

  ~BusPublisher() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      is_ending_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }

  BusPublisher(const BusPublisher&) = delete;
  BusPublisher& operator=(const BusPublisher&) = delete;

  void Add(std::string text) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (waiting_bytes_ + text.size() > kMostWaiting_bytes) {
        if (!std::exchange(is_dropping_, true)) {
          SYS_LOG(kLogWarning, "events of the trace are dropped: the bus is too slow");
        }
        return;
      }
      is_dropping_ = is_dropping_ && waiting_bytes_ > 0;
      waiting_bytes_ += text.size();
      waiting_.push_back(std::move(text));
      if (waiting_.size() > 1) {
        return;  // the thread is about to take them
      }
    }
    changed_.notify_one();
  }

 private:
  void Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
      changed_.wait(lock, [this] { return is_ending_ || !waiting_.empty(); });
      if (waiting_.empty()) {
        break;
      }
      changed_.wait_for(lock, kCollecting, [this] { return is_ending_; });
      const std::vector<std::string> taken = std::exchange(waiting_, {});
      lock.unlock();
      std::for_each(taken.begin(), taken.end(), [this](const auto& text) { Publish(text); });
      lock.lock();
    }
    if (link_->IsConnected()) {
      natsConnection_FlushTimeout(link_->get(), kLastFlush_ms);
    }
  }

  void Publish(const std::string& text) {
    if (link_->IsConnected()) {
      natsConnection_Publish(link_->get(), subject_.c_str(), text.data(),
                             static_cast<int>(text.size()));
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    waiting_bytes_ -= text.size();
  }

  const std::shared_ptr<NatsLink> link_;
  const std::string subject_;
  std::mutex mutex_;  // guards the next five
  std::condition_variable changed_;
  std::vector<std::string> waiting_;
  std::size_t waiting_bytes_ = 0;  // also of those that are being published
  bool is_dropping_ = false;
  bool is_ending_ = false;
  std::thread thread_;  // the last: it uses all of the above
};

/// Cut to what is told; a text not within a character.
std::string_view Cut(std::string_view whole, bool is_text, Json::Value* event) {
  if (whole.size() <= kMaxTraced_bytes) {
    return whole;
  }
  (*event)["cut"] = true;
  std::size_t length = kMaxTraced_bytes;
  while (is_text && length > 0 && (static_cast<unsigned char>(whole[length]) & 0xC0U) == 0x80U) {
    --length;
  }
  return whole.substr(0, length);
}

}  // namespace

std::int64_t TraceClock_us() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

void AddTracedText(Json::Value* event, const std::string& key, std::string_view text) {
  const std::string_view told = Cut(text, true, event);
  if (IsUtf8(told)) {
    (*event)[key] = std::string(told);
  } else {
    AddTracedBytes(event, key + "_base64", text);
  }
}

void AddTracedBytes(Json::Value* event, const std::string& key, std::string_view bytes) {
  const std::string_view told = Cut(bytes, false, event);
  std::string encoded;
  Base64::EncodeFromArray(told.data(), told.size(), &encoded);
  (*event)[key] = encoded;
}

std::string TracedBytes(const Json::Value& event, const char* key) {
  const Json::Value& value = Member(event, key);
  const std::string text = value.isString() ? value.asString() : "";
  std::string bytes;
  Base64::DecodeFromArray(text.data(), text.size(),
                          Base64::kParseStrict | Base64::kPaddingRequired | Base64::kEndAtBuffer,
                          &bytes, nullptr);
  return bytes;
}

Trace::Trace(const std::string& by, const std::string& sn, Sink sink)
    : by_(by), sn_(sn), sink_(std::move(sink)) {}

void Trace::Tell(const char* event, Json::Value members, std::int64_t at_us) const {
  members["by"] = by_;
  members["sn"] = sn_;
  members["at_us"] = Json::Int64{at_us};
  members["event"] = event;
  std::string text;
  if (Json::Json2String(members, text)) {
    sink_(std::move(text));
  }
}

void Trace::Tell(const char* event, Json::Value members) const {
  Tell(event, std::move(members), TraceClock_us());
}

Trace::Sink BusTraceSink(const std::string& client_name) {
  auto link = NatsLink::Connect(BusAddress(), client_name);
  if (!link) {
    return [](const std::string&) {};
  }
  const auto publisher = std::make_shared<BusPublisher>(std::move(link));
  return [publisher](std::string text) { publisher->Add(std::move(text)); };
}

}  // namespace tarvex
