// Writes TCD records as rows of [Clock Data Table] of an open company database, every value a
// bound parameter.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

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
  void WriteRecord(const TcdRecord& record) override { WriteRow(record, std::nullopt); }
  // The same with the row's ID chosen by the caller (see NextRowId).
  void WriteRecord(const TcdRecord& record, int64_t id) { WriteRow(record, id); }
  void CloseWriter() override { open_ = false; }
  // The row id of the last row written.
  int64_t LastRowId() const { return last_row_id_; }
  // The ID the table gives its next row: one past the highest it ever gave (IDs are
  // AUTOINCREMENT, never reused). Read inside the write transaction, it holds for the rows that
  // transaction writes one after another.
  int64_t NextRowId();

 private:
  void WriteRow(const TcdRecord& record, std::optional<int64_t> id);
  // The INSERT of one amount column, prepared the first time a punch needs it.
  db::Statement& InsertFor(const char* amount_column);

  db::Database& db_;
  bool open_ = true;
  int64_t last_row_id_ = 0;
  std::array<std::pair<const char*, std::unique_ptr<db::Statement>>, 9> inserts_{};
};

}  // namespace clockcomm::records
