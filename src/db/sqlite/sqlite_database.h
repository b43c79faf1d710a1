// The embedded backend: one SQLite file per database.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <unordered_map>

#include "db/database.h"
#include "db/open.h"

struct sqlite3;
struct sqlite3_stmt;

namespace clockcomm::db {

class SqliteDatabase : public Database {
 public:
  enum class Mode { kExisting, kCreate };

  // Opens the file. kExisting refuses a missing file; both refuse a file that is not a database.
  // A statement waits up to busy_wait for another connection's lock. Throws DatabaseError naming
  // the file.
  static std::unique_ptr<SqliteDatabase> Open(
      const std::filesystem::path& path, Mode mode = Mode::kExisting,
      std::chrono::milliseconds busy_wait = kDefaultBusyWait);
  ~SqliteDatabase() override;

  int64_t Execute(std::string_view sql, const Params& params = {}) override;
  Recordset Query(std::string_view sql, const Params& params = {}) override;
  int64_t LastInsertId() override;
  std::unique_ptr<Statement> Prepare(std::string_view sql) override;
  void BeginTransaction() override;
  void Commit() override;
  void Rollback() override;
  bool InTransaction() const override { return in_transaction_; }
  const std::string& Name() const override { return name_; }
  bool TableExists(std::string_view table) override;
  bool HasColumn(std::string_view table, std::string_view column) override;
  std::unique_ptr<BulkInsert> InsertMany(std::string_view table,
                                         const std::vector<std::string>& columns) override;
  void LockForWriting(std::string_view) override {}
  int64_t ReserveIds(std::string_view table, std::string_view id_column, int64_t count) override;

 private:
  SqliteDatabase(sqlite3* handle, std::string name);
  sqlite3_stmt* Cached(std::string_view sql);
  void Bind(sqlite3_stmt* stmt, const Params& params);
  [[noreturn]] void Fail(int code, std::string_view what);

  sqlite3* handle_;
  std::string name_;
  bool in_transaction_ = false;
  // Prepared statements kept by SQL text: a transfer runs the same INSERT thousands of times.
  std::unordered_map<std::string, sqlite3_stmt*> statements_;
};

}  // namespace clockcomm::db
