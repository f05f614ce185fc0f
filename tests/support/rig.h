// The whole desk on free ports: two NATS servers, a broker, the virtual camera, the
// agent with the plug-in, and a cloud integrator's client.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <json/value.h>
#include <json/writer.h>

#include "support/child_process.h"
#include "support/mqtt_broker.h"
#include "support/mqtt_client.h"
#include "support/nats_server.h"
#include "support/temp_directory.h"

/// The programs under test, as the build made them.
struct RigPrograms {
  std::string camera;
  std::string camera_ctl;
  std::string agent;
  std::string plugin;
};

class Rig {
 public:
  /// Starts the servers and the client. Throws std::runtime_error.
  explicit Rig(const RigPrograms& programs, const BrokerProgram& broker_program = Mosquitto());
  ~Rig();

  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  /// Starts the camera and waits until it serves. No car passes by itself unless the
  /// options say so.
  void StartCamera(const std::vector<std::string>& options = {});

  /// Starts the agent, connected to `broker_port` (0: the broker's own), and waits until
  /// it says that it is online. Where the environment has RIG_MQTT_VERSION, that is its
  /// --mqtt-version unless the options have another.
  void StartAgent(const std::vector<std::string>& options = {}, int broker_port = 0);

  /// Starts the agent and waits for nothing.
  void LaunchAgent(const std::vector<std::string>& options = {}, int broker_port = 0);

  /// Waits until the retained status says so.
  bool AwaitOnline(bool is_online);

  /// Runs camera_ctl to its end. Throws std::runtime_error when it fails.
  std::string Ctl(const std::vector<std::string>& arguments);

  /// What the camera says of itself.
  Json::Value CameraState();

  /// The agent's retained status, fresh.
  Json::Value AgentStatus();

  /// Publishes a request with this payload, and waits for its one response.
  Json::Value RequestWith(const std::string& name, const Json::Value& payload,
                          const std::string& version = "1.0");
  /// The same with {"type": name, "body": body}; `body` is JSON text, or empty.
  Json::Value Request(const std::string& name, const std::string& body_text = "");

  /// Waits for a message of the plug-in: the whole {"version", "tag", "payload"}.
  Json::Value AwaitMessage(const std::string& name);

  std::string Topic(const std::string& rest) const { return "cameras/" + sn + "/" + rest; }

  /// Environment of every program of the rig.
  std::map<std::string, std::string> Environment() const;

  const std::string sn = "RIG0001";
  RigPrograms programs;
  TempDirectory directory;
  NatsServer bus;
  NatsServer key_values{NatsServer::Storage::kJetStream};
  MqttBroker broker;
  std::map<std::string, std::string> more_environment;
  std::unique_ptr<MqttClient> cloud;
  std::unique_ptr<ChildProcess> camera;
  std::unique_ptr<ChildProcess> agent;

 private:
  /// A file of its own for each start.
  std::string LogFile(const std::string& program);

  /// What the agent is told of the broker besides its address.
  std::vector<std::string> BrokerOptions() const;

  int starts_ = 0;
  int last_request_ = 0;
};

/// Parses text that must be JSON. Throws std::runtime_error.
Json::Value ParseJson(const std::string& text);

/// The text of a value, on one line.
std::string Compact(const Json::Value& value);
