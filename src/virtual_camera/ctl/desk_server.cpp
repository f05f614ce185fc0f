#include "virtual_camera/ctl/desk_server.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>

namespace virtual_camera {

namespace {

constexpr std::chrono::seconds kConnect{3};

}  // namespace

std::string NameOf(const DeskServer& server) {
  return std::string(server.what) + " at " + tarvex::EffectiveServersText(server.address());
}

std::shared_ptr<tarvex::NatsLink> Connected(const DeskServer& server) {
  // Shared with the callback, which the library may call after this function.
  struct Waiter {
    std::mutex mutex;
    std::condition_variable changed;
  };
  const auto waiter = std::make_shared<Waiter>();
  auto link = tarvex::NatsLink::Connect(server.address(), "camera_ctl", [waiter](bool) {
    const std::lock_guard<std::mutex> lock(waiter->mutex);
    waiter->changed.notify_all();
  });
  if (!link) {
    throw std::runtime_error(std::string("the address of ") + server.what + " cannot be used");
  }
  std::unique_lock<std::mutex> lock(waiter->mutex);
  if (!waiter->changed.wait_for(lock, kConnect, [&link] { return link->IsConnected(); })) {
    throw std::runtime_error(NameOf(server) + " is not reachable; is the camera running?");
  }
  return link;
}

}  // namespace virtual_camera
