#include "virtual_camera/store/database.h"

#include <stdexcept>

namespace virtual_camera {

namespace {

constexpr char kSynced[] = "PRAGMA synchronous=FULL";
constexpr char kUnsynced[] = "PRAGMA synchronous=NORMAL";

}  // namespace

Database::Database(const std::string& path) : path_(path) {
  if (sqlite3_open(path.c_str(), &handle_) != SQLITE_OK) {
    const std::string reason = handle_ != nullptr ? sqlite3_errmsg(handle_) : "no memory";
    sqlite3_close(handle_);
    throw std::runtime_error(path + ": " + reason);
  }
  try {
    // Waits for another process that uses the file, such as the sqlite3 shell.
    sqlite3_busy_timeout(handle_, 2000);
    Execute("PRAGMA journal_mode=WAL");
    Execute(kSynced);
    // A commit, which writes over one that a killed process has left in the log. That one is not
    // seen while another process has the file open, and would come back after a loss of power.
    // Where it fails, as on a full disk, a camera starts all the same.
    sqlite3_exec(handle_, "PRAGMA user_version=1", nullptr, nullptr, nullptr);
  } catch (...) {
    sqlite3_close(handle_);
    throw;
  }
}

Database::~Database() { sqlite3_close(handle_); }

Database& Database::Execute(const char* sql) {
  if (sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    Fail();
  }
  return *this;
}

void Database::Unsynced(const std::function<void()>& work) {
  Execute(kUnsynced);
  try {
    work();
  } catch (...) {
    Execute(kSynced);
    throw;
  }
  Execute(kSynced);
}

void Database::Fail() const { throw std::runtime_error(path_ + ": " + sqlite3_errmsg(handle_)); }

Statement::Statement(Database& database, const char* sql) : database_(database) {
  if (sqlite3_prepare_v3(database.handle(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement_,
                         nullptr) != SQLITE_OK) {
    database.Fail();
  }
}

Statement::~Statement() { sqlite3_finalize(statement_); }

Statement& Statement::Bind(int parameter, int64_t value) {
  sqlite3_bind_int64(statement_, parameter, value);
  return *this;
}

Statement& Statement::BindText(int parameter, std::string_view text) {
  sqlite3_bind_text64(statement_, parameter, text.data(), text.size(), SQLITE_TRANSIENT,
                      SQLITE_UTF8);
  return *this;
}

Statement& Statement::BindBlob(int parameter, std::string_view bytes) {
  sqlite3_bind_blob64(statement_, parameter, bytes.data(), bytes.size(), SQLITE_TRANSIENT);
  return *this;
}

bool Statement::Step() {
  const int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) {
    return true;
  }
  if (result != SQLITE_DONE) {
    try {
      database_.Fail();
    } catch (...) {
      sqlite3_reset(statement_);
      throw;
    }
  }
  Reset();
  return false;
}

void Statement::Run() {
  while (Step()) {
  }
}

int64_t Statement::Int(int column) const { return sqlite3_column_int64(statement_, column); }

std::string Statement::Bytes(int column) const {
  const void* bytes = sqlite3_column_blob(statement_, column);
  const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
  return bytes != nullptr ? std::string(static_cast<const char*>(bytes), size) : std::string();
}

void Statement::Reset() {
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

Transaction::Transaction(Database& database) : database_(database) {
  database.Execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (open_) {
    // Nothing is left to do when even this fails: SQLite has rolled back by itself.
    sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
}

void Transaction::Commit() {
  database_.Execute("COMMIT");
  open_ = false;
}

}  // namespace virtual_camera
