// Writes TCD records as rows of [Clock Data Table] of an open company database, every value a
// bound parameter.
#pragma once

#include <cstdint>

#include "db/database.h"
#include "records/tcd_stream.h"

namespace clockcomm::records {

// An out-punch's line carries its moment in the in fields; the table keeps it in the out columns.
void MoveOutPunch(TcdRecord& record);

class TcdDbWriter : public ITcdWriter {
 public:
  explicit TcdDbWriter(db::Database& company_db);
  ~TcdDbWriter() override = default;

  // One row: every column from the record (nulls stay null), the amount in the column of its
  // punch type. Throws db::DatabaseError; InvalidOperationException after CloseWriter.
  void WriteRecord(const TcdRecord& record) override;
  void CloseWriter() override { open_ = false; }
  // The row id of the last row written.
  int64_t LastRowId() const { return last_row_id_; }

 private:
  db::Database& db_;
  bool open_ = true;
  int64_t last_row_id_ = 0;
};

}  // namespace clockcomm::records
