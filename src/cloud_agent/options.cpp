#include "cloud_agent/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <vector>

#include "cloud_agent/status/status.h"
#include "cloud_agent/topic_levels.h"

namespace agent {
namespace {

// Hundreds of cameras that lose their broker together come back a few at a time.
constexpr int kBackoffMin_ms = 3000;

constexpr char kDescription[] =
    "Connects a camera's adapter plug-in to an MQTT broker.\n\n"
    "Topics, with ROOT from --root and SN the camera's serial number:\n"
    "  ROOT/SN/request/NAME    the cloud asks: {\"id\", \"version\", \"payload\"}\n"
    "  ROOT/SN/response/NAME   the answer to it: {\"id\", \"result\", \"response\", \"answer\"}\n"
    "  ROOT/SN/message/NAME    what the camera tells: {\"version\", \"tag\", \"payload\"}\n"
    "  ROOT/SN/status          retained: whether it is online, and its counters\n";

constexpr char kExample[] =
    "\nExample:\n"
    "  cloud_agent --plugin ./libmqttadapter.so --broker mqtt.example.org --tls \\\n"
    "      --username cam7 --password-file cam7.password --picture-dir /var/lib/pictures\n\n"
    "Every long option can stand in the --config file, one a line: broker = \"127.0.0.1:1883\"";

// Checks that keep quiet in the help text.
CLI::Validator Between(int least, int most) { return CLI::Range(least, most).description(""); }
CLI::Validator Readable() { return CLI::Validator(CLI::ExistingFile).description(""); }

#ifdef CLOUD_AGENT_WITHOUT_DUTIES
const std::map<std::string, bool Duties::*> kDuties = {
    {"one-at-a-time", &Duties::one_at_a_time},
    {"release-unpublished", &Duties::release_unpublished},
    {"heed-refusals", &Duties::heed_refusals},
    {"one-offline", &Duties::one_offline},
    {"withhold-offline", &Duties::withhold_offline},
    {"unsubscribe-on-loss", &Duties::unsubscribe_on_loss}};
#endif

constexpr char kDefaultBroker[] = "127.0.0.1";

struct RawOptions {
  std::vector<std::string> brokers;
  std::string mqtt_version = "auto";
  std::string password_file;
  std::string unheard = "keep";
  std::optional<int> backoff_min_ms;
  std::vector<std::string> switched_off_duties;
};

void AddPluginOptions(CLI::App* app, ProgramOptions* options) {
  const char* group = "Plug-in";
  app->add_option("--plugin", options->plugin_path, "Path of the adapter plug-in")
      ->required()
      ->type_name("FILE")
      ->group(group);
  app->add_option("--adapter-id", options->adapter_id, "Number handed to the adapter")
      ->capture_default_str()
      ->type_name("N")
      ->group(group);
}

void AddBrokerOptions(CLI::App* app, ProgramOptions* options, RawOptions* raw) {
  const char* group = "Broker";
  BrokerOptions& broker = options->link.broker;
  app->add_option("--broker", raw->brokers,
                  "HOST, HOST:PORT, or such with mqtt:// or mqtts:// (TLS) before it; the port is "
                  "1883, 8883 with TLS; several, with commas between, are tried in turn")
      ->default_str(kDefaultBroker)
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("ADDRESS")
      ->group(group);
  app->add_option("--mqtt-version", raw->mqtt_version,
                  "Version of MQTT; auto: 5, and 3.1.1 for a broker that has no 5")
      ->check(CLI::IsMember({"5", "3.1.1", "auto"}))
      ->capture_default_str()
      ->group(group);
  app->add_option("--root", options->root, "What every topic begins with")
      ->capture_default_str()
      ->type_name("TOPIC")
      ->group(group);
  app->add_option("--response-root", options->response_root,
                  "Requests may name response topics below it, which is not below ROOT (default: "
                  "only those below ROOT/SN/response)")
      ->type_name("TOPIC")
      ->group(group);
  app->add_option("--client-id", broker.client_id, "MQTT client id (default: the serial number)")
      ->type_name("ID")
      ->group(group);
  app->add_option("--username", broker.username, "User name at the broker")
      ->type_name("NAME")
      ->group(group);
  app->add_option("--password-file", raw->password_file, "File whose first line is the password")
      ->check(Readable())
      ->type_name("FILE")
      ->group(group);
  app->add_option("--keep-alive", broker.keep_alive_s,
                  "Seconds; a silent broker is left after twice as long")
      ->check(Between(5, 65535))
      ->capture_default_str()
      ->type_name("S")
      ->group(group);
  app->add_option("--backoff-min-ms", raw->backoff_min_ms,
                  "Before connecting again: any time up to this, and to twice as long after each "
                  "failure (default: 3000, or --backoff-max-ms where that is less)")
      ->check(Between(1, 3600000))
      ->type_name("MS")
      ->group(group);
  app->add_option("--backoff-max-ms", options->link.backoff_max_ms,
                  "The longest delay before connecting again")
      ->check(Between(1, 3600000))
      ->capture_default_str()
      ->type_name("MS")
      ->group(group);
  app->add_option("--ack-timeout", options->agent.ack_timeout_s,
                  "Seconds after which a broker that owes an acknowledgement is left")
      ->check(Between(1, 3600))
      ->capture_default_str()
      ->type_name("S")
      ->group(group);
}

void AddTlsOptions(CLI::App* app, ProgramOptions* options) {
  const char* group = "TLS";
  BrokerOptions& broker = options->link.broker;
  app->add_flag("--tls", broker.use_tls, "Use TLS; implied by --ca, --cert and mqtts://")
      ->group(group);
  app->add_option("--ca", broker.tls.ca, "Certificates to trust (default: those in /etc/ssl/certs)")
      ->check(Readable())
      ->type_name("FILE")
      ->group(group);
  CLI::Option* cert = app->add_option("--cert", broker.tls.cert, "The client's certificate")
                          ->check(Readable())
                          ->type_name("FILE")
                          ->group(group);
  CLI::Option* key = app->add_option("--key", broker.tls.key, "The key of that certificate")
                         ->check(Readable())
                         ->type_name("FILE")
                         ->group(group);
  cert->needs(key);
  key->needs(cert);
}

void AddPictureOptions(CLI::App* app, ProgramOptions* options) {
  const char* group = "Pictures";
  options->pictures.directory = "pictures";
  app->add_option("--picture-dir", options->pictures.directory, "Where published pictures are kept")
      ->capture_default_str()
      ->type_name("DIR")
      ->group(group);
  app->add_option("--picture-url", options->pictures.url,
                  "URL of that directory, as the cloud sees it (default: its file:// URL)")
      ->type_name("URL")
      ->group(group);
  app->add_option("--id-picture-dir", options->pictures.id_directory,
                  "Where the camera keeps its pictures by id, as ID.jpg")
      ->type_name("DIR")
      ->group(group);
  app->add_option("--keep-pictures", options->pictures.keep, "How many pictures stay")
      ->check(Between(1, 10000000))
      ->capture_default_str()
      ->type_name("N")
      ->group(group);
  app->add_option("--keep-picture-bytes", options->pictures.keep_bytes,
                  "How many bytes of pictures stay")
      ->check(CLI::Range(std::uint64_t{1} << 10, std::uint64_t{1} << 50).description(""))
      ->capture_default_str()
      ->type_name("N")
      ->group(group);
}

void AddTrafficOptions(CLI::App* app, ProgramOptions* options, RawOptions* raw) {
  const char* group = "Traffic";
  app->add_option("--max-request-bytes", options->agent.requests.max_request_bytes,
                  "Larger requests are answered with an error")
      ->check(Between(64, 64 << 20))
      ->capture_default_str()
      ->type_name("N")
      ->group(group);
  app->add_option("--results-in-flight", options->agent.guard.results_in_flight,
                  "Recognition results under way at a time; more than 1 is not safe")
      ->check(Between(1, 1000))
      ->capture_default_str()
      ->type_name("N")
      ->group(group);
  app->add_option("--results-waiting", options->agent.guard.results_waiting,
                  "Recognition results that may wait for their turn; others stay in the store")
      ->check(Between(0, 100000))
      ->capture_default_str()
      ->type_name("N")
      ->group(group);
  app->add_flag("--auto-push", options->agent.auto_push,
                "Re-deliver undelivered results after each connection, unasked")
      ->group(group);
  app->add_option("--status-interval", options->agent.status_interval_s,
                  "Seconds between two status messages")
      ->check(Between(1, 86400))
      ->capture_default_str()
      ->type_name("S")
      ->group(group);
  app->add_option("--unheard", raw->unheard,
                  "What becomes of a result that nobody subscribes to: keep it in the store "
                  "until somebody does, or confirm it as delivered")
      ->check(CLI::IsMember({"keep", "confirm"}))
      ->capture_default_str()
      ->group(group);
  app->add_option("--requests-waiting", options->max_requests_waiting,
                  "Requests that may wait for their turn; others are answered \"busy\"")
      ->check(Between(0, 100000))
      ->capture_default_str()
      ->type_name("N")
      ->group(group);
  app->add_flag("--diagnose", options->agent.requests.diagnose,
                "Responses tell what the camera's bus answered")
      ->group(group);
  app->add_flag("--print-messages", options->print_messages,
                "Print a line for each published message")
      ->group(group);
  app->add_flag("--trace", options->trace,
                "Tell on the bus topic TRACE_MESSAGES what is done with each message")
      ->group(group);
}

std::string ReadPassword(const std::string& file, std::string* password) {
  std::ifstream stream(file);
  if (!std::getline(stream, *password)) {
    return "--password-file: nothing can be read from " + file;
  }
  if (!password->empty() && password->back() == '\r') {
    password->pop_back();
  }
  return "";
}

/// Among the cameras' topics a response could pass for another camera's message.
std::string CheckResponseRoot(const ProgramOptions& options) {
  const std::string& topic = options.response_root;
  if (topic.empty()) {
    return "";
  }
  const auto is_within = [](const std::string& inner, const std::string& outer) {
    return (inner + "/").compare(0, outer.size() + 1, outer + "/") == 0;
  };
  if (is_within(topic, options.root) || is_within(options.root, topic)) {
    return "\"" + topic + "\" and --root, \"" + options.root + "\", are one within the other";
  }
  return CheckTopicLevels(topic);
}

std::string Finish(const RawOptions& raw, ProgramOptions* options) {
  BrokerOptions& broker = options->link.broker;
  broker.use_tls = broker.use_tls || !broker.tls.ca.empty() || !broker.tls.cert.empty();
  const std::vector<std::string> by_default = {kDefaultBroker};
  std::string error = ReadBrokerAddresses(raw.brokers.empty() ? by_default : raw.brokers,
                                          &broker.use_tls, &broker.addresses);
  if (!error.empty()) {
    return "--broker: " + error;
  }
  if (raw.mqtt_version != "auto") {
    broker.version = raw.mqtt_version == "5" ? MqttVersion::k5 : MqttVersion::k311;
  }
  error = CheckTopicLevels(options->root);
  if (!error.empty()) {
    return "--root: " + error;
  }
  error = CheckResponseRoot(*options);
  if (!error.empty()) {
    return "--response-root: " + error;
  }
  options->link.backoff_min_ms =
      raw.backoff_min_ms.value_or(std::min(kBackoffMin_ms, options->link.backoff_max_ms));
  if (options->link.backoff_max_ms < options->link.backoff_min_ms) {
    return "--backoff-max-ms is below --backoff-min-ms";
  }
  if (!raw.password_file.empty()) {
    if (broker.username.empty()) {
      return "--password-file needs --username";
    }
    error = ReadPassword(raw.password_file, &broker.password);
  }
  options->agent.guard.confirm_unheard = raw.unheard == "confirm";
#ifdef CLOUD_AGENT_WITHOUT_DUTIES
  for (const std::string& name : raw.switched_off_duties) {
    options->agent.guard.duties.*kDuties.at(name) = false;
  }
#endif
  return error;
}

}  // namespace

void CompleteOptions(const std::string& serial_number, double clock_scale,
                     ProgramOptions* options) {
  BrokerOptions& broker = options->link.broker;
  const std::string base = options->root + "/" + serial_number;
  if (broker.client_id.empty()) {
    broker.client_id = serial_number;
  }
  broker.will_topic = base + "/status";
  broker.will_payload = OfflineStatus();
  broker.request_filter = base + "/request/#";
  broker.max_request_bytes = options->agent.requests.max_request_bytes;
  options->agent.requests.topics = {base, options->response_root};
  options->agent.clock_scale = clock_scale;
}

std::optional<int> ParseOptions(int argc, const char* const* argv, ProgramOptions* options) {
  CLI::App app(kDescription, "cloud_agent");
  app.footer(kExample);
  app.get_formatter()->column_width(34);
  app.set_config("--config", "", "File with more options", false)->type_name("FILE");
  app.allow_config_extras(CLI::config_extras_mode::error);
  RawOptions raw;
  AddPluginOptions(&app, options);
  AddBrokerOptions(&app, options, &raw);
  AddTlsOptions(&app, options);
  AddPictureOptions(&app, options);
  AddTrafficOptions(&app, options, &raw);
#ifdef CLOUD_AGENT_WITHOUT_DUTIES
  // Built for tests only: it loses results, to show what a duty is for.
  app.add_option("--no-duty", raw.switched_off_duties, "A duty of a host not to be kept")
      ->check(CLI::IsMember(kDuties))
      ->group("Tests");
#endif
  try {
    app.parse(argc, argv);
    const std::string error = Finish(raw, options);
    if (!error.empty()) {
      throw CLI::ValidationError(error);
    }
  } catch (const CLI::ParseError& failure) {
    return app.exit(failure);
  }
  return std::nullopt;
}

}  // namespace agent
