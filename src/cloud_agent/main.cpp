// cloud_agent: hosts an adapter plug-in and connects it to an MQTT broker.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <iostream>
#include <optional>
#include <thread>
#include <vector>

#include <unistd.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/make_shared.hpp>

#include "chw_info.h"
#include "cloud_agent/agent.h"
#include "cloud_agent/mqtt/mqtt_link.h"
#include "cloud_agent/options.h"
#include "cloud_agent/pictures/picture_store.h"
#include "cloud_agent/plugin.h"
#include "cloud_agent/requests/request_line.h"
#include "cloud_agent/topic_levels.h"
#include "cloud_agent/trace/agent_trace.h"
#include "platform/asio_event_service.h"
#include "platform/bus_gate.h"
#include "platform/bus_watch.h"
#include "platform/log.h"
#include "tarvex/time_util.h"

namespace {

// A request of the plug-in that is under way is waited for as long as this.
constexpr std::chrono::seconds kStopPatience{10};

/// Hears SIGINT and SIGTERM on a thread of its own, because the event thread can be
/// waiting for the camera. The second signal ends the process, and so does time.
class StopSignals {
 public:
  /// @param on_stop called once, on that thread.
  explicit StopSignals(std::function<void()> on_stop) : on_stop_(std::move(on_stop)) {
    std::signal(SIGPIPE, SIG_IGN);
    signals_.async_wait([this](const boost::system::error_code& error, int) {
      if (!error) {
        OnFirst();
      }
    });
    thread_ = std::thread([this] { context_.run(); });
  }
  ~StopSignals() {
    context_.stop();
    thread_.join();
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  void OnFirst() {
    on_stop_();
    signals_.async_wait([](const boost::system::error_code& error, int) {
      if (!error) {
        _exit(1);
      }
    });
    patience_.expires_after(kStopPatience);
    patience_.async_wait([](const boost::system::error_code& error) {
      if (!error) {
        OnPatienceOver();
      }
    });
  }

  static void OnPatienceOver() {
    SYS_LOG(kLogWarning, "ending although a request is still under way");
    _exit(0);  // without DISCONNECT, so the broker publishes the will
  }

  std::function<void()> on_stop_;
  boost::asio::io_context context_{1};
  boost::asio::signal_set signals_{context_, SIGINT, SIGTERM};
  boost::asio::steady_timer patience_{context_};
  std::thread thread_;
};

int Fail(const std::string& error) {
  std::fprintf(stderr, "cloud_agent: %s\n", error.c_str());
  return 1;
}

int Run(agent::ProgramOptions options) {
  std::string error;
  const std::shared_ptr<agent::Plugin> plugin = agent::Plugin::Load(options.plugin_path, &error);
  if (plugin == nullptr) {
    return Fail(error);
  }
  agent::PictureStore pictures(options.pictures);
  if (!pictures.Open(&error)) {
    return Fail(error);
  }
  const std::string serial_number = hw_sn();
  error = serial_number.find('/') != std::string::npos ? "it has a slash"
                                                       : agent::CheckTopicLevels(serial_number);
  if (!error.empty()) {
    return Fail("the camera's serial number cannot be part of a topic: " + error);
  }
  options.agent.versions = {agent::AgentVersion(), plugin->BuildId(),
                            ChwInfo::Interface()->GetAppVer()};
  const double clock_scale = tarvex::ClockScaleFromEnvironment();
  agent::CompleteOptions(serial_number, clock_scale, &options);

  const auto service = boost::make_shared<tarvex::AsioEventService>(clock_scale);
  const StopSignals signals([&service] { service->Stop(); });
  const auto post = [&service](std::function<void()> task) { service->PostTask(std::move(task)); };
  agent::RequestLine requests(options.max_requests_waiting, post);
  agent::MqttLink link(
      options.link, service->context(), post,
      [&requests, topics = options.agent.requests.topics](agent::InboundRequest request) {
        return requests.Add(&request)
                   ? std::vector<agent::OutboundMessage>()
                   : agent::Refusal(request, topics,
                                    {agent::code::kBusy, "too many requests are waiting"});
      });
  agent::Screen screen(options.print_messages ? &std::cout : nullptr);
  agent::Agent::Parts parts;
  parts.post = post;
  parts.post_after = [&service](std::chrono::milliseconds delay, std::function<void()> task) {
    service->PostTaskAfter(delay, std::move(task));
  };
  parts.now = [] { return std::chrono::steady_clock::now(); };
  parts.create_adapter = [&] {
    return agent::Plugin::CreateAdapter(plugin, service, options.adapter_id);
  };
  parts.link = &link;
  parts.requests = &requests;
  parts.pictures = &pictures;
  parts.screen = &screen;
  parts.bus = tarvex::DpClient::CreateDpClient(service, tarvex::SocketAddress("127.0.0.1", 6101),
                                               "cloud_agent");
  std::optional<agent::AgentTrace> trace;
  if (options.trace) {
    trace.emplace(tarvex::Trace("cloud_agent", serial_number,
                                tarvex::BusTraceSink(service.get(), "cloud_agent")),
                  std::to_string(tarvex::XTimeUtil::TimeSecond()), parts.now);
    parts.trace = &*trace;
  }
  agent::Agent the_agent(options.agent, std::move(parts));
  tarvex::SetBusGate([&the_agent](const tarvex::DpMessage& message, std::function<void()> deliver) {
    the_agent.OnBusMessage(message, std::move(deliver));
  });
  tarvex::SetBusWatch(
      [&the_agent](const tarvex::BusRequest& request) { the_agent.OnBusRequest(request); });

  // This thread is the event thread. What waits in its line when it is stopped is not run.
  if (!the_agent.Start()) {
    return Fail("the plug-in made no adapter");
  }
  service->Run();
  const bool is_stopped = the_agent.Shutdown();
  tarvex::SetBusGate({});
  tarvex::SetBusWatch({});
  if (!is_stopped) {
    _exit(0);  // the network thread hangs in a look-up of the broker's name
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  agent::ProgramOptions options;
  if (const std::optional<int> exit_status = agent::ParseOptions(argc, argv, &options)) {
    return *exit_status;
  }
  try {
    return Run(std::move(options));
  } catch (const std::exception& failure) {
    return Fail(failure.what());
  }
}
