#include "platform/bus_watch.h"

#include <memory>
#include <mutex>
#include <utility>

namespace tarvex {
namespace {

std::mutex watch_mutex;
std::shared_ptr<const BusWatch> current_watch;

}  // namespace

void SetBusWatch(BusWatch watch) {
  auto fresh = watch ? std::make_shared<const BusWatch>(std::move(watch)) : nullptr;
  const std::lock_guard<std::mutex> lock(watch_mutex);
  current_watch.swap(fresh);
}

void NoteBusRequest(const BusRequest& request) {
  std::unique_lock<std::mutex> lock(watch_mutex);
  const auto watch = current_watch;  // kept: it may replace itself while it is called
  lock.unlock();
  if (watch) {
    (*watch)(request);
  }
}

}  // namespace tarvex
