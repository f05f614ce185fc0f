#include "platform/bus_watch.h"

#include <utility>

#include "platform/hook.h"

namespace tarvex {
namespace {

Hook<BusWatch> bus_watch;

}  // namespace

void SetBusWatch(BusWatch watch) { bus_watch.Set(std::move(watch)); }

void NoteBusRequest(const BusRequest& request) {
  if (const auto watch = bus_watch.Get()) {
    (*watch)(request);
  }
}

}  // namespace tarvex
