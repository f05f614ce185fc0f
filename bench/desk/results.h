// Results put on the bus, and followed to the broker's subscriber and to the store.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include <json/value.h>

struct ResultsOptions {
  int bus_port = 0;
  int broker_port = 0;
  std::string topic;  ///< where the results arrive
  pid_t pid = 0;      ///< of the program that is measured
  std::size_t count = 1000;
  std::size_t warm_up = 0;  ///< results before those, as fast as they are confirmed
  double rate = 0;          ///< per second; 0: as fast as they are confirmed
  std::size_t window = 1;   ///< on their way at a time, where there is no rate
  bool burst = false;       ///< all at once, waiting for none
  /// Whether the confirmations are answered here, at once, or by a camera.
  bool answer_confirmations = true;
  std::uint32_t first_id = 1;
  std::string full_picture;  ///< that each record names; empty: none
  std::string clip_picture;
};

/// Throws std::runtime_error.
Json::Value MeasureResults(const ResultsOptions& options);
