#include "outage/journal.h"

#include <cstring>

#include "support/rig.h"

void Journal::Receive(const std::string& body) {
  const Json::Value message = ParseJson(body);
  const std::uint32_t plate_id =
      message["payload"]["AlarmInfoPlate"]["result"]["PlateResult"]["plateid"].asUInt();
  const std::lock_guard<std::mutex> lock(mutex_);
  ++totals_.messages;
  ++(message["tag"].asInt() == 11 ? totals_.live : totals_.redelivered);
  if (++received_[plate_id] == 1) {
    ++totals_.unique;
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
