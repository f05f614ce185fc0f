// What an independent subscriber has received, and what passed on the device bus.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>

/// Results by plate id. Filled on the threads of its sources.
class Journal {
 public:
  struct Totals {
    std::uint64_t messages = 0;
    std::uint64_t live = 0;  ///< of those, published as they were recognised
    std::uint64_t redelivered = 0;
    std::uint64_t unique = 0;  ///< different plate ids
    std::uint64_t live_duplicates = 0;
    std::uint64_t redelivered_duplicates = 0;
    std::uint64_t mixed_up = 0;       ///< other plate or time than before under that plate id
    std::uint64_t under_two_ids = 0;  ///< plate and time of another plate id
  };

  /// A message "ivs_result" of the agent. Throws std::runtime_error when it is none.
  void Receive(const std::string& body);

  /// A 552-byte record on the bus.
  void Announce(const std::string& record);

  bool Has(std::uint32_t plate_id) const;
  Totals totals() const;

  /// Plate ids that were announced on the bus.
  std::set<std::uint32_t> Announced() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::uint32_t, std::string> received_;  ///< plate id to plate and time
  std::set<std::string> contents_;                 ///< the different plates and times
  std::set<std::uint32_t> announced_;
  Totals totals_;
};
