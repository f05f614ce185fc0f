#include "console/options.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "chw_info.h"
#include "platform/host_port.h"
#include "platform/nats_link.h"
#include "platform/nats_names.h"

namespace console {
namespace {

constexpr char kAbout[] =
    "Shows a desk in a browser: the messages of its cameras, each with its whole way, and what "
    "can be done to them.\n"
    "Serves 127.0.0.1 only. The bus is at 127.0.0.1:6101 unless TARVEX_BUS_ADDRESS says "
    "otherwise; TARVEX_SUBJECT_PREFIX and TARVEX_SERIAL_NUMBER name the camera on it, unless "
    "--camera does.";

CLI::Validator Port(int least) { return CLI::Range(least, 65535).description(""); }

/// Reads "SN=VALUE" entries.
void Split(const std::string& option, const std::vector<std::string>& texts,
           std::map<std::string, std::string>* values) {
  for (const std::string& text : texts) {
    const std::size_t equals = text.find('=');
    if (equals == 0 || equals == std::string::npos || equals + 1 == text.size()) {
      throw CLI::ValidationError(option, "\"" + text + "\" is not SN=VALUE");
    }
    (*values)[text.substr(0, equals)] = text.substr(equals + 1);
  }
}

void ReadCameras(const std::vector<std::string>& texts, ConsoleOptions* options) {
  for (const std::string& text : texts) {
    const std::size_t equals = text.find('=');
    const std::string prefix = equals == std::string::npos ? "" : text.substr(equals + 1);
    if (!prefix.empty() && !tarvex::IsPlainSubject(prefix)) {
      throw CLI::ValidationError("--camera", "\"" + prefix + "\" cannot begin a subject");
    }
    options->cameras[text.substr(0, equals)] = prefix.empty() ? "" : prefix + ".";
  }
  if (options->cameras.empty() && options->has_bus) {
    options->cameras[hw_sn()] = tarvex::BusSubject("");
  }
}

}  // namespace

std::optional<int> ParseOptions(int argc, const char* const* argv, ConsoleOptions* options) {
  CLI::App app(kAbout, "console");
  std::string broker = "127.0.0.1:1884";
  std::vector<std::string> cameras;
  std::vector<std::string> pictures;
  std::vector<std::string> agent_pids;
  app.add_option("--port", options->port, "Where the page is served; 0: a free port")
      ->check(Port(0))
      ->capture_default_str();
  app.add_option("--broker", broker, "HOST:PORT of the broker")->capture_default_str();
  app.add_option("--ca", options->broker.ca,
                 "Certificates to trust; the broker is reached with TLS")
      ->check(CLI::ExistingFile);
  CLI::Option* cert = app.add_option("--cert", options->broker.cert, "The console's certificate")
                          ->check(CLI::ExistingFile)
                          ->needs("--ca");
  CLI::Option* key = app.add_option("--key", options->broker.key, "The key of that certificate")
                         ->check(CLI::ExistingFile);
  cert->needs(key);
  key->needs(cert);
  app.add_option("--root", options->broker.root, "What every topic begins with")
      ->capture_default_str();
  app.add_option("--link-port", options->link_port,
                 "Where agents find the broker through the console, which can then cut, freeze "
                 "and slow down that link; 0: nowhere")
      ->check(Port(0))
      ->capture_default_str();
  app.add_option("--page", options->page_directory, "Directory of the page")
      ->check(CLI::ExistingDirectory)
      ->capture_default_str();
  app.add_option("--contract", options->contract_file, "What requests there are, as AsyncAPI")
      ->check(CLI::ExistingFile)
      ->capture_default_str();
  CLI::Option* camera = app.add_option("--camera", cameras,
                                       "SN or SN=PREFIX: a camera on the bus and the prefix of "
                                       "its subjects; may be repeated");
  app.add_flag("!--no-bus", options->has_bus,
               "Shows what comes over the broker only: for cameras of which none is on a bus that "
               "the console reaches")
      ->excludes(camera);
  app.add_option("--pictures", pictures,
                 "SN=DIR: the directory in which the agent of that camera keeps its pictures, "
                 "served as /pictures/SN/; may be repeated");
  app.add_option("--agent-pid", agent_pids,
                 "SN=FILE: holds the process id of that camera's agent, which can then be "
                 "restarted from the page; may be repeated");
  try {
    app.parse(argc, argv);
    const std::string error =
        tarvex::ParseHostAndPort(broker, &options->broker.host, &options->broker.port);
    if (!error.empty()) {
      throw CLI::ValidationError("--broker", error);
    }
    ReadCameras(cameras, options);
    Split("--pictures", pictures, &options->pictures);
    Split("--agent-pid", agent_pids, &options->agent_pids);
  } catch (const CLI::ParseError& failure) {
    return app.exit(failure);
  }
  return std::nullopt;
}

}  // namespace console
