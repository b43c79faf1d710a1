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
            "INSERT INTO [Clock Data Table] (ID, Punch, [Card ID], Department, JobNumber, "
            "Level4, Level5, [Punch Type], [Date In], [Time In], [Date Out], [Time Out], ") +
        amount_column + ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
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

int64_t TcdDbWriter::NextRowId() {
  return db_
      .Query(
          "SELECT MAX(IFNULL((SELECT seq FROM sqlite_sequence WHERE name = 'Clock Data "
          "Table'), 0), IFNULL((SELECT MAX(ID) FROM [Clock Data Table]), 0)) + 1")
      .Field(0)
      .AsInt();
}

void TcdDbWriter::WriteRow(const TcdRecord& r, std::optional<int64_t> id) {
  if (!open_) throw core::InvalidOperationException("The clock data writer is closed.");
  db::Statement& insert = InsertFor(AmountColumnForPunchType(r.PunchType()));
  if (id) {
    insert.BindInt(1, *id);
  } else {
    insert.BindNull(1);
  }
  insert.BindInt(2, r.SequenceNumber());
  insert.BindInt(3, r.BadgeId());
  if (r.Department()) {
    insert.BindInt(4, *r.Department());
  } else {
    insert.BindNull(4);
  }
  insert.BindText(5, r.JobNumber());
  insert.BindText(6, r.Level4());
  insert.BindText(7, r.Level5());
  insert.BindText(8, r.PunchType());
  char date_in[16], time_in[16], date_out[16], time_out[16];
  BindDate(insert, 9, r.DateIn(), date_in);
  BindTime(insert, 10, r.TimeIn(), time_in);
  BindDate(insert, 11, r.DateOut(), date_out);
  BindTime(insert, 12, r.Timeout(), time_out);
  if (r.Amount()) {
    // Through the float's shortest text, so 12.3f is stored as 12.3 and not 12.300000190734863.
    char text[32];
    const auto end = fmt::format_to_n(text, sizeof text, "{}", *r.Amount()).out;
    double amount = 0;
    std::from_chars(text, end, amount);
    insert.BindReal(13, amount);
  } else {
    insert.BindNull(13);
  }
  insert.Execute();
  last_row_id_ = id ? *id : db_.LastInsertId();
}

}  // namespace clockcomm::records
