// What has happened, counted for Prometheus.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include <prometheus/counter.h>
#include <prometheus/family.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include "console/passports/passport.h"

namespace console {

/// Since the console was started. One thread.
class Metrics {
 public:
  /// @param request_names those that have a label of their own; all others share "other".
  explicit Metrics(std::set<std::string> request_names);

  /// A step of a passport.
  void OnStep(const Passport& passport, const char* step);

  void OnOnline(const std::string& sn, bool is_online);

  /// Undelivered results in a camera's store.
  void OnBacklog(const std::string& sn, std::int64_t count);

  /// All of it in the Prometheus text format.
  std::string Text() const;

 private:
  void OnAnswered(const Passport& request);

  const std::set<std::string> request_names_;
  prometheus::Registry registry_;
  prometheus::Family<prometheus::Counter>& results_;
  prometheus::Family<prometheus::Counter>& requests_;
  prometheus::Family<prometheus::Gauge>& online_;
  prometheus::Family<prometheus::Gauge>& backlog_;
  prometheus::Family<prometheus::Histogram>& acknowledgement_seconds_;
  prometheus::Family<prometheus::Histogram>& request_seconds_;
};

}  // namespace console
