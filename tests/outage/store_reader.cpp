#include "outage/store_reader.h"

#include <sqlite3.h>

#include <stdexcept>

StoreReader::StoreReader(const std::string& file, Kind kind) {
  const int access = kind == Kind::kLive ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  if (sqlite3_open_v2(file.c_str(), &database_, access, nullptr) != SQLITE_OK) {
    const std::string reason = sqlite3_errmsg(database_);
    sqlite3_close(database_);
    throw std::runtime_error(file + ": " + reason);
  }
  sqlite3_busy_timeout(database_, 10000);
}

StoreReader::~StoreReader() { sqlite3_close(database_); }

StoredResults StoreReader::Read() const {
  StoredResults results;
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(database_, "SELECT id, status FROM results", -1, &statement, nullptr);
  while (sqlite3_step(statement) == SQLITE_ROW) {
    const auto id = static_cast<std::uint32_t>(sqlite3_column_int64(statement, 0));
    results.all.insert(id);
    if (sqlite3_column_int(statement, 1) == 0) {
      results.undelivered.insert(id);
    }
  }
  sqlite3_finalize(statement);
  return results;
}

std::uint64_t StoreReader::CountUndelivered() const {
  return Number("SELECT count(*) FROM results WHERE status = 0");
}

std::uint64_t StoreReader::Count() const { return Number("SELECT count(*) FROM results"); }

std::string StoreReader::IntegrityFinding() const {
  sqlite3_stmt* statement = nullptr;
  std::string finding;
  if (sqlite3_prepare_v2(database_, "PRAGMA integrity_check(1)", -1, &statement, nullptr) ==
          SQLITE_OK &&
      sqlite3_step(statement) == SQLITE_ROW) {
    finding = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
  } else {
    finding = sqlite3_errmsg(database_);
  }
  sqlite3_finalize(statement);
  return finding;
}

std::uint64_t StoreReader::Number(const char* sql) const {
  sqlite3_stmt* statement = nullptr;
  std::uint64_t number = 0;
  if (sqlite3_prepare_v2(database_, sql, -1, &statement, nullptr) == SQLITE_OK &&
      sqlite3_step(statement) == SQLITE_ROW) {
    number = static_cast<std::uint64_t>(sqlite3_column_int64(statement, 0));
  }
  sqlite3_finalize(statement);
  return number;
}
