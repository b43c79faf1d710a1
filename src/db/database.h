// The only way to a database. SQL is written with bracket-quoted names ([Clock Data Table]) and
// every value is a bound parameter (?); no value is ever pasted into SQL text.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

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

class Database {
 public:
  virtual ~Database() = default;

  // Runs a statement; returns the number of rows it changed.
  virtual int64_t Execute(std::string_view sql, const Params& params = {}) = 0;
  virtual Recordset Query(std::string_view sql, const Params& params = {}) = 0;
  virtual int64_t LastInsertId() = 0;

  virtual void BeginTransaction() = 0;
  virtual void Commit() = 0;
  virtual void Rollback() = 0;
  virtual bool InTransaction() const = 0;

  // Where the database lives (a file name, or a connection description).
  virtual const std::string& Name() const = 0;
  virtual bool TableExists(std::string_view table) = 0;
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
