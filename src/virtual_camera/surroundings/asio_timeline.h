// The timeline of the running program: the system's clocks.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/asio_event_service.h"
#include "virtual_camera/surroundings/timeline.h"

namespace virtual_camera {

/// Tasks run on the event service's thread.
class AsioTimeline : public Timeline {
 public:
  explicit AsioTimeline(tarvex::AsioEventService& event_service) : event_service_(event_service) {}

  int64_t SteadyMs() const override;
  int64_t SystemUs() const override;
  void After(int64_t delay_ms, std::function<void()> task) override;

 private:
  tarvex::AsioEventService& event_service_;
};

}  // namespace virtual_camera
