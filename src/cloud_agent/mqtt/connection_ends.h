// How connections ended, and what several such ends in a row make likely.
#pragma once

#include <chrono>
#include <string>

namespace agent {

struct ConnectionEnd {
  std::string reason;
  bool was_ready = false;  ///< otherwise it was an attempt only
  std::chrono::steady_clock::duration stood{};
  bool was_taken_over = false;  ///< by another client of the same client id, as the broker says
  std::string denied_topic;     ///< of a publication that may have been denied; empty without one
};

class ConnectionEnds {
 public:
  /// @param longest_delay between two attempts: who stood for less than two of them stood for a
  ///                      short time, because two clients of one client id end each other's
  ///                      connections for ever.
  ConnectionEnds(std::string client_id, std::chrono::milliseconds longest_delay);

  /// @return the reason, and what the ends so far make likely.
  std::string Add(const ConnectionEnd& end);

  /// Whether the latest connection was a good one: the delay may begin at its shortest again.
  bool WasGood() const { return was_good_; }

 private:
  const std::string client_id_;
  const std::chrono::milliseconds stable_;
  int short_connections_ = 0;  // in a row
  int denials_ = 0;            // of denied_topic_, in a row
  std::string denied_topic_;
  bool was_good_ = false;
};

}  // namespace agent
