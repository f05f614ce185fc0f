#include "virtual_camera/ctl/capture_recorder.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include "capture/capture.h"
#include "json_text.h"
#include "platform/asio_event_service.h"
#include "platform/json_member.h"
#include "platform/kv_bucket.h"
#include "platform/trace.h"
#include "virtual_camera/ctl/desk_server.h"

namespace virtual_camera {

namespace {

using tarvex::Member;

constexpr int64_t kNextMessage_ms = 200;
constexpr int64_t kFlush_ms = 1000;

std::string Data(natsMsg* message) {
  return {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))};
}

void ThrowUnlessQuiet(natsStatus status) {
  if (status == NATS_SLOW_CONSUMER) {
    (void)std::fputs("events are missing: too many came at once\n", stderr);
  } else if (status != NATS_TIMEOUT) {
    throw std::runtime_error(std::string("listening failed: ") + natsStatus_GetText(status));
  }
}

/// Takes members over that have the same names in an event of the trace and in a capture.
Json::Value Copied(const Json::Value& event, std::initializer_list<const char*> names) {
  Json::Value members(Json::objectValue);
  for (const char* name : names) {
    if (event.isMember(name)) {
      members[name] = event[name];
    }
  }
  return members;
}

Json::Value RequestMembers(const Json::Value& event) {
  Json::Value members = Copied(event, {"name", "version", "payload_base64"});
  if (event["payload"].isString()) {
    Json::String2Json(event["payload"].asString(), members["payload"]);
  }
  return members;
}

struct CapturedEvent {
  std::string kind;
  Json::Value members;
  int64_t at_us;
};

/// What an event of the agent's trace is in a capture.
std::optional<CapturedEvent> Captured(const Json::Value& event) {
  const std::string name = event["event"].asString();
  const int64_t at_us = event["at_us"].asInt64();
  if (name == "link") {
    return CapturedEvent{"link", Copied(event, {"up"}), at_us};
  }
  if (name == "handed_over") {
    return CapturedEvent{"message", Copied(event, {"topic", "body"}), at_us};
  }
  if (name == "request_handed_over") {
    return CapturedEvent{"request", RequestMembers(event), at_us};
  }
  if (name == "confirmed") {
    return CapturedEvent{"confirmed", Copied(event, {"tag"}), at_us};
  }
  if (name == "bus_request") {
    return CapturedEvent{"bus_request", Copied(event, {"queue", "body", "reply"}),
                         at_us - event["us"].asInt64()};
  }
  return std::nullopt;
}

bool IsOfAnAgent(const Json::Value& event) {
  return Member(event, "by") == "cloud_agent" && Member(event, "sn").isString() &&
         Member(event, "event").isString() && Member(event, "at_us").isInt64() &&
         (!event.isMember("us") || event["us"].isInt64());
}

}  // namespace

/// One of those that the plug-in reads.
struct CaptureRecorder::Database {
  std::string name;
  natsSubscription* subscription = nullptr;  // null until the database is there

  /// Has the last value of every key come, and every change after that.
  void Subscribe(natsConnection* connection) {
    natsStatus status = NATS_OK;
    const tarvex::NatsJetStream jet_stream = tarvex::OpenJetStream(connection, &status);
    subscription =
        tarvex::SubscribeToBucket(jet_stream.get(), tarvex::KvBucket(name), &status).release();
  }
};

CaptureRecorder::CaptureRecorder(const std::string& path)
    : path_(path),
      start_us_(tarvex::TraceClock_us()),
      clock_scale_(tarvex::ClockScaleFromEnvironment()),
      bus_(Connected(kBusServer)),
      key_values_(Connected(kDatabaseServer)) {
  file_.open(path, std::ios::binary | std::ios::trunc);
  if (!file_) {
    throw std::runtime_error(path + ": " + std::strerror(errno));
  }
  natsConnection_SubscribeSync(&trace_, bus_->get(),
                               tarvex::BusSubject(tarvex::kTraceTopic).c_str());
  if (trace_ == nullptr) {
    throw std::runtime_error("the bus does not let camera_ctl listen");
  }
  natsConnection_FlushTimeout(bus_->get(), kFlush_ms);
  databases_.push_back({"skvdb"});
  databases_.push_back({"usr_data_kvdb"});
  (void)std::fprintf(stderr, "capturing to %s\n", path.c_str());
}

