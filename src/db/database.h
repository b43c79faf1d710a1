// The only way to a database. SQL is written with bracket-quoted names ([Clock Data Table]) and
// every value is a bound parameter (?); no value is ever pasted into SQL text.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/errors.h"
#include "db/recordset.h"
#include "db/value.h"

namespace clockcomm::db {

// Raised for any failure of the database engine; the message names the database file.
class DatabaseError : public core::SystemError {
 public:
  enum class Cause {
    kOther,
    kBusy,     // locked by another user; the operation may succeed later
    kDamaged,  // the file is no database or is corrupt: it must be restored
    kFull,     // the disk (or the database's limit) is full
  };
  DatabaseError(int code, const std::string& description, Cause cause = Cause::kOther)
      : core::SystemError(code, description), cause_(cause) {}
  bool Busy() const { return cause_ == Cause::kBusy; }
  Cause GetCause() const { return cause_; }

 private:
  Cause cause_;
};

// Values bound by position to a statement or to a row of a bulk insert. Parameters are numbered
// from 1. Text is bound without a copy: it must stay alive and unchanged until the row is run.
class RowBinder {
 public:
  virtual ~RowBinder() = default;
  virtual void BindNull(int index) = 0;
  virtual void BindInt(int index, int64_t value) = 0;
  virtual void BindReal(int index, double value) = 0;
  virtual void BindText(int index, std::string_view value) = 0;
};

// One statement prepared once and run many times, for the loops that write row after row. Every
// parameter is bound again before each run, in the order of the ? in the SQL text. A statement
// must not outlive its database.
class Statement : public RowBinder {
 public:
  // Runs the statement to its end; returns the number of rows it changed.
  virtual int64_t Execute() = 0;
  // Runs a query; tells whether it gives at least one row.
  virtual bool HasRow() = 0;
};

// Thousands of rows into one table at once (a transfer's batch): a server takes them as one COPY,
// SQLite through one prepared INSERT. Parameters are the columns in the order given. While it is
// open the database runs nothing else; Finish ends it, and destroying it unfinished abandons the
// rows (and, on a server, the transaction).
class BulkInsert : public RowBinder {
 public:
  virtual void AddRow() = 0;
  // The rows are in the table, inside the caller's transaction, when it returns.
  virtual void Finish() = 0;
};

class Database {
 public:
  virtual ~Database() = default;

  // Runs a statement; returns the number of rows it changed.
  virtual int64_t Execute(std::string_view sql, const Params& params = {}) = 0;
  virtual Recordset Query(std::string_view sql, const Params& params = {}) = 0;
  virtual int64_t LastInsertId() = 0;
  // Throws DatabaseError when the SQL does not compile.
  virtual std::unique_ptr<Statement> Prepare(std::string_view sql) = 0;

  virtual void BeginTransaction() = 0;
  virtual void Commit() = 0;
  virtual void Rollback() = 0;
  virtual bool InTransaction() const = 0;

  // Where the database lives (a file name, or a connection description).
  virtual const std::string& Name() const = 0;
  virtual bool TableExists(std::string_view table) = 0;
  // Whether the table has the column, for tables made by an earlier version of the program.
  virtual bool HasColumn(std::string_view table, std::string_view column) = 0;

  // The three below name tables and columns as the SQL that made them does ("[Clock Data
  // Table]", "ID"): a server folds a bare name to lower case and keeps a bracketed one.

  // Starts a bulk insert of the columns into the table; call inside a transaction.
  virtual std::unique_ptr<BulkInsert> InsertMany(std::string_view table,
                                                 const std::vector<std::string>& columns) = 0;
  // Keeps every other writer of the table waiting until this transaction ends, so that what the
  // transaction read of it stays true. SQLite's write transaction holds the whole file already.
  virtual void LockForWriting(std::string_view table) = 0;
  // Takes count IDs of the table's own numbering of id_column (an INTEGER PRIMARY KEY) for rows
  // the caller inserts with them, and returns the first; the others follow it. The numbering
  // never gives them again, even when the transaction is rolled back on a server. Call while the
  // table is locked for writing.
  virtual int64_t ReserveIds(std::string_view table, std::string_view id_column, int64_t count) = 0;
};

// Begins on construction; rolls back on destruction unless Commit() was called.
class Transaction {
 public:
  explicit Transaction(Database& db) : db_(db) { db_.BeginTransaction(); }
  ~Transaction() {
    if (!done_) {
      try {
        db_.Rollback();
      } catch (...) {  // a destructor must not throw; the engine discards the work anyway
      }
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void Commit() {
    db_.Commit();
    done_ = true;
  }
  void Rollback() {
    done_ = true;
    db_.Rollback();
  }

 private:
  Database& db_;
  bool done_ = false;
};

}  // namespace clockcomm::db
