#include "desk_cars.h"

#include <cstring>
#include <stdexcept>
#include <string>

#include "support/wait_until.h"
#include "wire.h"

namespace hostcheck {

DeskCars::DeskCars() : link_(tarvex::NatsLink::Connect(tarvex::BusAddress(), "hostcheck")) {
  if (!link_ || !WaitUntil([this] { return link_->IsConnected(); })) {
    throw std::runtime_error("there is no bus; TARVEX_BUS_ADDRESS says where to look");
  }
  natsStatus status = NATS_OK;
  silent_queue_ = link_->Subscribe(
      tarvex::BusSubject(kSilentQueue), "hostcheck", [](natsMsg*) {}, &status);
  if (!silent_queue_ || link_->Flush(5000) != NATS_OK) {
    throw std::runtime_error("the bus does not take a subscription");
  }
}

void DeskCars::Recognise(int count) {
  for (int i = 0; i < count; ++i) {
    std::string record(kRecordSize, '\0');
    const std::uint32_t plate_id = ++last_plate_id_;
    std::memcpy(&record[kPlateIdOffset], &plate_id, sizeof(plate_id));
    link_->Publish(tarvex::BusSubject(kResultTopic), record);
  }
}

}  // namespace hostcheck
