// Memory that runs out when a test says so: operator new, and malloc where no sanitizer has it.
// For programs that link failing_allocations.cpp.
#pragma once

#include <cstddef>

/// Has an allocation of this thread fail while it lives. One at a time.
class FailingAllocation {
 public:
  enum Kind {
    kOne,          ///< that one
    kAllFromThere  ///< that one and all after it
  };

  /// @param number of the allocation that fails, from 1; 0: none, they are only counted.
  FailingAllocation(std::size_t number, Kind kind);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  /// How many there were, those that failed among them.
  std::size_t count() const;
};
