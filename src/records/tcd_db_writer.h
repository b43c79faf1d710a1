// Writes TCD records as rows of [Clock Data Table] of an open company database, every value a
// bound parameter.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "db/database.h"
#include "records/tcd_stream.h"

namespace clockcomm::records {

// An out-punch's line carries its moment in the in fields; the table keeps it in the out columns.
void MoveOutPunch(TcdRecord& record);

class TcdDbWriter : public ITcdWriter {
 public:
  explicit TcdDbWriter(db::Database& company_db);
  ~TcdDbWriter() override;

  // One row: every column from the record (nulls stay null), the amount in the column of its
  // punch type. Throws db::DatabaseError; InvalidOperationException after CloseWriter.
  void WriteRecord(const TcdRecord& record) override;
  // Rows in bulk, with the IDs first_id, first_id + 1, ... (reserved by the caller through
  // db::Database::ReserveIds, inside the write transaction).
  void WriteMany(const std::vector<const TcdRecord*>& records, int64_t first_id);
  void CloseWriter() override { open_ = false; }
  // The row id of the last row written.
  int64_t LastRowId() const { return last_row_id_; }

 private:
  // The INSERT of one amount column, prepared the first time a punch needs it.
  db::Statement& InsertFor(const char* amount_column);

  db::Database& db_;
  bool open_ = true;
  int64_t last_row_id_ = 0;
  std::array<std::pair<const char*, std::unique_ptr<db::Statement>>, 9> inserts_{};
};

}  // namespace clockcomm::records
