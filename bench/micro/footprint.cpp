// How much memory the plug-in takes from the heap, and how long it takes to load. Prints a line of
// JSON.
#include <dlfcn.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "plug_in.h"
#include "sigslot.h"
#include "work.h"

namespace {

constexpr int kLoads = 101;
constexpr int kMostWaiting = 20;

size_t Heap_bytes() { return mallinfo2().uordblks; }

/// The median time of loading, in microseconds.
double Load_us() {
  using std::chrono::steady_clock;
  std::vector<double> times;
  for (int i = 0; i < kLoads; ++i) {
    const auto begin = steady_clock::now();
    void* const library = dlopen(bench::LibraryFile(), RTLD_NOW | RTLD_LOCAL);
    times.push_back(std::chrono::duration<double, std::micro>(steady_clock::now() - begin).count());
    dlclose(library);
  }
  std::nth_element(times.begin(), times.begin() + kLoads / 2, times.end());
  return times[kLoads / 2];
}

/// Looks at the heap in the middle of a publication, when most is there.
class Host : public sigslot::has_slots<sigslot::single_threaded> {
 public:
  void OnPush(const std::string& /*name*/, const Json::Value& /*payload*/,
              const std::string& /*version*/, unsigned long long /*tag*/) {
    most_ = std::max(most_, Heap_bytes());
  }
  size_t most() const { return most_; }

 private:
  size_t most_ = 0;
};

}  // namespace

int main() {
  const double load_us = Load_us();
  const boost::shared_ptr<tarvex::DpMessage> message(
      new tarvex::DpMessage{"BUS_SRV_IVS_RESULT", bench::PlateRecord()});
  bench::Answers("BUS_GET_IVS_INFO", R"({"state_code":200})");
  const size_t before = Heap_bytes();
  bench::PlugIn& plug_in = bench::ThePlugIn();
  const size_t idle = Heap_bytes() - before;
  Host host;
  plug_in.adapter->SignalPushMessage.connect(&host, &Host::OnPush);
  for (int i = 0; i < kMostWaiting; ++i) {
    const boost::shared_ptr<tarvex::DpClient> bus = bench::TheBus();
    bus->SignalDpMessage(bus, message);
    plug_in.events->Deliver();
  }
  const size_t most = host.most() - before;
  for (int i = 0; i < kMostWaiting; ++i) {
    plug_in.adapter->OnMessagePublished(11);
  }
  const size_t after = Heap_bytes() - before;
  // On a line of its own: the plug-in prints too.
  printf("\n{\"load_us\":%.0f,\"heap_idle\":%zu,\"heap_most\":%zu,\"heap_after\":%zu}\n", load_us,
         idle, most, after);
  plug_in.adapter->SignalPushMessage.disconnect(&host);
}
