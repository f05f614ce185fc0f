#include "virtual_camera/ctl/commands.h"

#include <CLI/CLI.hpp>
#include <utility>

namespace virtual_camera {

namespace {

constexpr char kAbout[] =
    "Triggers events in a running virtual camera, and shows its state.\n"
    "The bus is at 127.0.0.1:6101 unless TARVEX_BUS_ADDRESS says otherwise; "
    "TARVEX_SUBJECT_PREFIX chooses among cameras that share it.";

// One subcommand that sends one command of the same name.
class Command {
 public:
  Command(CLI::App& app, CtlRequest& request, const std::string& name, const std::string& about)
      : sub_(app.add_subcommand(name, about)), request_(request) {
    sub_->parse_complete_callback([&request, name] { request.command["command"] = name; });
  }

  /// A text that becomes a member of the command; left out when it is not given.
  Command& Text(const std::string& argument, const std::string& key, const std::string& about,
                const CLI::Validator& check = {}) {
    return Add(argument, about, check, [&request = request_, key](const std::string& value) {
      request.command[key] = value;
    });
  }

  /// The same for a whole number.
  Command& Number(const std::string& argument, const std::string& key, const std::string& about,
                  int low, int high) {
    return Add(argument, about, CLI::Range(low, high),
               [&request = request_, key](const std::string& value) {
                 request.command[key] = std::stoi(value);
               });
  }

  Command& Required() {
    last_->required();
    return *this;
  }

 private:
  template <class Store>
  Command& Add(const std::string& argument, const std::string& about, const CLI::Validator& check,
               Store store) {
    last_ = sub_->add_option_function<std::string>(argument, std::move(store), about);
    last_->check(check);
    return *this;
  }

  CLI::App* sub_;
  CtlRequest& request_;
  CLI::Option* last_ = nullptr;
};

void AddCommands(CLI::App& app, CtlRequest& request) {
  app.description(kAbout);
  app.require_subcommand(1);
  Command(app, request, "car", "Has a car pass now")
      .Text("PLATE", "plate", "Its plate, 1 to 15 bytes; a random one without");
  Command(app, request, "lane",
          "Has a person or a vehicle stay in the lane; stay events must be on")
      .Text("WHO", "who", "person or vehicle", CLI::IsMember({"person", "vehicle"}))
      .Required()
      .Text("PLATE", "plate", "Plate of the vehicle, 1 to 15 bytes");
  Command(app, request, "gpio-in", "Sets a switching input")
      .Number("INPUT", "input", "Its number", 0, 3)
      .Required()
      .Number("LEVEL", "level", "0 or 1", 0, 1)
      .Required();
  Command(app, request, "serial", "Has a text come in on an RS-485 channel")
      .Number("CHANNEL", "channel", "0 or 1", 0, 1)
      .Required()
      .Text("TEXT", "text", "As it is, without an end of line")
      .Required();
  Command(app, request, "rename", "Gives the camera another name")
      .Text("NAME", "name", "1 to 64 bytes")
      .Required();
  Command(app, request, "readdress", "Gives the camera another address")
      .Text("IP", "ip", "An IP address")
      .Required();
  Command(app, request, "service", "Sets how a service answers")
      .Text("QUEUE", "queue", "Its queue, such as BUS_GET_IVS_INFO; \"state\" lists them all")
      .Required()
      .Text("MODE", "mode",
            "up: normally; down: nobody serves the queue; slow: after MS; garbage: with bytes "
            "that make no sense, and nothing is carried out",
            CLI::IsMember({"up", "down", "slow", "garbage"}))
      .Required()
      .Number("MS", "delay_ms", "Delay of \"slow\" in milliseconds", 0, 600000);
  Command(app, request, "state", "Prints the camera's state, as JSON");

  CLI::App* const records = app.add_subcommand(
      "records", "Writes the recognition records that are announced on the bus to a file");
  records
      ->add_option("FILE", request.record_file, "Is overwritten; virtual_camera --replay takes it")
      ->required();
  records->add_option("--count", request.record_count, "Ends after so many; otherwise with Ctrl-C")
      ->check(CLI::Range(int64_t{1}, int64_t{1} << 40));

  CLI::App* const record =
      app.add_subcommand("record",
                         "Writes what the plug-in is given to a file, for adapter_replay: "
                         "requests, bus messages, what "
                         "services answer, the link, the databases; the agent runs with --trace");
  record->add_option("FILE", request.capture_file, "Is overwritten")->required();
  record
      ->add_option("--seconds", request.capture_seconds,
                   "Ends after so many; otherwise with Ctrl-C")
      ->check(CLI::Range(int64_t{1}, int64_t{1} << 32));

  CLI::App* const trace = app.add_subcommand(
      "trace",
      "Shows the way of one result, message or request byte by byte; the console of "
      "\"./dev run\" knows it");
  trace->add_option("ID", request.trace_id,
                    "Plate id of a result, or an id of the list, which is shown without it");
  trace->parse_complete_callback([&request] { request.is_trace = true; });
}

}  // namespace

std::optional<int> ParseCommand(int argc, const char* const* argv, CtlRequest* request) {
  CLI::App app;
  AddCommands(app, *request);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& failure) {
    return app.exit(failure);
  }
  return std::nullopt;
}

}  // namespace virtual_camera
