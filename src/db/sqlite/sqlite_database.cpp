#include "db/sqlite/sqlite_database.h"

#include <sqlite3.h>

#include "core/errors.h"

namespace clockcomm::db {
namespace {

// Statements kept prepared per connection; beyond this the cache is emptied.
constexpr size_t kStatementCacheLimit = 64;
// The page cache of one connection, at most; it grows only as pages are used.
constexpr int kCacheKibibytes = 16 * 1024;

DatabaseError::Cause CauseOf(int code) {
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return DatabaseError::Cause::kBusy;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return DatabaseError::Cause::kDamaged;
    case SQLITE_FULL:
      return DatabaseError::Cause::kFull;
    default:
      return DatabaseError::Cause::kOther;
  }
}

[[noreturn]] void Fail(sqlite3* handle, const std::string& name, int code, std::string_view what) {
  std::string msg = std::string(what) + " in " + name + ": " + sqlite3_errmsg(handle);
  throw DatabaseError(code, msg, CauseOf(code));
}

class SqliteStatement : public Statement {
 public:
  SqliteStatement(sqlite3* handle, const std::string& name, sqlite3_stmt* stmt)
      : handle_(handle), name_(name), stmt_(stmt) {}
  ~SqliteStatement() override { sqlite3_finalize(stmt_); }

  void BindNull(int index) override { Check(sqlite3_bind_null(stmt_, index)); }
  void BindInt(int index, int64_t value) override {
    Check(sqlite3_bind_int64(stmt_, index, value));
  }
  void BindReal(int index, double value) override {
    Check(sqlite3_bind_double(stmt_, index, value));
  }
  void BindText(int index, std::string_view value) override {
    Check(sqlite3_bind_text(stmt_, index, value.data(), static_cast<int>(value.size()),
                            SQLITE_STATIC));
  }
  int64_t Execute() override {
    int rc;
    while ((rc = sqlite3_step(stmt_)) == SQLITE_ROW) {
    }
    Done(rc, "Cannot execute");
    return sqlite3_changes(handle_);
  }
  bool HasRow() override {
    const int rc = sqlite3_step(stmt_);
    Done(rc == SQLITE_ROW ? SQLITE_DONE : rc, "Cannot query");
    return rc == SQLITE_ROW;
  }

 private:
  void Check(int rc) {
    if (rc != SQLITE_OK) Fail(handle_, name_, rc, "Cannot bind parameter");
  }
  void Done(int rc, std::string_view what) {
    sqlite3_reset(stmt_);
    if (rc != SQLITE_DONE) {
      Fail(handle_, name_, rc, std::string(what) + " \"" + sqlite3_sql(stmt_) + "\"");
    }
  }

  sqlite3* handle_;
  const std::string& name_;
  sqlite3_stmt* stmt_;
};

// In-process, one prepared INSERT per row is as fast as SQLite writes.
class SqliteBulkInsert : public BulkInsert {
 public:
  explicit SqliteBulkInsert(std::unique_ptr<Statement> insert) : insert_(std::move(insert)) {}
  void BindNull(int index) override { insert_->BindNull(index); }
  void BindInt(int index, int64_t value) override { insert_->BindInt(index, value); }
  void BindReal(int index, double value) override { insert_->BindReal(index, value); }
  void BindText(int index, std::string_view value) override { insert_->BindText(index, value); }
  void AddRow() override { insert_->Execute(); }
  void Finish() override {}

 private:
  std::unique_ptr<Statement> insert_;
};

// A name as SQL writes it, without its brackets.
std::string_view Bare(std::string_view name) {
  if (name.size() >= 2 && name.front() == '[' && name.back() == ']') {
    return name.substr(1, name.size() - 2);
  }
  return name;
}

}  // namespace

