#include "platform/bus_gate.h"

#include <utility>

#include "platform/hook.h"

namespace tarvex {
namespace {

Hook<BusGate> bus_gate;

}  // namespace

void SetBusGate(BusGate gate) { bus_gate.Set(std::move(gate)); }

void PassBusGate(const DpMessage& message, std::function<void()> deliver) {
  if (const auto gate = bus_gate.Get()) {
    (*gate)(message, std::move(deliver));
  } else {
    deliver();
  }
}

}  // namespace tarvex
