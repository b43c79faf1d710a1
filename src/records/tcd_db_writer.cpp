#include "records/tcd_db_writer.h"

#include <fmt/format.h>

#include <cstdlib>

#include "core/errors.h"
#include "records/amount_column.h"

namespace clockcomm::records {

void MoveOutPunch(TcdRecord& record) {
  if (record.PunchType() != "O") return;
  record.SetDateOut(record.DateIn());
  record.SetTimeout(record.TimeIn());
  record.SetDateIn(std::nullopt);
  record.SetTimeIn(std::nullopt);
}

TcdDbWriter::TcdDbWriter(db::Database& company_db) : db_(company_db) {
  if (!db_.TableExists("Clock Data Table")) {
    throw core::InvalidOperationException("Table [Clock Data Table] not found in " + db_.Name());
  }
}

void TcdDbWriter::WriteRecord(const TcdRecord& r) {
  if (!open_) throw core::InvalidOperationException("The clock data writer is closed.");
  // The column name comes from a fixed list, never from the record's text.
  const std::string sql =
      std::string(
          "INSERT INTO [Clock Data Table] (Punch, [Card ID], Department, JobNumber, Level4, "
          "Level5, [Punch Type], [Date In], [Time In], [Date Out], [Time Out], ") +
      AmountColumnForPunchType(r.PunchType()) + ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
  std::optional<double> amount;
  // Through the float's shortest text, so 12.3f is stored as 12.3 and not 12.300000190734863.
  if (r.Amount()) amount = std::strtod(fmt::format("{}", *r.Amount()).c_str(), nullptr);
  std::optional<int64_t> department;
  if (r.Department()) department = *r.Department();
  db_.Execute(sql,
              {r.SequenceNumber(), r.BadgeId(), department, r.JobNumber(), r.Level4(), r.Level5(),
               r.PunchType(), r.DateIn(), r.TimeIn(), r.DateOut(), r.Timeout(), amount});
  last_row_id_ = db_.LastInsertId();
}

}  // namespace clockcomm::records