std::unique_ptr<SqliteDatabase> SqliteDatabase::Open(const std::filesystem::path& path, Mode mode,
                                                     std::chrono::milliseconds busy_wait) {
  const std::string name = path.string();
  std::error_code ec;
  if (mode == Mode::kExisting && !std::filesystem::exists(path, ec)) {
    throw DatabaseError(SQLITE_CANTOPEN, "Database file not found: " + name);
  }
  sqlite3* handle = nullptr;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX |
              (mode == Mode::kCreate ? SQLITE_OPEN_CREATE : 0);
  int rc = sqlite3_open_v2(name.c_str(), &handle, flags, nullptr);
  if (rc != SQLITE_OK) {
    std::string msg = handle ? sqlite3_errmsg(handle) : sqlite3_errstr(rc);
    sqlite3_close(handle);
    throw DatabaseError(rc, "Cannot open database " + name + ": " + msg, CauseOf(rc));
  }
  sqlite3_busy_timeout(handle, static_cast<int>(busy_wait.count()));
  std::unique_ptr<SqliteDatabase> db(new SqliteDatabase(handle, name));
  // Reading the schema makes SQLite look at the file now, so a corrupt file fails here with the
  // file's name rather than later in some unrelated statement.
  db->Query("PRAGMA schema_version");
  // WAL with FULL sync: each commit is one append and one fsync of the log, durable on return,
  // and readers never block the writer.
  db->Query("PRAGMA journal_mode=WAL");
  db->Execute("PRAGMA synchronous=FULL");
  db->Execute("PRAGMA foreign_keys=ON");
  // A transfer's batch touches pages all over the punch keys' index; a cache that holds a batch's
  // pages keeps them from being written out and read back before the commit.
  db->Execute("PRAGMA cache_size=-" + std::to_string(kCacheKibibytes));
  return db;
}

SqliteDatabase::SqliteDatabase(sqlite3* handle, std::string name)
    : handle_(handle), name_(std::move(name)) {}

SqliteDatabase::~SqliteDatabase() {
  for (auto& [sql, stmt] : statements_) sqlite3_finalize(stmt);
  if (in_transaction_) sqlite3_exec(handle_, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close_v2(handle_);
}

void SqliteDatabase::Fail(int code, std::string_view what) {
  clockcomm::db::Fail(handle_, name_, code, what);
}

std::unique_ptr<Statement> SqliteDatabase::Prepare(std::string_view sql) {
  sqlite3_stmt* stmt = nullptr;
  int rc = sqlite3_prepare_v2(handle_, sql.data(), static_cast<int>(sql.size()), &stmt, nullptr);
  if (rc != SQLITE_OK) Fail(rc, "Cannot prepare \"" + std::string(sql) + "\"");
  return std::make_unique<SqliteStatement>(handle_, name_, stmt);
}

sqlite3_stmt* SqliteDatabase::Cached(std::string_view sql) {
  std::string key(sql);
  auto it = statements_.find(key);
  if (it != statements_.end()) {
    sqlite3_reset(it->second);
    sqlite3_clear_bindings(it->second);
    return it->second;
  }
  if (statements_.size() >= kStatementCacheLimit) {
    for (auto& [s, stmt] : statements_) sqlite3_finalize(stmt);
    statements_.clear();
  }
  sqlite3_stmt* stmt = nullptr;
  int rc = sqlite3_prepare_v2(handle_, key.c_str(), static_cast<int>(key.size()), &stmt, nullptr);
  if (rc != SQLITE_OK) Fail(rc, "Cannot prepare \"" + key + "\"");
  statements_.emplace(std::move(key), stmt);
  return stmt;
}

void SqliteDatabase::Bind(sqlite3_stmt* stmt, const Params& params) {
  if (static_cast<int>(params.size()) != sqlite3_bind_parameter_count(stmt)) {
    throw core::ArgumentException("Statement expects " +
                                      std::to_string(sqlite3_bind_parameter_count(stmt)) +
                                      " parameters, " + std::to_string(params.size()) + " given.",
                                  "params");
  }
  for (size_t i = 0; i < params.size(); ++i) {
    const int index = static_cast<int>(i + 1);
    const auto& raw = params[i].Raw();
    int rc;
    if (auto* iv = std::get_if<int64_t>(&raw)) {
      rc = sqlite3_bind_int64(stmt, index, *iv);
    } else if (auto* dv = std::get_if<double>(&raw)) {
      rc = sqlite3_bind_double(stmt, index, *dv);
    } else if (auto* sv = std::get_if<std::string>(&raw)) {
      rc = sqlite3_bind_text(stmt, index, sv->data(), static_cast<int>(sv->size()),
                             SQLITE_TRANSIENT);
    } else {
      rc = sqlite3_bind_null(stmt, index);
    }
    if (rc != SQLITE_OK) Fail(rc, "Cannot bind parameter");
  }
}

int64_t SqliteDatabase::Execute(std::string_view sql, const Params& params) {
  sqlite3_stmt* stmt = Cached(sql);
  Bind(stmt, params);
  int rc;
  while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
  }
  if (rc != SQLITE_DONE) {
    sqlite3_reset(stmt);
    Fail(rc, "Cannot execute \"" + std::string(sql) + "\"");
  }
  sqlite3_reset(stmt);
  return sqlite3_changes(handle_);
}

