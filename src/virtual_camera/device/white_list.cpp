#include "virtual_camera/device/white_list.h"

#include <cstdlib>
#include <optional>

#include "json_text.h"
#include "platform/json_member.h"
#include "virtual_camera/world/ivs_record.h"

namespace virtual_camera {

namespace {

constexpr char kWhiteListTable[] =
    "CREATE TABLE IF NOT EXISTS white_list(plate TEXT PRIMARY KEY, record TEXT NOT NULL)";
constexpr char kCheckSetting[] = "white_list_check";
constexpr size_t kMaxRecordBytes = 4096;

int64_t CountRows(Database& database) {
  Statement count(database, "SELECT count(*) FROM white_list");
  return count.Step() ? count.Int(0) : 0;
}

// The record as it is stored; empty when it cannot be.
std::optional<std::string> UsableText(const Json::Value& record) {
  std::string text;
  if (!tarvex::Member(record, "plate").isString()) {
    return std::nullopt;
  }
  const size_t length = record["plate"].asString().size();
  if (length == 0 || length > kMaxPlateLength || !Json::Json2String(record, text) ||
      text.size() > kMaxRecordBytes) {
    return std::nullopt;
  }
  return text;
}

}  // namespace

WhiteList::WhiteList(Database& database, Settings& settings)
    : database_(database.Execute(kWhiteListTable)),
      settings_(settings),
      replace_(database, "INSERT OR REPLACE INTO white_list(plate, record) VALUES(?, ?)"),
      delete_(database, "DELETE FROM white_list WHERE plate = ?"),
      select_(database, "SELECT record FROM white_list WHERE plate = ?"),
      list_(database, "SELECT record FROM white_list ORDER BY plate LIMIT ? OFFSET ?"),
      count_(CountRows(database)) {
  if (const auto kept = settings.Text(kCheckSetting)) {
    check_ = static_cast<Check>(std::strtol(kept->c_str(), nullptr, 10));
  }
}

WhiteList::Replaced WhiteList::Replace(const Json::Value& records) {
  Replaced replaced;
  Transaction transaction(database_);
  int64_t added = 0;
  for (const Json::Value& record : records) {
    const std::optional<std::string> text = UsableText(record);
    const bool is_known = text && Contains(record["plate"].asString());
    if (!text || (!is_known && count_ + added >= kMaxPlates)) {
      ++replaced.refused;
      continue;
    }
    replace_.BindText(1, record["plate"].asString()).BindText(2, *text).Run();
    added += is_known ? 0 : 1;
    ++replaced.stored;
  }
  transaction.Commit();
  count_ += added;
  return replaced;
}

int WhiteList::Delete(const std::vector<std::string>& plates) {
  int deleted = 0;
  Transaction transaction(database_);
  for (const std::string& plate : plates) {
    delete_.BindText(1, plate).Run();
    deleted += database_.Changes();
  }
  transaction.Commit();
  count_ -= deleted;
  return deleted;
}

Json::Value WhiteList::Select(const std::string& plate) {
  Json::Value records(Json::arrayValue);
  if (select_.BindText(1, plate).Step()) {
    Json::Value record;
    if (Json::String2Json(select_.Bytes(0), record)) {
      records.append(record);
    }
    select_.Reset();
  }
  return records;
}

Json::Value WhiteList::Records(int from, int count) {
  Json::Value records(Json::arrayValue);
  list_.Bind(1, count).Bind(2, from);
  while (list_.Step()) {
    Json::Value record;
    if (Json::String2Json(list_.Bytes(0), record)) {
      records.append(record);
    }
  }
  return records;
}

bool WhiteList::Contains(const std::string& plate) {
  const bool found = select_.BindText(1, plate).Step();
  if (found) {
    select_.Reset();
  }
  return found;
}

void WhiteList::SetCheck(Check check) {
  settings_.SetText(kCheckSetting, std::to_string(static_cast<int>(check)));
  check_ = check;
}

}  // namespace virtual_camera
