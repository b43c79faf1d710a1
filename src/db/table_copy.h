// Copying one table's rows, with their keys, from one database into the same table of another
// (a SQLite site's tables into PostgreSQL). A row whose key the target already holds is left as it
// is, so copying again adds only what is missing and never doubles a row.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "db/database.h"

namespace clockcomm::db {

struct KeyedTable {
  std::string table;             // as written in SQL: LogTable, [Clock Data Table]
  std::vector<std::string> key;  // its primary key columns, as written in SQL; empty: none
};

struct TableCopyResult {
  std::string table;
  int64_t source_rows = 0;
  int64_t copied = 0;        // rows written into the target by this run
  int64_t target_rows = 0;   // after the copy
  bool kept_target = false;  // a table without a key that differed was left as the target had it
  // Every source row is in the target (by key; by whole contents for a table without one).
  bool Complete() const { return !kept_target && target_rows >= source_rows; }
};

// Called after each batch with the rows read so far and the source's count.
using CopyProgress = std::function<void(int64_t done, int64_t total)>;

// Copies the rows of keyed.table from `from` into `to`, whose table must exist with the same
// columns, in batches of a transaction each. A table without a key is small (one row of company
// information): when its rows differ it is replaced if replace_unkeyed, else kept as it is.
// Where `to` numbers a single-column key by itself (an identity), the numbering is moved past the
// largest key copied, so that rows added later do not collide. Throws DatabaseError.
TableCopyResult CopyTable(Database& from, Database& to, const KeyedTable& keyed,
                          bool replace_unkeyed, const CopyProgress& progress = {});

}  // namespace clockcomm::db
