// Figures made of many measurements, as JSON.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#include <json/value.h>

inline std::int64_t NowNs() {
  using std::chrono::duration_cast;
  using std::chrono::nanoseconds;
  return duration_cast<nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// {"count", "mean", "p50", "p99", "max"} in microseconds; only the count where there is none.
inline Json::Value TimesJson(std::vector<std::int64_t> times_ns) {
  Json::Value json;
  json["count"] = Json::UInt64{times_ns.size()};
  if (times_ns.empty()) {
    return json;
  }
  std::sort(times_ns.begin(), times_ns.end());
  const auto at = [&times_ns](std::size_t percent) {
    return static_cast<double>(times_ns[(times_ns.size() - 1) * percent / 100]) / 1e3;
  };
  double sum_ns = 0;
  for (const std::int64_t time_ns : times_ns) {
    sum_ns += static_cast<double>(time_ns);
  }
  json["mean"] = sum_ns / static_cast<double>(times_ns.size()) / 1e3;
  json["p50"] = at(50);
  json["p99"] = at(99);
  json["max"] = at(100);
  return json;
}
