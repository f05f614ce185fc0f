// cloud_agent: hosts an adapter plug-in and connects it to an MQTT broker.

#include <atomic>
#include <csignal>
#include <cstdio>
#include <functional>
#include <iostream>
#include <thread>

#include <unistd.h>
#include <boost/make_shared.hpp>

#include "chw_info.h"
#include "cloud_agent/address_text.h"
#include "cloud_agent/agent.h"
#include "cloud_agent/mqtt_link.h"
#include "cloud_agent/options.h"
#include "cloud_agent/picture_store.h"
#include "cloud_agent/plugin.h"
#include "platform/asio_event_service.h"
#include "platform/bus_gate.h"
#include "platform/log.h"

namespace {

/// Hears SIGINT and SIGTERM on a thread of its own; the second one ends the process.
class StopSignals {
 public:
  // To be made before any other thread, which then ignores the signals too.
  StopSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  }
  ~StopSignals() { Forget(); }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  void Watch(std::function<void()> on_stop) {
    thread_ = std::thread([this, on_stop = std::move(on_stop)] {
      int signal = 0;
      sigwait(&signals_, &signal);
      if (is_over_) {
        return;
      }
      on_stop();
      sigwait(&signals_, &signal);
      if (!is_over_) {
        _exit(1);
      }
    });
  }

  // What Watch() was given is not called any more.
  void Forget() {
    if (thread_.joinable()) {
      is_over_ = true;
      // The thread waits for this signal, which is blocked: nothing is terminated.
      pthread_kill(thread_.native_handle(), SIGTERM);  // NOLINT(bugprone-bad-signal-to-kill-thread)
      thread_.join();
    }
  }

 private:
  sigset_t signals_ = {};
  std::atomic<bool> is_over_{false};
  std::thread thread_;
};

int Fail(const std::string& error) {
  std::fprintf(stderr, "cloud_agent: %s\n", error.c_str());
  return 1;
}

int Run(agent::ProgramOptions options) {
  StopSignals signals;
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
  const double clock_scale = tarvex::ClockScaleFromEnvironment();
  agent::CompleteOptions(serial_number, clock_scale, &options);

  const auto service = boost::make_shared<tarvex::AsioEventService>(clock_scale);
  const auto post = [&service](std::function<void()> task) { service->PostTask(std::move(task)); };
  agent::MqttLink link(
      options.link, post, [base = options.agent.base](const agent::InboundRequest& request) {
        return agent::RequestRouter::Refusal(base, request, "too many requests are waiting");
      });
  agent::LinePrinter printer(std::cout);
  agent::Agent::Parts parts;
  parts.post = post;
  parts.post_after = [&service](std::chrono::milliseconds delay, std::function<void()> task) {
    service->PostTaskAfter(delay, std::move(task));
  };
  parts.create_adapter = [&] {
    return agent::Plugin::CreateAdapter(plugin, service, options.adapter_id);
  };
  parts.link = &link;
  parts.pictures = &pictures;
  parts.printer = options.print_messages ? &printer : nullptr;
  parts.bus = tarvex::DpClient::CreateDpClient(service, tarvex::SocketAddress("127.0.0.1", 6101),
                                               "cloud_agent");
  agent::Agent the_agent(options.agent, std::move(parts));
  tarvex::SetBusGate([&the_agent](const tarvex::DpMessage& message, std::function<void()> deliver) {
    the_agent.OnBusMessage(message, std::move(deliver));
  });

  int exit_status = 0;
  service->PostTask([&] {
    if (!the_agent.Start()) {
      exit_status = Fail("the plug-in made no adapter");
      service->Stop();
    }
  });
  signals.Watch([&] {
    service->PostTask([&] {
      the_agent.Shutdown();
      service->Stop();
    });
  });
  service->Run();
  signals.Forget();
  tarvex::SetBusGate({});
  return exit_status;
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
