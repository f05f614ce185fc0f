#include "virtual_camera/store/result_store.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace virtual_camera {

namespace {

constexpr char kRemovedSetting[] = "undelivered_removed";

// AUTOINCREMENT has SQLite remember the highest id for good, also after its removal.
// The two partial indices find the oldest of each kind without looking at the others.
constexpr char kSchema[] = R"(
CREATE TABLE IF NOT EXISTS results(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  record BLOB NOT NULL,
  picture_bytes INTEGER NOT NULL,
  stored_s INTEGER NOT NULL,
  status INTEGER NOT NULL DEFAULT 0);
CREATE INDEX IF NOT EXISTS results_undelivered ON results(id) WHERE status = 0;
CREATE INDEX IF NOT EXISTS results_done ON results(id) WHERE status <> 0;
)";

int64_t OneNumber(Database& database, const char* sql) {
  Statement statement(database, sql);
  return statement.Step() ? statement.Int(0) : 0;
}

}  // namespace

ResultStore::ResultStore(Database& database, Settings& settings, Retention retention)
    : database_(database.Execute(kSchema)),
      settings_(settings),
      retention_(retention),
      insert_(database,
              "INSERT INTO results(id, record, picture_bytes, stored_s) VALUES(?, ?, ?, ?)"),
      remove_(database, "DELETE FROM results WHERE id = ?"),
      newest_(database, "SELECT record FROM results ORDER BY id DESC LIMIT 1"),
      find_(database, "SELECT record FROM results WHERE id = ?"),
      select_(database,
              "SELECT record FROM results WHERE status = 0 AND id >= ? ORDER BY id LIMIT ?"),
      mark_(database, "UPDATE results SET status = 1 WHERE id = ? AND status = 0"),
      clear_(database, "UPDATE results SET status = 2 WHERE status = 0"),
      oldest_done_(database,
                   "SELECT id, picture_bytes FROM results WHERE status <> 0 ORDER BY id LIMIT 1"),
      oldest_undelivered_(database,
                          "SELECT id, picture_bytes, stored_s FROM results WHERE status = 0 "
                          "ORDER BY id LIMIT 1") {
  totals_.results = OneNumber(database, "SELECT count(*) FROM results");
  totals_.undelivered = OneNumber(database, "SELECT count(*) FROM results WHERE status = 0");
  totals_.picture_bytes = OneNumber(database, "SELECT total(picture_bytes) FROM results");
  totals_.undelivered_removed =
      std::strtoll(settings.Text(kRemovedSetting).value_or("0").c_str(), nullptr, 10);
  last_id_ = static_cast<uint32_t>(
      OneNumber(database, "SELECT seq FROM sqlite_sequence WHERE name = 'results'"));
}

uint32_t ResultStore::NextId() const {
  if (last_id_ == std::numeric_limits<uint32_t>::max()) {
    throw std::runtime_error("the store has given every plate id there is");
  }
  return last_id_ + 1;
}

ResultStore::Inserted ResultStore::Insert(uint32_t id, const std::string& record,
                                          int64_t picture_bytes, int64_t now_s) {
  Inserted inserted;
  const Totals before = totals_;
  Transaction transaction(database_);
  try {
    insert_.Bind(1, id).BindBlob(2, record).Bind(3, picture_bytes).Bind(4, now_s).Run();
    ++totals_.results;
    ++totals_.undelivered;
    totals_.picture_bytes += picture_bytes;
    // The newest always stays, also where it alone exceeds the retention.
    while (totals_.results > 1 && (totals_.results > retention_.results ||
                                   totals_.picture_bytes > retention_.picture_bytes)) {
      const std::optional<Victim> victim = OldestToRemove();
      if (!victim) {
        break;
      }
      remove_.Bind(1, victim->id).Run();
      --totals_.results;
      totals_.picture_bytes -= victim->picture_bytes;
      totals_.undelivered -= victim->undelivered ? 1 : 0;
      inserted.undelivered_removed += victim->undelivered ? 1 : 0;
      inserted.removed.push_back(victim->id);
    }
    if (inserted.undelivered_removed > 0) {
      totals_.undelivered_removed += inserted.undelivered_removed;
      settings_.SetText(kRemovedSetting, std::to_string(totals_.undelivered_removed));
    }
    transaction.Commit();
  } catch (...) {
    totals_ = before;
    throw;
  }
  last_id_ = std::max(last_id_, id);
  return inserted;
}

std::optional<ResultStore::Victim> ResultStore::OldestToRemove() {
  for (Statement* oldest : {&oldest_done_, &oldest_undelivered_}) {
    if (oldest->Step()) {
      const Victim victim{static_cast<uint32_t>(oldest->Int(0)), oldest->Int(1),
                          oldest == &oldest_undelivered_};
      oldest->Reset();
      return victim;
    }
  }
  return std::nullopt;
}

std::optional<std::string> ResultStore::Newest() {
  std::optional<std::string> record;
  if (newest_.Step()) {
    record = newest_.Bytes(0);
    newest_.Reset();
  }
  return record;
}

std::optional<std::string> ResultStore::Find(uint32_t id) {
  std::optional<std::string> record;
  if (find_.Bind(1, id).Step()) {
    record = find_.Bytes(0);
    find_.Reset();
  }
  return record;
}

std::vector<std::string> ResultStore::SelectUndelivered(uint32_t min_id, int64_t count) {
  std::vector<std::string> records;
  // A negative limit would mean all of them.
  select_.Bind(1, min_id).Bind(2, std::max<int64_t>(count, 0));
  while (select_.Step()) {
    records.push_back(select_.Bytes(0));
  }
  return records;
}

bool ResultStore::MarkDelivered(uint32_t id) {
  // A mark that is lost with the power costs a duplicate, and no result.
  database_.Unsynced([this, id] { mark_.Bind(1, id).Run(); });
  const bool marked = database_.Changes() > 0;
  totals_.undelivered -= marked ? 1 : 0;
  return marked;
}

int64_t ResultStore::ClearUndelivered() {
  clear_.Run();
  const int64_t cleared = database_.Changes();
  totals_.undelivered = 0;
  return cleared;
}

int64_t ResultStore::OldestUndeliveredAge(int64_t now_s) {
  int64_t age = 0;
  if (oldest_undelivered_.Step()) {
    age = std::max<int64_t>(0, now_s - oldest_undelivered_.Int(2));
    oldest_undelivered_.Reset();
  }
  return age;
}

}  // namespace virtual_camera
