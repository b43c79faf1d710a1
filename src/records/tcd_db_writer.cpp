#include "records/tcd_db_writer.h"

#include <fmt/format.h>

#include <charconv>

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

TcdDbWriter::~TcdDbWriter() = default;

db::Statement& TcdDbWriter::InsertFor(const char* amount_column) {
  for (auto& [column, insert] : inserts_) {
    if (column == amount_column) return *insert;
    if (column != nullptr) continue;
    // The column name comes from a fixed list, never from the record's text.
    column = amount_column;
    insert = db_.Prepare(
        std::string(
            "INSERT INTO [Clock Data Table] (Punch, [Card ID], Department, JobNumber, Level4, "
            "Level5, [Punch Type], [Date In], [Time In], [Date Out], [Time Out], ") +
        amount_column + ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    return *insert;
  }
  throw core::InvalidOperationException("No amount column for this punch type.");
}

namespace {

// Dates and times go in the fixed text forms of db::Value, written into the caller's buffer.
void BindDate(db::Statement& s, int index, const std::optional<core::Date>& date, char* buffer) {
  if (!date) return s.BindNull(index);
  s.BindText(index, std::string_view(buffer, core::FormatIsoDate(*date, buffer) - buffer));
}

void BindTime(db::Statement& s, int index, const std::optional<core::TimeOfDay>& time,
              char* buffer) {
  if (!time) return s.BindNull(index);
  s.BindText(index, std::string_view(buffer, core::FormatTime(*time, true, buffer) - buffer));
}

}  // namespace

void TcdDbWriter::WriteRecord(const TcdRecord& r) {
  if (!open_) throw core::InvalidOperationException("The clock data writer is closed.");
  db::Statement& insert = InsertFor(AmountColumnForPunchType(r.PunchType()));
  insert.BindInt(1, r.SequenceNumber());
  insert.BindInt(2, r.BadgeId());
  if (r.Department()) {
    insert.BindInt(3, *r.Department());
  } else {
    insert.BindNull(3);
  }
  insert.BindText(4, r.JobNumber());
  insert.BindText(5, r.Level4());
  insert.BindText(6, r.Level5());
  insert.BindText(7, r.PunchType());
  char date_in[16], time_in[16], date_out[16], time_out[16];
  BindDate(insert, 8, r.DateIn(), date_in);
  BindTime(insert, 9, r.TimeIn(), time_in);
  BindDate(insert, 10, r.DateOut(), date_out);
  BindTime(insert, 11, r.Timeout(), time_out);
  if (r.Amount()) {
    // Through the float's shortest text, so 12.3f is stored as 12.3 and not 12.300000190734863.
    char text[32];
    const auto end = fmt::format_to_n(text, sizeof text, "{}", *r.Amount()).out;
    double amount = 0;
    std::from_chars(text, end, amount);
    insert.BindReal(12, amount);
  } else {
    insert.BindNull(12);
  }
  insert.Execute();
  last_row_id_ = db_.LastInsertId();
}

}  // namespace clockcomm::records
