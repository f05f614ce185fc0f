#include "fake_platform.h"

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "cache/kvdb_client.h"
#include "chw_info.h"
#include "json_text.h"
#include "sys_log.h"

#include "tarvex/base64.h"

// The desk platform's own, built under other names for those below.
namespace Json {
bool DeskJson2String(const Json::Value& value, std::string& text);
}  // namespace Json
namespace tarvex {
class DeskBase64 {
 public:
  static std::string Encode(const std::string& data);
  static void EncodeFromArray(const void* data, size_t length, std::string* result);
  static bool DecodeFromArray(const char* data, size_t length, int flags, std::string* result,
                              size_t* data_used);
};
}  // namespace tarvex

namespace fake {
namespace {

std::unique_ptr<Platform>& Slot() {
  static std::unique_ptr<Platform> platform = std::make_unique<Platform>();
  return platform;
}

class Bus : public tarvex::DpClient, public boost::enable_shared_from_this<Bus> {
 public:
  ~Bus() override {
    if (ThePlatform().bus == this) {
      ThePlatform().bus = nullptr;
    }
  }

  int SendRequest(const std::string& type, int flags, const char* data, size_t length,
                  std::string* reply, int timeout_ms) override {
    Platform& platform = ThePlatform();
    if (platform.throw_on_request == type) {
      throw std::runtime_error("thrown by the bus");
    }
    platform.requests.push_back(
        {type, flags, std::string(data, length), timeout_ms, reply->empty()});
    std::deque<BusAnswer>& scripted = platform.scripted_answers[type];
    BusAnswer answer = {0, ""};
    if (platform.camera) {
      answer = platform.camera(platform.requests.back());
    } else if (!scripted.empty()) {
      answer = scripted.front();
      scripted.pop_front();
    } else if (platform.standing_answers.count(type) != 0) {
      answer = platform.standing_answers[type];
    }
    if (!answer.reply.empty()) {
      *reply = answer.reply;
    }
    return answer.result;
  }

  int ListenMessage(const std::string& topic, int /*flags*/) override {
    if (ThePlatform().listen_result == 0) {
      ThePlatform().listened_topics.insert(topic);
    }
    return ThePlatform().listen_result;
  }

  int RemoveListenMessage(const std::string& topic) override {
    if (ThePlatform().throw_on_remove == topic) {
      throw std::runtime_error("thrown by the bus");
    }
    ThePlatform().listened_topics.erase(topic);
    ThePlatform().removed_topics.push_back(topic);
    return 0;
  }
};

class Database : public cache::KvdbClient {
 public:
  explicit Database(std::string name) : name_(std::move(name)) {}

  int GetValue(const std::string& key, std::string* value) override {
    const auto& values = ThePlatform().databases[name_];
    const auto found = values.find(key);
    if (found == values.end()) {
      return 0;
    }
    *value = found->second;
    return 1;
  }

 private:
  std::string name_;
};

class Identity : public ChwInfo {
 public:
  std::string GetAppVer() override { return "V1.2.3"; }
  std::string GetOemSn() override { return "OEM1"; }
};

}  // namespace

Platform& ThePlatform() { return *Slot(); }

void ResetPlatform() { Slot() = std::make_unique<Platform>(); }

void Platform::Deliver(const std::string& topic, const std::string& body) {
  boost::shared_ptr<tarvex::DpClient> client = dynamic_cast<Bus*>(bus)->shared_from_this();
  boost::shared_ptr<tarvex::DpMessage> message(new tarvex::DpMessage{topic, body});
  client->SignalDpMessage(client, message);
}

void EventService::Post(tarvex::MessageHandler* handler, unsigned int id,
                        boost::shared_ptr<tarvex::MessageData> data, bool time_sensitive) {
  pending.push_back({now_ms_, time_sensitive, {handler, id, data}});
}

void EventService::PostDelayed(int delay_ms, tarvex::MessageHandler* handler, unsigned int id,
                               boost::shared_ptr<tarvex::MessageData> data) {
  pending.push_back({now_ms_ + delay_ms, false, {handler, id, data}});
}

void EventService::Clear(tarvex::MessageHandler* handler, unsigned int id,
                         std::list<tarvex::Message>* removed) {
  if (throw_on_clear == id) {
    throw std::runtime_error("thrown by the event service");
  }
  cleared_ids.push_back(id);
  for (auto it = pending.begin(); it != pending.end();) {
    if (it->message.handler == handler && it->message.message_id == id) {
      if (removed != nullptr) {
        removed->push_back(it->message);
      }
      it = pending.erase(it);
    } else {
      ++it;
    }
  }
}

void EventService::Tick(int elapsed_ms) {
  const std::int64_t end_ms = now_ms_ + elapsed_ms;
  for (;;) {
    auto next = pending.end();
    for (auto it = pending.begin(); it != pending.end(); ++it) {
      if (it->due_ms <= end_ms && (next == pending.end() || it->due_ms < next->due_ms)) {
        next = it;
      }
    }
    if (next == pending.end()) {
      break;
    }
    tarvex::Message message = next->message;
    now_ms_ = std::max(now_ms_, next->due_ms);
    pending.erase(next);
    message.handler->OnMessage(&message);
  }
  now_ms_ = end_ms;
}

}  // namespace fake

