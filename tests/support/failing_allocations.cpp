#include "failing_allocations.h"

#include <cstdlib>
#include <new>

#include "fake_platform.h"

// Sanitizers bring a malloc of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HAS_OWN_MALLOC 0
#else
#define HAS_OWN_MALLOC 1
#endif

namespace {

thread_local bool is_armed = false;
thread_local std::size_t allocations = 0;
thread_local std::size_t failing_number = 0;
thread_local FailingAllocation::Kind failing_kind = FailingAllocation::kOne;

/// Counts one allocation. @return whether it is to fail
bool Fails() {
  if (!is_armed || fake::undisturbed > 0) {
    return false;
  }
  ++allocations;
  return allocations == failing_number || (failing_kind == FailingAllocation::kAllFromThere &&
                                           failing_number != 0 && allocations > failing_number);
}

}  // namespace

FailingAllocation::FailingAllocation(std::size_t number, Kind kind) {
  allocations = 0;
  failing_number = number;
  failing_kind = kind;
  is_armed = true;
}

FailingAllocation::~FailingAllocation() { is_armed = false; }

std::size_t FailingAllocation::count() const { return allocations; }

#if HAS_OWN_MALLOC
// glibc's own.
extern "C" void* __libc_malloc(std::size_t size);

// jsoncpp takes the memory of its texts from here.
extern "C" void* malloc(std::size_t size) { return Fails() ? nullptr : __libc_malloc(size); }
#endif

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
#if HAS_OWN_MALLOC
  return malloc(size);
#else
  return Fails() ? nullptr : malloc(size);
#endif
}

void* operator new(std::size_t size) {
  if (void* memory = operator new(size, std::nothrow)) {
    return memory;
  }
  throw std::bad_alloc();
}

void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t& nothrow) noexcept {
  return operator new(size, nothrow);
}
void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { free(memory); }
void operator delete[](void* memory) noexcept { free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { free(memory); }
