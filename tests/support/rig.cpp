#include "support/rig.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "json_text.h"
#include "support/wait_until.h"

namespace {

std::vector<std::string> Joined(std::vector<std::string> first,
                                const std::vector<std::string>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace

Json::Value ParseJson(const std::string& text) {
  Json::Value value;
  if (!Json::String2Json(text, value)) {
    throw std::runtime_error("not JSON: " + text);
  }
  return value;
}

std::string Compact(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

Rig::Rig(const RigPrograms& rig_programs, const BrokerProgram& broker_program)
    : programs(rig_programs),
      broker(broker_program),
      cloud(std::make_unique<MqttClient>(broker.access(), "cameras/#")) {}

Rig::~Rig() = default;

std::map<std::string, std::string> Rig::Environment() const {
  std::map<std::string, std::string> environment = {{"TARVEX_BUS_ADDRESS", bus.address()},
                                                    {"TARVEX_KV_ADDRESS", key_values.address()},
                                                    {"TARVEX_SERIAL_NUMBER", sn}};
  environment.insert(more_environment.begin(), more_environment.end());
  return environment;
}

std::string Rig::LogFile(const std::string& program) {
  return (directory.path() / (program + std::to_string(++starts_) + ".log")).string();
}

void Rig::StartCamera(const std::vector<std::string>& options) {
  const std::string data = (directory.path() / "camera").string();
  const std::string log = LogFile("camera");
  std::vector<std::string> command = Joined({programs.camera, "--data", data}, options);
  for (const auto& [option, value] :
       {std::pair{"--cars-per-minute", "0"}, std::pair{"--picture-width", "160"}}) {
    if (std::find(options.begin(), options.end(), option) == options.end()) {
      command.insert(command.end(), {option, value});
    }
  }
  camera = std::make_unique<ChildProcess>(command, log, Environment());
  const bool is_ready = WaitUntil([this] {
    return !camera->IsRunning() ||
           camera->Output().find("virtual_camera ready") != std::string::npos;
  });
  if (!is_ready || !camera->IsRunning()) {
    throw std::runtime_error("the camera did not start: " + camera->Output());
  }
}

void Rig::LaunchAgent(const std::vector<std::string>& options, int broker_port) {
  const int port = broker_port != 0 ? broker_port : broker.port();
  std::vector<std::string> command = Joined(
      {programs.agent, "--plugin", programs.plugin, "--broker", "127.0.0.1:" + std::to_string(port),
       "--id-picture-dir", (directory.path() / "camera/lane").string(), "--status-interval", "1",
       "--backoff-min-ms", "50", "--backoff-max-ms", "200", "--keep-alive", "5",
       "--print-messages"},
      Joined(BrokerOptions(), options));
  // All that runs on the rig can be run with another version of MQTT.
  const char* const version = std::getenv("RIG_MQTT_VERSION");
  if (version != nullptr &&
      std::find(command.begin(), command.end(), "--mqtt-version") == command.end()) {
    command.insert(command.end(), {"--mqtt-version", version});
  }
  if (std::find(options.begin(), options.end(), "--picture-dir") == options.end()) {
    command.insert(command.end(), {"--picture-dir", (directory.path() / "pictures").string()});
  }
  agent = std::make_unique<ChildProcess>(command, LogFile("agent"), Environment());
}

std::vector<std::string> Rig::BrokerOptions() const {
  const BrokerProgram& program = broker.program();
  std::vector<std::string> options = program.agent_options;
  if (!program.username.empty()) {
    const std::string password_file = (directory.path() / "password").string();
    std::ofstream(password_file) << program.password << "\n";
    options.insert(options.end(),
                   {"--username", program.username, "--password-file", password_file});
  }
  return options;
}

void Rig::StartAgent(const std::vector<std::string>& options, int broker_port) {
  LaunchAgent(options, broker_port);
  if (!AwaitOnline(true)) {
    throw std::runtime_error("the agent did not get online: " + agent->Output());
  }
}

bool Rig::AwaitOnline(bool is_online) {
  return cloud
      ->Await([&](const MqttClient::Message& message) {
        return message.topic == Topic("status") &&
               ParseJson(message.payload)["online"].asBool() == is_online;
      })
      .has_value();
}

std::string Rig::Ctl(const std::vector<std::string>& arguments) {
  const TempDirectory output;
  ChildProcess ctl(Joined({programs.camera_ctl}, arguments), (output.path() / "out").string(),
                   Environment());
  if (!ctl.WaitForExit() || ctl.exit_code() != 0) {
    throw std::runtime_error("camera_ctl failed: " + ctl.Output());
  }
  return ctl.Output();
}

Json::Value Rig::CameraState() { return ParseJson(Ctl({"state"})); }

Json::Value Rig::AgentStatus() {
  cloud->Forget();
  const auto message = cloud->AwaitTopic(Topic("status"));
  if (!message) {
    throw std::runtime_error("no status of the agent");
  }
  return ParseJson(message->payload);
}

Json::Value Rig::RequestWith(const std::string& name, const Json::Value& payload,
                             const std::string& version) {
  Json::Value request;
  request["id"] = std::to_string(++last_request_);
  request["version"] = version;
  request["payload"] = payload;
  // A client that is just coming back to a restarted broker would miss the response.
  WaitUntil([this] { return cloud->IsSubscribed(); });
  // A message that came before the response stays, to be awaited after it.
  cloud->Publish(Topic("request/" + name), Compact(request));
  const auto response = cloud->Pick([&](const MqttClient::Message& candidate) {
    return candidate.topic == Topic("response/" + name) &&
           ParseJson(candidate.payload)["id"] == request["id"];
  });
  if (!response) {
    throw std::runtime_error("no response to " + name);
  }
  return ParseJson(response->payload);
}

Json::Value Rig::Request(const std::string& name, const std::string& body_text) {
  Json::Value payload;
  payload["type"] = name;
  if (!body_text.empty()) {
    payload["body"] = ParseJson(body_text);
  }
  return RequestWith(name, payload);
}

Json::Value Rig::AwaitMessage(const std::string& name) {
  const auto message = cloud->AwaitTopic(Topic("message/" + name));
  if (!message) {
    throw std::runtime_error("no message " + name);
  }
  return ParseJson(message->payload);
}