// The symbols that the plug-in leaves to the process that loads it.

extern "C" void __sys_log(int priority, const char* source, const char* function, int /*line*/,
                          const char* format, ...) {
  const fake::Undisturbed no_log_throws;
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(static_cast<size_t>(length) + 1, '\0');
  va_start(arguments, format);
  vsnprintf(&text[0], text.size(), format, arguments);
  va_end(arguments);
  text.pop_back();
  fake::Platform& platform = fake::ThePlatform();
  platform.logs.push_back({priority, source, function, text});
  if (platform.on_log) {
    platform.on_log(platform.logs.back());
  }
}

boost::shared_ptr<tarvex::DpClient> tarvex::DpClient::CreateDpClient(
    boost::shared_ptr<EventService> /*event_service*/, const SocketAddress& address,
    const std::string& name) {
  fake::Platform& platform = fake::ThePlatform();
  platform.created.push_back("bus " + address.host() + ":" + std::to_string(address.port()) + " " +
                             name);
  if (!platform.has_bus) {
    return nullptr;
  }
  boost::shared_ptr<fake::Bus> client(new fake::Bus);
  platform.bus = client.get();
  return client;
}

boost::shared_ptr<cache::KvdbClient> cache::KvdbClient::CreateKvdbNetClient(
    const std::string& name, const tarvex::SocketAddress& address) {
  fake::Platform& platform = fake::ThePlatform();
  platform.created.push_back("database " + address.host() + ":" + std::to_string(address.port()) +
                             " " + name);
  if (platform.missing_databases.count(name) != 0) {
    return nullptr;
  }
  return boost::shared_ptr<cache::KvdbClient>(new fake::Database(name));
}

ChwInfo* ChwInfo::Interface() {
  static fake::Identity identity;
  return fake::ThePlatform().has_chw_info ? &identity : nullptr;
}

bool Json::Json2String(const Json::Value& value, std::string& text) {
  return !fake::ThePlatform().serialising_fails && DeskJson2String(value, text);
}

std::string tarvex::Base64::Encode(const std::string& data) { return DeskBase64::Encode(data); }

void tarvex::Base64::EncodeFromArray(const void* data, size_t length, std::string* result) {
  DeskBase64::EncodeFromArray(data, length, result);
}

bool tarvex::Base64::DecodeFromArray(const char* data, size_t length, int flags,
                                     std::string* result, size_t* data_used) {
  fake::ThePlatform().decode_flags.push_back(flags);
  return DeskBase64::DecodeFromArray(data, length, flags, result, data_used);
}

std::string hw_sn() { return fake::ThePlatform().sn; }

unsigned long long tarvex::XTimeUtil::TimeSecond() { return fake::ThePlatform().now_s; }

std::string tarvex::XTimeUtil::TimeLocalToString(unsigned long long seconds) {
  return "local " + std::to_string(seconds);
}

void tarvex::XTimeUtil::TimeLocalMake(_TimeS* time, unsigned long long seconds) {
  if (seconds == 0) {
    *time = fake::ThePlatform().local_time;
  }
}
