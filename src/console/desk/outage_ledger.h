// What became of the results of an outage: the account that the page shows at its end.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include <json/value.h>

#include "console/passports/passport.h"

namespace console {

/// An outage begins with the first trouble and lasts until everything is whole again and
/// no result of it remains. It counts what the camera stored and what really came out of
/// the broker, so it takes nobody's word. One thread.
class OutageLedger {
 public:
  /// Whether something is cut, frozen, limping or away at present.
  void OnTrouble(bool is_trouble, Time_us now_us);

  /// A result was stored by the camera, marked as delivered, or came out of the broker.
  void OnStored(const std::string& sn, std::uint32_t plate_id);
  void OnMarkedAsDelivered(const std::string& sn, std::uint32_t plate_id, Time_us now_us);
  void OnArrived(const std::string& sn, std::uint32_t plate_id);

  /// The store's own count of results that it removed undelivered, which only grows.
  void OnRemoved(const std::string& sn, std::int64_t removed);

  /// Ends an outage whose results are all accounted for. To be called now and then.
  /// @return the closing line, once.
  std::optional<std::string> OnTime(Time_us now_us);

  /// null before the first outage.
  Json::Value ToJson(Time_us now_us) const;

 private:
  struct Result {
    bool is_stored = false;  ///< during the outage
    int copies = 0;
    std::optional<Time_us> marked_at_us;
  };
  struct Sums {
    int stored = 0;
    int arrived = 0;
    int left = 0;
    int lost = 0;
    int twice = 0;
  };

  Result& Of(const std::string& sn, std::uint32_t plate_id);
  Sums Count(Time_us now_us) const;
  std::string Line(const Sums& sums) const;

  bool is_trouble_ = false;
  bool is_running_ = false;
  std::optional<Time_us> began_us_;
  Time_us ended_us_ = 0;
  Time_us whole_since_us_ = 0;
  std::map<std::pair<std::string, std::uint32_t>, Result> results_;
  std::map<std::string, std::int64_t> removed_at_begin_;
  std::map<std::string, std::int64_t> removed_;
};

}  // namespace console
