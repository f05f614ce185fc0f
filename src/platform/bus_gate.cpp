#include "platform/bus_gate.h"

#include <memory>
#include <mutex>
#include <utility>

namespace tarvex {
namespace {

std::mutex gate_mutex;
std::shared_ptr<const BusGate> current_gate;

}  // namespace

void SetBusGate(BusGate gate) {
  auto fresh = gate ? std::make_shared<const BusGate>(std::move(gate)) : nullptr;
  const std::lock_guard<std::mutex> lock(gate_mutex);
  current_gate.swap(fresh);
}

void PassBusGate(const DpMessage& message, std::function<void()> deliver) {
  std::unique_lock<std::mutex> lock(gate_mutex);
  const auto gate = current_gate;  // kept: it may replace itself while it is called
  lock.unlock();
  if (gate) {
    (*gate)(message, std::move(deliver));
  } else {
    deliver();
  }
}

}  // namespace tarvex