Recordset SqliteDatabase::Query(std::string_view sql, const Params& params) {
  sqlite3_stmt* stmt = Cached(sql);
  Bind(stmt, params);
  std::vector<std::string> columns;
  const int n = sqlite3_column_count(stmt);
  for (int i = 0; i < n; ++i) columns.emplace_back(sqlite3_column_name(stmt, i));
  std::vector<std::vector<Value>> rows;
  int rc;
  while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    std::vector<Value> row;
    row.reserve(n);
    for (int i = 0; i < n; ++i) {
      switch (sqlite3_column_type(stmt, i)) {
        case SQLITE_INTEGER:
          row.emplace_back(static_cast<int64_t>(sqlite3_column_int64(stmt, i)));
          break;
        case SQLITE_FLOAT:
          row.emplace_back(sqlite3_column_double(stmt, i));
          break;
        case SQLITE_NULL:
          row.emplace_back();
          break;
        default: {
          const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, i));
          row.emplace_back(std::string(text, sqlite3_column_bytes(stmt, i)));
        }
      }
    }
    rows.push_back(std::move(row));
  }
  if (rc != SQLITE_DONE) {
    sqlite3_reset(stmt);
    Fail(rc, "Cannot query \"" + std::string(sql) + "\"");
  }
  sqlite3_reset(stmt);
  return Recordset(std::move(columns), std::move(rows));
}

int64_t SqliteDatabase::LastInsertId() { return sqlite3_last_insert_rowid(handle_); }

void SqliteDatabase::BeginTransaction() {
  if (in_transaction_) throw core::InvalidOperationException("A transaction is already open.");
  // IMMEDIATE takes the write lock now, so a locked database is reported before any work.
  Execute("BEGIN IMMEDIATE");
  in_transaction_ = true;
}

void SqliteDatabase::Commit() {
  if (!in_transaction_) throw core::InvalidOperationException("No transaction is open.");
  Execute("COMMIT");
  in_transaction_ = false;
}

void SqliteDatabase::Rollback() {
  if (!in_transaction_) return;
  in_transaction_ = false;
  Execute("ROLLBACK");
}

bool SqliteDatabase::TableExists(std::string_view table) {
  return !Query("SELECT name FROM sqlite_master WHERE type='table' AND name=?", {table}).Eof();
}

bool SqliteDatabase::HasColumn(std::string_view table, std::string_view column) {
  return !Query("SELECT 1 FROM pragma_table_info(?) WHERE name = ? COLLATE NOCASE", {table, column})
              .Eof();
}

std::unique_ptr<BulkInsert> SqliteDatabase::InsertMany(std::string_view table,
                                                       const std::vector<std::string>& columns) {
  std::string sql = "INSERT INTO " + std::string(table) + " (";
  std::string values;
  for (const auto& column : columns) {
    sql += (values.empty() ? "" : ", ") + column;
    values += values.empty() ? "?" : ", ?";
  }
  return std::make_unique<SqliteBulkInsert>(Prepare(sql + ") VALUES (" + values + ")"));
}

int64_t SqliteDatabase::ReserveIds(std::string_view table, std::string_view id_column, int64_t) {
  // An AUTOINCREMENT table remembers the highest ID it gave in sqlite_sequence, and moves it on
  // by itself when rows come with their IDs.
  std::string sql =
      "SELECT IFNULL(MAX(" + std::string(id_column) + "), 0) + 1 FROM " + std::string(table);
  if (TableExists("sqlite_sequence")) {
    sql = "SELECT MAX(IFNULL((SELECT seq FROM sqlite_sequence WHERE name = ?), 0) + 1, (" + sql +
          "))";
    return Query(sql, {Bare(table)}).Field(0).AsInt();
  }
  return Query(sql).Field(0).AsInt();
}

}  // namespace clockcomm::db
