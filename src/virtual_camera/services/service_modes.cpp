#include "virtual_camera/services/service_modes.h"

#include "virtual_camera/device/request_error.h"

namespace virtual_camera {

namespace {

const std::map<std::string, ServiceMode::Kind>& Names() {
  static const std::map<std::string, ServiceMode::Kind> names = {
      {"up", ServiceMode::Kind::kUp},
      {"down", ServiceMode::Kind::kDown},
      {"slow", ServiceMode::Kind::kSlow},
      {"garbage", ServiceMode::Kind::kGarbage}};
  return names;
}

std::string NameOf(ServiceMode::Kind kind) {
  for (const auto& [name, value] : Names()) {
    if (value == kind) {
      return name;
    }
  }
  return "";
}

}  // namespace

ServiceModes::ServiceModes(const std::vector<std::string>& queues) {
  for (const std::string& queue : queues) {
    modes_[queue] = {};
  }
}

void ServiceModes::Set(const std::string& queue, const std::string& mode, int delay_ms) {
  const auto found = modes_.find(queue);
  if (found == modes_.end()) {
    std::string known;
    for (const auto& entry : modes_) {
      known += " " + entry.first;
    }
    throw RequestError("there is no service \"" + queue + "\", only" + known);
  }
  const auto named = Names().find(mode);
  if (named == Names().end()) {
    throw RequestError("a service is up, down, slow or garbage, not \"" + mode + "\"");
  }
  if (delay_ms < 0 || delay_ms > kMaxDelay_ms) {
    throw RequestError("a delay is 0 to 600000 ms");
  }
  found->second = {named->second, named->second == ServiceMode::Kind::kSlow ? delay_ms : 0};
  if (on_change_) {
    on_change_();
  }
}

void ServiceModes::SetSilent(bool silent) {
  is_silent_ = silent;
  if (on_change_) {
    on_change_();
  }
}

bool ServiceModes::IsServed(const std::string& queue) const {
  return !is_silent_ && Of(queue).kind != ServiceMode::Kind::kDown;
}

ServiceMode ServiceModes::Of(const std::string& queue) const {
  const auto found = modes_.find(queue);
  return found != modes_.end() ? found->second : ServiceMode{};
}

Json::Value ServiceModes::State() const {
  Json::Value state(Json::objectValue);
  for (const auto& [queue, mode] : modes_) {
    state[queue] =
        NameOf(mode.kind) +
        (mode.kind == ServiceMode::Kind::kSlow ? " " + std::to_string(mode.delay_ms) : "");
  }
  return state;
}

}  // namespace virtual_camera
