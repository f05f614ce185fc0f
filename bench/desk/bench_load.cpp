// bench_load: loads one part of the desk and prints what that took, as JSON. Each subcommand is
// one measurement; bench_desk.py puts them together.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>

#include <json/writer.h>

#include "console/link/tcp_proxy.h"
#include "figures.h"
#include "results.h"
#include "round_trips.h"

namespace {

std::string FileText(const std::string& file) {
  std::ifstream stream(file);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

void Print(const Json::Value& figures) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  std::cout << Json::writeString(writer, figures) << std::endl;
}

void AddResults(CLI::App& app, ResultsOptions& options) {
  CLI::App* const sub = app.add_subcommand("results", "Results from the bus to the broker");
  sub->add_option("--bus", options.bus_port)->required();
  sub->add_option("--broker", options.broker_port)->required();
  sub->add_option("--topic", options.topic)->required();
  sub->add_option("--pid", options.pid)->required();
  sub->add_option("--count", options.count)->capture_default_str();
  sub->add_option("--warm-up", options.warm_up)->capture_default_str();
  sub->add_option("--rate", options.rate)->capture_default_str();
  sub->add_option("--window", options.window)->capture_default_str();
  sub->add_option("--first-id", options.first_id)->capture_default_str();
  sub->add_option("--full-picture", options.full_picture);
  sub->add_option("--clip-picture", options.clip_picture);
  sub->add_flag("--burst", options.burst);
  sub->add_flag_callback("--camera-confirms", [&options] { options.answer_confirmations = false; });
  sub->callback([&options] { Print(MeasureResults(options)); });
}

CLI::App* AddRoundTrips(CLI::App& app, RoundTripOptions& options, const char* name,
                        const char* about, Json::Value (*measure)(const RoundTripOptions&)) {
  CLI::App* const sub = app.add_subcommand(name, about);
  sub->add_option("--bus", options.bus_port)->required();
  sub->add_option("--broker", options.broker_port);
  sub->add_option("--base", options.base);
  sub->add_option("--count", options.count)->capture_default_str();
  sub->add_option("--queue", options.queue);
  sub->add_option_function<std::string>(
      "--request-file", [&options](const std::string& file) { options.request = FileText(file); });
  sub->add_option("--first-id", options.first_id)->capture_default_str();
  sub->callback([&options, measure] { Print(measure(options)); });
  return sub;
}

/// Prints the port of a way to the broker that has little room, and keeps it up until its
/// standard input is closed.
void KeepSlowLink(int broker_port, int bytes_per_second) {
  console::TcpProxy proxy(broker_port);
  proxy.Limp(std::chrono::milliseconds(0), static_cast<std::size_t>(bytes_per_second));
  std::cout << proxy.port() << std::endl;
  std::string line;
  while (std::getline(std::cin, line)) {
  }
}

}  // namespace

int main(int argc, char** argv) try {
  CLI::App app("Loads one part of the desk and prints what that took, as JSON", "bench_load");
  app.require_subcommand(1);
  ResultsOptions results;
  AddResults(app, results);
  RoundTripOptions round_trips;
  CLI::App* const requests = AddRoundTrips(app, round_trips, "requests",
                                           "Requests of the cloud, one at a time", MeasureRequests);
  requests->add_option("--name", round_trips.name)->required();
  requests->add_option("--pid", round_trips.pid)->required();
  requests->add_option_function<std::string>(
      "--body-file",
      [&round_trips](const std::string& file) { round_trips.body = FileText(file); });
  AddRoundTrips(app, round_trips, "delivery-floor", "What a delivery is made of at least",
                MeasureDeliveryFloor);
  AddRoundTrips(app, round_trips, "bus-requests", "Bare bus requests, one at a time",
                MeasureBusRequests);
  CLI::App* const slow = app.add_subcommand("slow-link", "A slow way to the broker");
  int broker_port = 0;
  int bytes_per_second = 0;
  slow->add_option("--broker", broker_port)->required();
  slow->add_option("--bytes-per-second", bytes_per_second)->required();
  slow->callback([&] { KeepSlowLink(broker_port, bytes_per_second); });
  CLI11_PARSE(app, argc, argv);
  return 0;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "bench_load: %s\n", failure.what());
  return 1;
}
