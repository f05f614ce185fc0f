#include "platform/bus_watch.h"

#include <utility>

#include "platform/hook.h"

namespace tarvex {
namespace {

Hook<BusWatch> bus_watch;

}  // namespace

const char* BusOutcomeText(BusOutcome outcome) {
  switch (outcome) {
    case BusOutcome::kAnswered:
      return "answered";
    case BusOutcome::kNobody:
      return "nobody";
    case BusOutcome::kTimedOut:
      return "timed_out";
    case BusOutcome::kNotConnected:
      break;
  }
  return "not_connected";
}

void SetBusWatch(BusWatch watch) { bus_watch.Set(std::move(watch)); }

void NoteBusRequest(const BusRequest& request) {
  if (const auto watch = bus_watch.Get()) {
    (*watch)(request);
  }
}

}  // namespace tarvex
