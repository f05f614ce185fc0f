// hostcheck: whether a host keeps what it owes its plug-in. It starts the host with a plug-in of
// its own and plays everything around it: broker, cloud and recognition.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "desk_cars.h"
#include "report.h"
#include "scenes.h"
#include "support/child_process.h"
#include "support/temp_directory.h"
#include "wire.h"

namespace {

constexpr int kUnusable = 2;
constexpr char kDescription[] =
    "Starts a host with libhostcheck.so in place of the camera's plug-in, plays its broker and its "
    "camera, and says which of a host's duties it keeps.\n";
constexpr char kFooter[] =
    "\nIn HOST's words {plugin} is the file of the plug-in, {broker} the broker's HOST:PORT, "
    "{port} its "
    "port alone, and {control} the address that the plug-in needs in the environment as "
    "HOSTCHECK_ADDRESS; a host that is started here has it already.\n"
    "exit status: 0 nothing is broken, 1 something is, 2 nothing could be looked at";

struct Options {
  std::vector<std::string> host;
  std::string plugin;
  std::string car;
  std::string junit;
  std::string host_log;
  int patience_ms = 10000;
  int quiet_ms = 300;
  int blocked_ms = 5000;
  hostcheck::SceneOptions scenes;
};

/// The plug-in that was built beside this program.
std::string OwnPlugin() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
  std::string directory(path, length > 0 ? static_cast<std::size_t>(length) : 0);
  directory.erase(std::min(directory.rfind('/'), directory.size()));
  return directory + "/../lib/libhostcheck.so";
}

void ReplaceAll(std::string* text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text->find(from, at)) != std::string::npos; at += to.size()) {
    text->replace(at, from.size(), to);
  }
}

int Run(Options options) {
  std::unique_ptr<hostcheck::DeskCars> desk;
  if (options.car.empty()) {
    desk = std::make_unique<hostcheck::DeskCars>();
    options.scenes.recognise = [&desk](int count) { desk->Recognise(count); };
  } else {
    options.scenes.recognise = [&options](int count) {
      const std::string command = options.car + " " + std::to_string(count);
      if (system(command.c_str()) != 0) {  // NOLINT(cert-env33-c,bugprone-command-processor)
        throw std::runtime_error("--car failed: " + command);
      }
    };
  }
  options.scenes.patience = std::chrono::milliseconds(options.patience_ms);
  options.scenes.quiet = std::chrono::milliseconds(options.quiet_ms);
  options.scenes.blocked = std::chrono::milliseconds(options.blocked_ms);
  hostcheck::Scenes scenes(options.scenes);
  const std::string broker = scenes.broker_address();
  for (std::string& word : options.host) {
    ReplaceAll(&word, "{plugin}", options.plugin);
    ReplaceAll(&word, "{broker}", broker);
    ReplaceAll(&word, "{port}", broker.substr(broker.rfind(':') + 1));
    ReplaceAll(&word, "{control}", scenes.plugin_address());
  }
  const TempDirectory directory;
  const std::string log =
      options.host_log.empty() ? (directory.path() / "host.log").string() : options.host_log;
  ChildProcess host(options.host, log, {{hostcheck::kAddressVariable, scenes.plugin_address()}});
  scenes.Play(&host);
  PrintReport(scenes.ledger(), &std::cout);
  if (!options.junit.empty()) {
    std::ofstream file(options.junit);
    PrintJunit(scenes.ledger(), &file);
    if (!file.flush()) {
      throw std::runtime_error("cannot write " + options.junit);
    }
  }
  if (scenes.ledger().Count("create_adapter") == 0) {
    std::cerr << "hostcheck: the host made no adapter; the end of what it wrote:\n";
    const std::string said = host.Output();
    std::cerr << said.substr(said.size() - std::min<std::size_t>(said.size(), 2000));
    return kUnusable;
  }
  return scenes.ledger().IsAnyBroken() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  options.plugin = OwnPlugin();
  CLI::App app(kDescription, "hostcheck");
  app.footer(kFooter);
  app.positionals_at_end();
  app.add_option("HOST", options.host, "Command that starts the host")->required();
  app.add_option("--plugin", options.plugin, "libhostcheck.so, as the host finds it")
      ->type_name("FILE");
  app.add_option(
         "--car", options.car,
         "Command that has the camera recognise as many cars as its last word says (default: "
         "results on the desk's bus, where TARVEX_BUS_ADDRESS says)")
      ->type_name("COMMAND");
  app.add_option(
         "--request-topic", options.scenes.request_topic,
         "Topic of a request of the cloud, with {name} for its name; without it some duties "
         "are not exercised")
      ->type_name("TOPIC");
  options.scenes.request_body = R"({"id":"1","version":"1.0","payload":{payload}})";
  app.add_option("--request-body", options.scenes.request_body,
                 "Body of a request, with {payload} for {\"type\", \"body\"}")
      ->type_name("TEXT")
      ->capture_default_str();
  app.add_option("--listen", options.scenes.listen,
                 "Address of the broker that is played, for a host on another machine")
      ->type_name("ADDRESS")
      ->capture_default_str();
  app.add_option("--patience", options.patience_ms, "How long to wait for what has to come")
      ->type_name("MS")
      ->check(CLI::Range(100, 600000))
      ->capture_default_str();
  app.add_option("--quiet", options.quiet_ms, "How long to watch for what must not come")
      ->type_name("MS")
      ->check(CLI::Range(10, 60000))
      ->capture_default_str();
  app.add_option("--blocked", options.blocked_ms, "How long a bus request keeps the host's thread")
      ->type_name("MS")
      ->check(CLI::Range(100, 60000))
      ->capture_default_str();
  app.add_option("--junit", options.junit, "Write the report as JUnit's XML, too")
      ->type_name("FILE");
  app.add_option("--host-log", options.host_log, "Where what the host writes is kept")
      ->type_name("FILE");
  CLI11_PARSE(app, argc, argv);
  try {
    return Run(std::move(options));
  } catch (const std::exception& failure) {
    std::cerr << "hostcheck: " << failure.what() << '\n';
    return kUnusable;
  }
}
