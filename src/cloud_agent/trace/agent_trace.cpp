#include "cloud_agent/trace/agent_trace.h"

#include <utility>

#include <json/writer.h>

namespace agent {
namespace {

constexpr std::size_t kMaxCorrelation_bytes = 128;

Json::Int64 Microseconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

Json::Value MessageJson(const std::string& name, const Sent& sent) {
  Json::Value event(Json::objectValue);
  event["name"] = name;
  event["tag"] = Json::UInt64{sent.tag};
  if (sent.plate_id) {
    event["plate_id"] = *sent.plate_id;
  }
  return event;
}

Json::Value PublicationJson(std::uint64_t publication, const Sent& sent) {
  Json::Value event = MessageJson(sent.topic.substr(sent.topic.rfind('/') + 1), sent);
  event["publication"] = Json::UInt64{publication};
  return event;
}

const char* AnswerText(Answer answer) {
  switch (answer) {
    case Answer::kUnheard:
      return "unheard";
    case Answer::kRefused:
      return "refused";
    case Answer::kTaken:
      break;
  }
  return "taken";
}

}  // namespace

AgentTrace::AgentTrace(tarvex::Trace trace, const std::string& run, std::function<TimePoint()> now)
    : trace_(std::move(trace)), run_(run), now_(std::move(now)) {}

void AgentTrace::Tell(const char* event, Json::Value members, TimePoint at) const {
  trace_.Tell(event, std::move(members), tarvex::TraceClock_us() - Microseconds(now_() - at));
}

void AgentTrace::AddRequest(Json::Value* event) const {
  if (request_) {
    (*event)["request"] = request_->id;
  }
}

void AgentTrace::LinkUp() const {
  Json::Value event;
  event["up"] = true;
  trace_.Tell("link", event);
}

void AgentTrace::LinkDown(const std::string& reason) const {
  Json::Value event;
  event["up"] = false;
  tarvex::AddTracedText(&event, "reason", reason);
  trace_.Tell("link", event);
}

std::function<void()> AgentTrace::HandingOver(const tarvex::DpMessage& message,
                                              std::function<void()> deliver) const {
  return [this, message, deliver = std::move(deliver)] {
    Json::Value event;
    event["topic"] = message.method;
    tarvex::AddTracedBytes(&event, "body", message.body);
    trace_.Tell("handed_over", event);
    deliver();
  };
}

void AgentTrace::Published(std::uint64_t publication, const Sent& sent) const {
  if (sent.tag == 0) {
    return;
  }
  Json::Value event = PublicationJson(publication, sent);
  event["topic"] = sent.topic;
  event["bytes"] = Json::UInt64{sent.bytes};
  AddRequest(&event);
  Tell("published", event, sent.sent_at);
}

void AgentTrace::NotPublished(const std::string& name, const Sent& sent, const char* why) const {
  Json::Value event = MessageJson(name, sent);
  event["why"] = why;
  AddRequest(&event);
  trace_.Tell("not_published", event);
}

void AgentTrace::Acknowledged(std::uint64_t publication, const Sent* sent, Answer answer) const {
  if (sent == nullptr || sent->tag == 0) {
    return;
  }
  Json::Value event = PublicationJson(publication, *sent);
  event["answer"] = AnswerText(answer);
  event["us"] = Microseconds(now_() - sent->sent_at);
  trace_.Tell("acknowledged", event);
}

void AgentTrace::Unconfirmed(std::uint64_t publication, const Sent& sent) const {
  trace_.Tell("unconfirmed", PublicationJson(publication, sent));
}

void AgentTrace::RequestBegins(const InboundRequest& inbound, const std::string& name) {
  const TimePoint now = now_();
  request_ = Turn{run_ + "-" + std::to_string(++requests_), now};
  Json::Value event;
  AddRequest(&event);
  tarvex::AddTracedText(&event, "name", name);
  tarvex::AddTracedText(&event, "topic", inbound.topic);
  tarvex::AddTracedText(&event, "payload", inbound.payload);
  if (inbound.payload.size() < inbound.size) {
    event["cut"] = true;
  }
  event["waited_us"] = Microseconds(now - inbound.received_at);
  if (inbound.has_correlation_data && inbound.correlation_data.size() <= kMaxCorrelation_bytes &&
      tarvex::IsUtf8(inbound.correlation_data)) {
    event["correlation"] = inbound.correlation_data;
  }
  Tell("request", event, now);
}

void AgentTrace::Responded(const OutboundMessage& message) const {
  if (!request_) {
    return;
  }
  Json::Value event;
  AddRequest(&event);
  tarvex::AddTracedText(&event, "topic", message.topic);
  tarvex::AddTracedText(&event, "payload", message.payload);
  event["us"] = Microseconds(now_() - request_->begun_at);
  trace_.Tell("response", event);
}

void AgentTrace::BusRequest(const tarvex::BusRequest& request) const {
  Json::Value event;
  event["queue"] = request.queue;
  tarvex::AddTracedBytes(&event, "body", request.body);
  event["timeout_ms"] = request.timeout_ms;
  event["outcome"] = tarvex::BusOutcomeText(request.outcome);
  event["us"] = Json::Int64{request.time.count()};
  if (request.outcome == tarvex::BusOutcome::kAnswered) {
    tarvex::AddTracedBytes(&event, "reply", request.reply);
  }
  AddRequest(&event);
  trace_.Tell("bus_request", event);
}

void AgentTrace::HandingOverRequest(const std::string& name, const Json::Value& payload,
                                    const std::string& version) const {
  // Byte by byte what was read, also where it is not UTF-8.
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  Json::Value event;
  tarvex::AddTracedText(&event, "name", name);
  tarvex::AddTracedText(&event, "version", version);
  tarvex::AddTracedText(&event, "payload", Json::writeString(builder, payload));
  trace_.Tell("request_handed_over", event);
}

void AgentTrace::Confirming(unsigned long long tag) const {
  Json::Value event;
  event["tag"] = Json::UInt64{tag};
  trace_.Tell("confirmed", event);
}

}  // namespace agent
