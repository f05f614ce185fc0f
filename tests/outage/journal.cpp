#include "outage/journal.h"

#include <cstring>

#include "support/rig.h"

void Journal::Receive(const std::string& body) {
  const Json::Value message = ParseJson(body);
  const Json::Value& plate = message["payload"]["AlarmInfoPlate"]["result"]["PlateResult"];
  const Json::Value& time = plate["timeStamp"]["Timeval"];
  const std::string content =
      plate["license"].asString() + " " + time["sec"].asString() + "." + time["usec"].asString();
  const bool is_live = message["tag"].asInt() == 11;
  const std::lock_guard<std::mutex> lock(mutex_);
  ++totals_.messages;
  ++(is_live ? totals_.live : totals_.redelivered);
  const auto [received, is_first] = received_.emplace(plate["plateid"].asUInt(), content);
  if (is_first) {
    ++totals_.unique;
    totals_.under_two_ids += contents_.insert(content).second ? 0U : 1U;
  } else {
    ++(is_live ? totals_.live_duplicates : totals_.redelivered_duplicates);
    totals_.mixed_up += received->second == content ? 0U : 1U;
  }
}

void Journal::Announce(const std::string& record) {
  std::uint32_t plate_id = 0;
  if (record.size() >= 84) {
    memcpy(&plate_id, record.data() + 80, sizeof(plate_id));
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  announced_.insert(plate_id);
}

bool Journal::Has(std::uint32_t plate_id) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return received_.count(plate_id) != 0;
}

Journal::Totals Journal::totals() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return totals_;
}

std::set<std::uint32_t> Journal::Announced() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return announced_;
}
