#include "cloud_agent/requests/request_runner.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "json_text.h"
#include "platform/json_member.h"
#include "platform/log.h"

namespace agent {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using tarvex::BusOutcome;
using tarvex::BusRequest;

constexpr char kVersion[] = "1.0";

Json::Value ReplyOf(const BusRequest& request) {
  Json::Value reply;
  if (request.outcome == BusOutcome::kAnswered) {
    Json::String2Json(request.reply, reply);
  }
  return reply;
}

Json::Value BusJson(const std::vector<BusRequest>& requests) {
  Json::Value array(Json::arrayValue);
  for (const BusRequest& request : requests) {
    Json::Value entry(Json::objectValue);
    entry["queue"] = request.queue;
    entry["outcome"] = tarvex::BusOutcomeText(request.outcome);
    entry["ms"] = Json::Int64{duration_cast<milliseconds>(request.time).count()};
    const Json::Value reply = ReplyOf(request);
    if (tarvex::Member(reply, "state_code").isInt()) {
      entry["state_code"] = reply["state_code"];
    }
    if (tarvex::Member(reply, "error").isString()) {
      entry["device_error"] = reply["error"];
    }
    array.append(entry);
  }
  return array;
}

/// What went wrong with a bus request, in words; empty when nothing did.
std::string Trouble(const BusRequest& request) {
  switch (request.outcome) {
    case BusOutcome::kNobody:
      return "nobody serves " + request.queue;
    case BusOutcome::kTimedOut:
      return request.queue + " did not answer in " +
             std::to_string(duration_cast<milliseconds>(request.time).count()) + " ms";
    case BusOutcome::kNotConnected:
      return "the bus is not there";
    case BusOutcome::kAnswered:
      break;
  }
  const Json::Value reply = ReplyOf(request);
  return tarvex::Member(reply, "error").isString()
             ? request.queue + " says: " + reply["error"].asString()
             : "";
}

}  // namespace

RequestRunner::RequestRunner(Options options, RequestLine* line, Host host)
    : options_(std::move(options)), line_(line), host_(std::move(host)) {}

void RequestRunner::RunNext() {
  if (!host_.has_room()) {
    ++without_room_;
    return;
  }
  const std::optional<InboundRequest> inbound = line_->Take();
  if (!inbound) {
    return;
  }
  ++requests_;
  const auto waited = duration_cast<milliseconds>(host_.now() - inbound->received_at);
  const Request request =
      ReadRequest(*inbound, options_.topics, names_, options_.max_request_bytes);
  if (host_.trace != nullptr) {
    host_.trace->RequestBegins(*inbound, request.name);
  }
  Json::Value response = ResponseTo(request);
  if (!request.id.isNull()) {
    response["id"] = request.id;
  }
  response["waited_ms"] = Json::Int64{waited.count()};
  if (response.isMember("error")) {
    ++errors_;
    SYS_LOG(kLogWarning, "request %s: %s: %s", request.name.substr(0, kMaxNameShown_bytes).c_str(),
            response["code"].asCString(), response["error"].asCString());
  }
  Send(*inbound, response);
  if (host_.trace != nullptr) {
    host_.trace->RequestEnds();
  }
  OnRoom();
}

// One turn at a time: others that use the event thread have theirs in between.
void RequestRunner::OnRoom() {
  if (without_room_ > 0 && host_.has_room()) {
    --without_room_;
    line_->PostTurn();
  }
}

Json::Value RequestRunner::OnMessage(const std::string& name, const Json::Value& payload) {
  if (current_ == nullptr || name != current_->name) {
    return {};
  }
  answer_ = payload;
  return current_->id;
}

void RequestRunner::OnBusRequest(const BusRequest& request) {
  if (current_ != nullptr) {
    bus_requests_.push_back(request);
    bus_requests_.back().body = {};  // it does not live that long
    bus_requests_.back().body = {};  // it is not this object's, and not needed
  }
}

Json::Value RequestRunner::ResponseTo(const Request& request) {
  if (request.error) {
    return ErrorJson(request.error);
  }
  const TimePoint now = host_.now();
  if (request.expires_at && *request.expires_at <= now) {
    const auto late = duration_cast<milliseconds>(now - *request.expires_at);
    return ErrorJson({code::kExpired, "the request expired " + std::to_string(late.count()) +
                                          " ms before its turn"});
  }
  if (request.idempotency_key.empty()) {
    return CarryOut(request);
  }
  if (std::optional<ResponseMemory::Known> known = memory_.Find(request, now)) {
    if (!known->is_same_request) {
      return ErrorJson({code::kKeyReused, "the idempotency key was another request's"});
    }
    known->response["repeated"] = true;
    return known->response;
  }
  Json::Value response = CarryOut(request);
  memory_.Remember(request, response, host_.now());
  return response;
}

Json::Value RequestRunner::CarryOut(const Request& request) {
  Json::Value filled_in;
  Json::Value response(Json::objectValue);
  RequestError error;
  bool is_done = false;
  current_ = &request;
  try {
    is_done = host_.carry_out(request, filled_in);
  } catch (...) {
    error = {code::kFailed, "the request failed"};
  }
  current_ = nullptr;
  response["result"] = is_done;
  if (!error) {
    response["response"] = filled_in;
  }
  if (!is_done && !error) {
    error = Failure(request);
  }
  if (error) {
    response["code"] = error.code;
    response["error"] = error.text;
  }
  if (const std::optional<Json::Value> answer = std::exchange(answer_, std::nullopt)) {
    response["answer"] = *answer;
  }
  const std::vector<BusRequest> bus_requests = std::exchange(bus_requests_, {});
  if (options_.diagnose) {
    response["bus"] = BusJson(bus_requests);
  }
  return response;
}

// Why the plug-in said no, as far as that can be seen from here.
RequestError RequestRunner::Failure(const Request& request) const {
  if (bus_requests_.empty() && request.version != kVersion) {
    return {code::kWrongVersion, "\"version\" is not \"1.0\""};
  }
  RequestError error{code::kRefused, "the camera refused or did not carry out the request"};
  const bool is_offline =
      std::any_of(bus_requests_.begin(), bus_requests_.end(), [](const BusRequest& bus_request) {
        return bus_request.outcome == BusOutcome::kNotConnected;
      });
  if (is_offline) {
    error.code = code::kOfflineDevice;
  }
  const std::string trouble = bus_requests_.empty() ? "" : Trouble(bus_requests_.back());
  if (!trouble.empty()) {
    error.text += ": " + trouble;
  }
  return error;
}

void RequestRunner::Send(const InboundRequest& inbound, const Json::Value& response) {
  for (const OutboundMessage& message : Responses(inbound, options_.topics, response)) {
    if (host_.send(message)) {
      continue;
    }
    Json::Value shorter = response;
    shorter.removeMember("response");
    shorter.removeMember("answer");
    shorter["code"] = code::kTooLarge;
    shorter["error"] = "the response is larger than the broker takes";
    OutboundMessage fallback = message;
    Json::Json2String(shorter, fallback.payload);
    host_.send(fallback);
  }
}

}  // namespace agent
