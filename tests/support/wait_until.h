// Waiting for what other threads and processes do.
#pragma once

#include <chrono>
#include <thread>

/// Looks again and again, until `condition()` holds or the time is over. The deadline
/// is for failures only: it is long, and says nothing about speed.
/// @return whether the condition held.
template <class Condition>
bool WaitUntil(Condition condition,
               std::chrono::milliseconds deadline = std::chrono::milliseconds(20000)) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}
