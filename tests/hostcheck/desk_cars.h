// Cars for a host on the desk's bus.
#pragma once

#include <memory>

#include "platform/nats_link.h"

namespace hostcheck {

/// Announces results on the bus as the virtual camera does, without a store behind them, and serves
/// the queue that answers nothing. The bus is where TARVEX_BUS_ADDRESS says.
class DeskCars {
 public:
  /// Throws std::runtime_error where there is no bus.
  DeskCars();

  void Recognise(int count);

 private:
  tarvex::NatsSubscription silent_queue_;  // outlives the link
  std::shared_ptr<tarvex::NatsLink> link_;
  unsigned last_plate_id_ = 0;
};

}  // namespace hostcheck
