// Waiting for what other threads and processes do.
#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

/// Looks again and again, until `condition()` holds or the time is over. The deadline
/// is for failures only: it is long, and says nothing about speed. The longer it has waited the
/// longer are the pauses, from 1 ms to 20: many tests wait at a time.
/// @return whether the condition held.
template <class Condition>
bool WaitUntil(Condition condition,
               std::chrono::milliseconds deadline = std::chrono::milliseconds(20000)) {
  constexpr std::chrono::nanoseconds kShortest = std::chrono::milliseconds(1);
  constexpr std::chrono::nanoseconds kLongest = std::chrono::milliseconds(20);
  const auto start = std::chrono::steady_clock::now();
  while (!condition()) {
    const std::chrono::nanoseconds waited = std::chrono::steady_clock::now() - start;
    if (waited >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::clamp(waited / 8, kShortest, kLongest));
  }
  return true;
}
