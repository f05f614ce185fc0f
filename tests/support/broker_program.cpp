#include "support/broker_program.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

/// What a file of tests/brokers says.
std::string FileText(const std::string& name) {
  std::ifstream file(std::string(BROKER_FILES) + "/" + name);
  std::stringstream text;
  text << file.rdbuf();
  if (!file) {
    throw std::runtime_error("no file tests/brokers/" + name);
  }
  return text.str();
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
}

}  // namespace

BrokerProgram Mosquitto(const std::vector<std::string>& settings) {
  BrokerProgram program;
  program.name = "mosquitto";
  program.command = {"mosquitto", "-c", "@DIRECTORY@/broker.conf"};
  program.configuration = FileText("mosquitto.conf.in");
  for (const std::string& line : settings) {
    program.configuration += line + "\n";
  }
  return program;
}

BrokerProgram MosquittoOfMqtt311() {
  BrokerProgram program = Mosquitto();
  program.speaks_mqtt_5 = false;
  program.agent_options = {"--mqtt-version", "3.1.1"};
  return program;
}

BrokerProgram NatsServerForMqtt() {
  BrokerProgram program;
  program.name = "nats-server";
  program.command = {"nats-server", "-c", "@DIRECTORY@/broker.conf"};
  program.configuration = FileText("nats-server.conf.in");
  program.speaks_mqtt_5 = false;
  return program;
}

BrokerProgram Aedes() {
  BrokerProgram program;
  program.name = "aedes";
  program.command = {"node", BROKER_FILES "/aedes.mjs", "@PORT@"};
  program.speaks_mqtt_5 = false;
  return program;
}

BrokerProgram Ejabberd() {
  BrokerProgram program;
  program.name = "ejabberd";
  // Not its own ejabberdctl: that starts a daemon of Erlang's, which goes on when the broker ends.
  // Schedulers that wait busily take half a minute to start where other tests run.
  program.command = {"erl", "-noinput", "-mnesia", "dir", "\"@DIRECTORY@/mnesia\"",
                     "-s",  "ejabberd"};
  program.environment = {{"HOME", "@DIRECTORY@"},
                         {"ERL_LIBS", BROKER_ERLANG_LIBRARIES},
                         {"ERL_FLAGS", "+sbwt none +sbwtdcpu none +sbwtdio none"},
                         {"ERL_CRASH_DUMP", "/dev/null"},
                         {"EJABBERD_CONFIG_PATH", "@DIRECTORY@/broker.yml"},
                         {"EJABBERD_LOG_PATH", "@DIRECTORY@/ejabberd.log"}};
  program.configuration = FileText("ejabberd.yml.in");
  program.configuration_file = "broker.yml";
  program.username = "camera@localhost";
  program.password = "none";
  return program;
}

BrokerProgram Prepared(BrokerProgram program, const std::filesystem::path& directory, int port) {
  const auto fill_in = [&](std::string& text) {
    Replace(text, "@DIRECTORY@", directory.string());
    Replace(text, "@PORT@", std::to_string(port));
  };
  for (std::string& word : program.command) {
    fill_in(word);
  }
  for (auto& [name, value] : program.environment) {
    fill_in(value);
  }
  fill_in(program.configuration);
  std::ofstream(directory / program.configuration_file) << program.configuration;
  return program;
}
