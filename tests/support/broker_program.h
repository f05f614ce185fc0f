// The brokers that cameras are tested with, none of them written here.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

/// How a broker is started and reached. In `command`, `environment` and the configuration stand
/// @PORT@, the port of 127.0.0.1 that it is to serve, and @DIRECTORY@, where its files are.
struct BrokerProgram {
  std::string name;
  std::vector<std::string> command;
  std::map<std::string, std::string> environment;
  std::string configuration;                       ///< text of its file
  std::string configuration_file = "broker.conf";  ///< within @DIRECTORY@
  bool speaks_mqtt_5 = true;                       ///< as well as 3.1.1, to the tests' client
  std::string username;  ///< of every client; empty: the broker asks for none
  std::string password;
  std::vector<std::string> agent_options;
};

/// mosquitto, with further lines of configuration; without any it lets everybody in.
BrokerProgram Mosquitto(const std::vector<std::string>& settings = {"allow_anonymous true"});

/// The same, and the agent and the tests' client speak 3.1.1.
BrokerProgram MosquittoOfMqtt311();

/// nats-server's MQTT listener: 3.1.1 only.
BrokerProgram NatsServerForMqtt();

/// aedes: 3.1.1 only.
BrokerProgram Aedes();

/// ejabberd's mod_mqtt: MQTT 5.
BrokerProgram Ejabberd();

/// Writes the configuration, and fills in the port and the directory everywhere.
BrokerProgram Prepared(BrokerProgram program, const std::filesystem::path& directory, int port);
