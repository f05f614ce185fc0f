#include "virtual_camera/surroundings/bus_claim.h"

#include <chrono>
#include <cstdio>
#include <random>
#include <utility>

#include "platform/log.h"

namespace virtual_camera {

namespace {

constexpr char kTopic[] = "CAMERA_PRESENCE";
constexpr int64_t kClaimAnswer_ms = 2000;

// When this camera began (hexadecimal, microseconds since 1970), and a random number. All
// have the same length, and of two the older camera's is the smaller text.
std::string NewInstance() {
  using std::chrono::microseconds;
  const auto began = std::chrono::system_clock::now().time_since_epoch();
  char text[32];
  (void)std::snprintf(
      text, sizeof(text), "%016llx%08x",
      static_cast<unsigned long long>(std::chrono::duration_cast<microseconds>(began).count()),
      static_cast<unsigned>(std::random_device{}()));
  return text;
}

}  // namespace

BusClaim::BusClaim(BusServer& bus, std::function<void()> on_taken)
    : bus_(bus), on_taken_(std::move(on_taken)), instance_(NewInstance()) {}

bool BusClaim::Claim() {
  if (!is_held_) {
    switch (bus_.Ask(kTopic, instance_, kClaimAnswer_ms)) {
      case BusServer::Asked::kAnswered:
        on_taken_();
        return false;
      case BusServer::Asked::kNotSent:
        return false;  // the connection is lost again; the next one calls this again
      case BusServer::Asked::kNoAnswer:
        SYS_LOG(kLogWarning,
                "another camera is on this bus and does not answer; serving without its answer");
        break;
      case BusServer::Asked::kNobodyListens:
        break;
    }
    bus_.Listen(kTopic, [this](const std::string& instance, const BusServer::Reply& reply) {
      OnMessage(instance, reply);
    });
    is_held_ = true;
  }
  // For a camera that asked before this one listened, or while this one was not connected.
  bus_.Announce(kTopic, instance_);
  return true;
}

bool BusClaim::Announce(const std::string& topic, const std::string& body) {
  return is_held_ && bus_.Announce(topic, body);
}

void BusClaim::OnMessage(const std::string& instance, const BusServer::Reply& reply) {
  if (instance == instance_ || instance.size() != instance_.size()) {
    return;  // this camera's own, or not from a camera
  }
  if (reply) {
    reply(instance_);  // to a camera that has not begun to serve, and ends
  } else if (instance < instance_) {
    on_taken_();
  } else {
    bus_.Announce(kTopic, instance_);
  }
}

}  // namespace virtual_camera
