// A PUBLISH of MQTT at the agent. The input: a line of letters for its flags, its topic, its
// response topic and its correlation data, a line each, and the body. It comes twice: a key may be
// remembered.
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "cloud_agent/requests/request_runner.h"
#include "cloud_agent/topic_levels.h"
#include "fuzz_check.h"
#include "json_text.h"

namespace {

using agent::InboundRequest;
using agent::OutboundMessage;
using agent::RequestRunner;
using fuzz::Check;

const agent::Topics kTopics = {"cameras/CAM1", "callers"};
constexpr std::size_t kMostBytes = 2048;

/// The agent's line and runner, with a plug-in that answers with what it is given.
class Agent {
 public:
  explicit Agent(bool throws)
      : line_(4, [](const std::function<void()>& turn) { turn(); }),
        runner_({kTopics, kMostBytes, true}, &line_, Host(throws)) {
    runner_.SetNames({"get_sn", "snapshot"});
    line_.Open([this] { runner_.RunNext(); });
  }

  std::vector<OutboundMessage> Take(InboundRequest inbound) {
    inbound.received_at = now_;
    line_.Add(&inbound);
    now_ += std::chrono::milliseconds(10);
    return std::exchange(sent_, {});
  }

 private:
  RequestRunner::Host Host(bool throws) {
    RequestRunner::Host host;
    host.now = [this] { return now_; };
    host.has_room = [] { return true; };
    host.carry_out = [this, throws](const agent::Request& request, Json::Value& response) {
      if (throws) {
        throw std::runtime_error("the plug-in throws");
      }
      runner_.OnMessage(request.name, request.payload);
      response["payload"] = request.payload;
      return request.version == "1.0";
    };
    host.send = [this](const OutboundMessage& message) {
      sent_.push_back(message);
      return message.payload.size() < kMostBytes;
    };
    return host;
  }

  agent::InboundRequest::TimePoint now_{std::chrono::hours(1)};
  agent::RequestLine line_;
  RequestRunner runner_;
  std::vector<OutboundMessage> sent_;
};

bool BeginsWith(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

/// Nobody has the agent publish where a camera does, or what no topic is.
void CheckTopic(const std::string& topic) {
  Check(!topic.empty() && topic.front() != '$' && topic.size() <= 0xFFFF, "a topic to publish on");
  Check(topic.find_first_of("+#") == std::string::npos && topic.find('\0') == std::string::npos,
        "a topic of one message: " + topic);
  Check(BeginsWith(topic, kTopics.base + "/response/") ||
            BeginsWith(topic, kTopics.response_root + "/"),
        "a topic of responses: " + topic);
}

void CheckResponses(const InboundRequest& inbound, const std::vector<OutboundMessage>& sent) {
  const std::string own =
      kTopics.base + "/response" + inbound.topic.substr((kTopics.base + "/request").size());
  Check(!sent.empty() && sent.front().topic == own, "there is a response: " + own);
  for (const OutboundMessage& message : sent) {
    Check(!message.retain && message.has_correlation_data == inbound.has_correlation_data &&
              message.correlation_data == inbound.correlation_data,
          "the correlation data comes back");
    Json::Value response;
    Check(Json::String2Json(message.payload, response) && response["result"].isBool(),
          "a response is JSON with a result: " + message.payload);
    // An answer that is too large is of a request that was carried out, or was not.
    const bool is_error = response.isMember("error");
    Check(response["result"].asBool() != is_error || response["code"] == agent::code::kTooLarge,
          "what fails says why: " + message.payload);
    Check(is_error == response.isMember("code"), "why is a code and a text: " + message.payload);
  }
  for (std::size_t i = 1; i < sent.size(); ++i) {
    CheckTopic(sent[i].topic);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input(reinterpret_cast<const char*>(data), size);
  const std::string flags = fuzz::TakeUpTo('\n', &input);
  const auto has = [&flags](char letter) { return flags.find(letter) != std::string::npos; };
  InboundRequest inbound;
  // Only what the agent has subscribed to comes to it.
  inbound.topic = kTopics.base + "/request/" + fuzz::TakeUpTo('\n', &input);
  inbound.response_topic = fuzz::TakeUpTo('\n', &input);
  inbound.correlation_data = fuzz::TakeUpTo('\n', &input);
  inbound.has_correlation_data = has('c');
  if (!inbound.has_correlation_data) {
    inbound.correlation_data.clear();
  }
  inbound.retained = has('r');
  inbound.size = has('l') ? kMostBytes + 1 : input.size();
  if (has('e')) {
    inbound.expires_in = std::chrono::seconds(flags.size() - 1);
  }
  inbound.payload = input;

  if (agent::CheckTopicLevels(inbound.response_topic).empty()) {
    const std::string& levels = inbound.response_topic;
    Check(!levels.empty() && levels.find_first_of("+#") == std::string::npos &&
              levels.front() != '/' && levels.back() != '/' && levels.front() != '$',
          "levels of a topic");
  }
  try {
    Agent agent(has('t'));
    CheckResponses(inbound, agent.Take(inbound));
    CheckResponses(inbound, agent.Take(inbound));
    CheckResponses(inbound, agent::Refusal(inbound, kTopics, {agent::code::kBusy, "busy"}));
  } catch (const std::exception& thrown) {
    Check(false, std::string("nothing is thrown: ") + thrown.what());
  }
  return 0;
}
