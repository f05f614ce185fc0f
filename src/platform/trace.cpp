#include "platform/trace.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include "json_text.h"
#include "platform/bus_connection.h"
#include "platform/json_member.h"
#include "platform/log.h"
#include "platform/socket_service.h"
#include "tarvex/base64.h"

namespace tarvex {
namespace {

constexpr std::size_t kMostUnwritten_bytes = std::size_t{16} << 20U;
constexpr std::int64_t kLastFlush_ms = 500;

class BusPublisher {
 public:
  explicit BusPublisher(std::shared_ptr<BusConnection> connection)
      : connection_(std::move(connection)), subject_(BusSubject(kTraceTopic)) {}

  ~BusPublisher() {
    if (connection_->link().IsConnected()) {
      connection_->link().Flush(kLastFlush_ms);
    }
  }

  BusPublisher(const BusPublisher&) = delete;
  BusPublisher& operator=(const BusPublisher&) = delete;

  void Publish(const std::string& text) {
    NatsLink& link = connection_->link();
    if (!link.IsConnected()) {
      return;
    }
    const std::size_t unwritten = link.Unwritten();
    if (unwritten + text.size() > kMostUnwritten_bytes) {
      if (!std::exchange(is_dropping_, true)) {
        SYS_LOG(kLogWarning, "events of the trace are dropped: the bus is too slow");
      }
      return;
    }
    is_dropping_ = is_dropping_ && unwritten > 0;
    link.PublishSoon(subject_, text);
  }

 private:
  const std::shared_ptr<BusConnection> connection_;
  const std::string subject_;
  bool is_dropping_ = false;
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

Trace::Sink BusTraceSink(SocketService* service, const std::string& client_name) {
  auto connection = BusConnection::Of(service, BusAddress(), client_name);
  if (!connection) {
    return [](const std::string&) {};
  }
  const auto publisher = std::make_shared<BusPublisher>(std::move(connection));
  return [publisher](const std::string& text) { publisher->Publish(text); };
}

}  // namespace tarvex
