#include "virtual_camera/surroundings/asio_timeline.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace virtual_camera {

namespace {

template <class Clock>
auto SinceEpoch() {
  return Clock::now().time_since_epoch();
}

}  // namespace

int64_t AsioTimeline::SteadyMs() const {
  using std::chrono::milliseconds;
  return std::chrono::duration_cast<milliseconds>(SinceEpoch<std::chrono::steady_clock>()).count();
}

int64_t AsioTimeline::SystemUs() const {
  using std::chrono::microseconds;
  return std::chrono::duration_cast<microseconds>(SinceEpoch<std::chrono::system_clock>()).count();
}

void AsioTimeline::After(int64_t delay_ms, std::function<void()> task) {
  event_service_.PostTaskAfter(std::chrono::milliseconds(std::max<int64_t>(delay_ms, 0)),
                               std::move(task));
}

}  // namespace virtual_camera
