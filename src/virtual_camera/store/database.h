// The camera's SQLite database: connection, statements and transactions.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <sqlite3.h>

namespace virtual_camera {

/// One connection, in WAL mode and synchronous at every commit: what was committed
/// survives a kill and loss of power, but for what Unsynced() commits. Used on one thread.
/// Every failure throws std::runtime_error with the file name and SQLite's reason.
class Database {
 public:
  /// Opens the file, or creates it.
  explicit Database(const std::string& path);
  ~Database();

  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Runs statements that give no rows.
  /// @return the database itself.
  Database& Execute(const char* sql);

  /// Does work that commits without waiting for the disk: it survives a kill, and loss of power
  /// once something else was committed. Not within a transaction.
  void Unsynced(const std::function<void()>& work);

  /// Rows changed by the last statement.
  int Changes() const { return sqlite3_changes(handle_); }

  sqlite3* handle() const { return handle_; }

  /// Throws the connection's present error.
  [[noreturn]] void Fail() const;

 private:
  std::string path_;
  sqlite3* handle_ = nullptr;
};

/// A prepared statement, for use many times over. Must not outlive its database.
class Statement {
 public:
  Statement(Database& database, const char* sql);
  ~Statement();

  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// Parameters count from 1; texts and blobs are copied.
  Statement& Bind(int parameter, int64_t value);
  Statement& BindText(int parameter, std::string_view text);
  Statement& BindBlob(int parameter, std::string_view bytes);

  /// @return whether there is a row; after the last one the statement is ready again.
  bool Step();

  /// Runs it to its end, and makes it ready again.
  void Run();

  /// Columns of the present row count from 0.
  int64_t Int(int column) const;
  std::string Bytes(int column) const;

  /// Makes it ready again before its last row.
  void Reset();

 private:
  Database& database_;
  sqlite3_stmt* statement_ = nullptr;
};

/// Rolls back unless committed.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();

  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void Commit();

 private:
  Database& database_;
  bool open_ = true;
};

}  // namespace virtual_camera