CaptureRecorder::~CaptureRecorder() {
  bus_->Retire(trace_);
  for (const Database& database : databases_) {
    key_values_->Retire(database.subscription);
  }
}

int64_t CaptureRecorder::Run(int64_t seconds, const std::function<bool()>& is_to_stop) {
  const int64_t end_us = seconds > 0 ? start_us_ + seconds * 1000000 : INT64_MAX;
  while (!is_to_stop() && tarvex::TraceClock_us() < end_us) {
    Look();
  }
  Look();  // what has happened until now is told a little later
  if (sn_.empty()) {
    throw std::runtime_error("no agent on " + NameOf(kBusServer) +
                             " has told anything; is there one, with --trace?");
  }
  return written_;
}

void CaptureRecorder::Look() {
  for (Database& database : databases_) {
    TakeChanges(&database);
  }
  TakeTrace();
}

void CaptureRecorder::TakeTrace() {
  for (int64_t patience_ms = kNextMessage_ms;; patience_ms = 0) {
    natsMsg* received = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&received, trace_, patience_ms);
    const tarvex::NatsMessage message(received);
    if (status != NATS_OK) {
      ThrowUnlessQuiet(status);
      return;
    }
    Json::Value event;
    if (Json::String2Json(Data(received), event) && IsOfAnAgent(event)) {
      OnTrace(event);
    }
  }
}

void CaptureRecorder::TakeChanges(Database* database) {
  if (database->subscription == nullptr) {
    database->Subscribe(key_values_->get());
  }
  while (database->subscription != nullptr) {
    natsMsg* received = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&received, database->subscription, 1);
    const tarvex::NatsMessage message(received);
    if (status != NATS_OK) {
      ThrowUnlessQuiet(status);
      return;
    }
    jsMsgMetaData* read = nullptr;
    natsMsg_GetMetaData(&read, received);
    const tarvex::NatsMetaData meta_data(read);
    const char* operation = nullptr;  // of a removal only
    Json::Value members;
    members["database"] = database->name;
    members["key"] = std::string(natsMsg_GetSubject(received))
                         .substr(tarvex::KvSubjectPrefix(tarvex::KvBucket(database->name)).size());
    if (natsMsgHeader_Get(received, "KV-Operation", &operation) != NATS_OK) {
      members["value"] = capture::Encoded(Data(received));
    }
    const int64_t at_us = read != nullptr ? read->Timestamp / 1000 : tarvex::TraceClock_us();
    Write(capture::EventLine("database", Offset_us(at_us), members));
  }
}

void CaptureRecorder::OnTrace(const Json::Value& event) {
  if (sn_.empty()) {
    sn_ = event["sn"].asString();
    file_ << capture::HeaderLine({"camera_ctl", sn_, start_us_}) << '\n';
    for (const std::string& line : std::exchange(waiting_, {})) {
      Write(line);
    }
  }
  const std::optional<CapturedEvent> captured = Captured(event);
  if (event["sn"] != sn_ || !captured) {
    return;
  }
  if (event.isMember("cut")) {
    (void)std::fprintf(stderr, "left out, too long for the trace: %s\n",
                       event["event"].asCString());
    return;
  }
  Write(capture::EventLine(captured->kind, Offset_us(captured->at_us), captured->members));
}

/// As the device has it, where delayed messages come sooner than there.
int64_t CaptureRecorder::Offset_us(int64_t at_us) const {
  return std::llround(static_cast<double>(std::max<int64_t>(at_us - start_us_, 0)) * clock_scale_);
}

void CaptureRecorder::Write(const std::string& line) {
  if (sn_.empty()) {
    waiting_.push_back(line);
    return;
  }
  // One line at a time: Ctrl-C leaves no part of one.
  file_ << line << std::endl;
  if (!file_) {
    throw std::runtime_error(path_ + ": " + std::strerror(errno));
  }
  ++written_;
}

}  // namespace virtual_camera
