#include "virtual_camera/camera.h"

#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/log.h"
#include "virtual_camera/services/services.h"

namespace virtual_camera {

namespace {

// Cars that are due are recognised in turns no longer than this; requests are answered in
// between.
constexpr int64_t kTurn_ms = 50;
constexpr int64_t kWaitForBus_ms = 3000;
constexpr int kMaxSlowAnswers = 1000;
// Neither text nor a whole number of records.
constexpr char kGarbage[] = "\xff\x00{]garbage";

std::vector<std::string> Queues() {
  std::vector<std::string> queues;
  for (const ServiceRow& row : ServiceTable()) {
    queues.emplace_back(row.queue);
  }
  return queues;
}

}  // namespace

Camera::Camera(const CameraOptions& options, std::function<void()> on_ready)
    : timeline_(event_service_),
      on_ready_(std::move(on_ready)),
      replay_(options.replay_file.empty() ? nullptr
                                          : std::make_unique<ReplayFile>(options.replay_file)),
      modes_(Queues()),
      key_values_(event_service_),
      bus_(event_service_, [this](bool connected) { OnBusState(connected); }),
      claim_(bus_,
             [this] {
               is_taken_ = true;
               Stop();
             }),
      serial_lines_(event_service_.context()),
      trace_(options.trace ? std::make_unique<const tarvex::Trace>(
                                 "virtual_camera", options.device.serial_number,
                                 tarvex::BusTraceSink(&event_service_, "virtual_camera"))
                           : nullptr),
      device_(options.device, {timeline_, claim_, key_values_, serial_lines_, trace_.get()}),
      control_(device_, modes_, [this] { return ConnectionState(); }),
      cars_per_second_(options.cars_per_minute / 60),
      replays_per_second_(replay_ ? options.replay_per_second : 0) {
  for (const ServiceRow& row : ServiceTable()) {
    services_[row.queue] = row.create(device_);
  }
  modes_.OnChange([this] { ApplyModes(); });
  device_.power.OnChange([this](bool is_up) { OnPower(is_up); });
  // Cars pass also while there is no bus.
  timeline_.After(kWaitForBus_ms, [this] { BeginTraffic(); });
}

void Camera::Run() {
  event_service_.Run();
  if (is_taken_) {
    throw std::runtime_error(
        "another camera serves this bus; give each of them a TARVEX_SUBJECT_PREFIX of its own");
  }
}

void Camera::OnBusState(bool connected) {
  SYS_LOG(connected ? kLogInfo : kLogWarning,
          connected ? "connected to the bus" : "the bus is not reachable");
  if (!connected || !claim_.Claim()) {
    return;
  }
  if (!bus_.IsServing(kControlQueue)) {
    bus_.Serve(kControlQueue, [this](const std::string& command, const BusServer::Reply& reply) {
      control_.Handle(command, reply);
    });
  }
  // Also serves what could not be served while the bus was away.
  ApplyModes();
  if (!on_ready_ || !bus_.Flush()) {
    return;  // ready with the next connection, where this one is lost already
  }
  std::exchange(on_ready_, nullptr)();
  BeginTraffic();
}

void Camera::BeginTraffic() {
  if (!std::exchange(is_in_traffic_, true)) {
    cars_ = Pace(cars_per_second_, timeline_.SteadyMs());
    replays_ = Pace(replays_per_second_, timeline_.SteadyMs());
    SendCars();
    SendReplays();
  }
}

void Camera::OnPower(bool is_up) {
  SYS_LOG(kLogInfo, is_up ? "the camera is back" : "the camera reboots");
  modes_.SetSilent(!is_up);
}

void Camera::ApplyModes() {
  for (const auto& entry : services_) {
    const std::string& queue = entry.first;
    if (!modes_.IsServed(queue)) {
      bus_.StopServing(queue);
    } else if (!bus_.IsServing(queue)) {
      bus_.Serve(queue, [this, queue](const std::string& request, const BusServer::Reply& reply) {
        HandleRequest(queue, request, reply);
      });
    }
  }
  if (bus_.IsConnected()) {
    bus_.Flush();
  }
}

void Camera::HandleRequest(const std::string& queue, const std::string& request,
                           const BusServer::Reply& reply) {
  const ServiceMode mode = modes_.Of(queue);
  if (mode.kind == ServiceMode::Kind::kGarbage) {
    reply(std::string(kGarbage, sizeof(kGarbage) - 1));
  } else if (mode.kind == ServiceMode::Kind::kSlow) {
    if (slow_answers_ < kMaxSlowAnswers) {
      ++slow_answers_;
      timeline_.After(mode.delay_ms, [this, queue, request, reply] {
        --slow_answers_;
        AnswerBy(queue, request, reply);
      });
    }
  } else {
    AnswerBy(queue, request, reply);
  }
}

void Camera::AnswerBy(const std::string& queue, const std::string& request,
                      const BusServer::Reply& reply) {
  reply(services_.at(queue)->Answer(request));
}

void Camera::SendCars() {
  const int64_t begin_ms = timeline_.SteadyMs();
  for (int64_t due = cars_.Due(begin_ms); due > 0; --due) {
    cars_.Take();
    if (!device_.power.IsUp()) {
      continue;  // not seen during a reboot
    }
    try {
      device_.recognition.CarPasses(Trigger::kVideo, std::nullopt);
    } catch (const std::exception& error) {
      SYS_LOG(kLogError, "a car passed and its result could not be stored: %s", error.what());
    }
    if (timeline_.SteadyMs() - begin_ms > kTurn_ms) {
      break;
    }
  }
  timeline_.After(cars_.NextInMs(), [this] { SendCars(); });
}

void Camera::SendReplays() {
  if (!replay_) {
    return;
  }
  if (!device_.power.IsUp()) {
    replays_.Due(timeline_.SteadyMs());
    timeline_.After(kTurn_ms, [this] { SendReplays(); });
    return;
  }
  for (int64_t due = replays_.Due(timeline_.SteadyMs()); due > 0; --due) {
    const std::optional<std::string> record = replay_->Next();
    if (!record) {
      SYS_LOG(kLogInfo, "all records are replayed");
      return;
    }
    replays_.Take();
    try {
      device_.recognition.Replay(*record);
    } catch (const std::exception& error) {
      SYS_LOG(kLogError, "a replayed record could not be stored: %s", error.what());
    }
  }
  timeline_.After(replays_.NextInMs(), [this] { SendReplays(); });
}

Json::Value Camera::ConnectionState() const {
  Json::Value state;
  state["bus"] = bus_.IsConnected();
  state["requests_dropped"] = static_cast<Json::Int64>(bus_.dropped());
  state["cars_given_up"] = static_cast<Json::Int64>(cars_.given_up());
  return state;
}

}  // namespace virtual_camera
