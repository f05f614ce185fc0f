// What is left in the process of an adapter that is gone: nothing.
#include <dlfcn.h>
#include <malloc.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "adapter_test.h"

namespace {

class Unloading : public AdapterTest {
 protected:
  /// Loads the library, has an adapter do some work, and unloads it, so many times.
  void LiveAndDie(int times) {
    Console([this, times] {
      for (int i = 0; i < times; ++i) {
        fake::ResetPlatform();
        events_.reset(new fake::EventService);
        Create();
        adapter_->Initialize(image_func_);
        adapter_->SubscribeMessage("ivs_result");
        Deliver("BUS_SRV_IVS_RESULT", RecordBytes());
        Destroy();
      }
    });
    fake::ResetPlatform();
  }
  /// How many entries a directory of /proc/self has.
  static size_t CountIn(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
  }
};

TEST_F(Unloading, AThousandTimesLeavesNoMemoryThreadOrDescriptor) {
  LiveAndDie(10);  // what the loader, the allocator and the test keep has its size then
  const size_t threads = CountIn("/proc/self/task");
  const size_t descriptors = CountIn("/proc/self/fd");
  const size_t memory = mallinfo2().uordblks;
  LiveAndDie(1000);
  // The least that the allocator hands out is more than a word.
  EXPECT_LT(mallinfo2().uordblks, memory + 1000 * sizeof(void*));
  EXPECT_EQ(CountIn("/proc/self/task"), threads);
  EXPECT_EQ(CountIn("/proc/self/fd"), descriptors);
  EXPECT_EQ(dlopen(LibraryFile(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "it is still loaded";
}

}  // namespace
