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
void BindDate(db::RowBinder& s, int index, const std::optional<core::Date>& date, char* buffer) {
  if (!date) return s.BindNull(index);
  s.BindText(index, std::string_view(buffer, core::FormatIsoDate(*date, buffer) - buffer));
}

void BindTime(db::RowBinder& s, int index, const std::optional<core::TimeOfDay>& time,
              char* buffer) {
  if (!time) return s.BindNull(index);
  s.BindText(index, std::string_view(buffer, core::FormatTime(*time, true, buffer) - buffer));
}

// Text of the dates and times, alive until the row is run.
struct DateTimeText {
  char date_in[16], time_in[16], date_out[16], time_out[16];
};

// Punch to [Time Out], from column `first`; the ID and the amount are the caller's.
void BindColumns(db::RowBinder& row, int first, const TcdRecord& r, DateTimeText& text) {
  row.BindInt(first, r.SequenceNumber());
  row.BindInt(first + 1, r.BadgeId());
  if (r.Department()) {
    row.BindInt(first + 2, *r.Department());
  } else {
    row.BindNull(first + 2);
  }
  row.BindText(first + 3, r.JobNumber());
  row.BindText(first + 4, r.Level4());
  row.BindText(first + 5, r.Level5());
  row.BindText(first + 6, r.PunchType());
  BindDate(row, first + 7, r.DateIn(), text.date_in);
  BindTime(row, first + 8, r.TimeIn(), text.time_in);
  BindDate(row, first + 9, r.DateOut(), text.date_out);
  BindTime(row, first + 10, r.Timeout(), text.time_out);
}

void BindAmount(db::RowBinder& row, int index, const TcdRecord& r) {
  if (!r.Amount()) return row.BindNull(index);
  // Through the float's shortest text, so 12.3f is stored as 12.3 and not 12.300000190734863.
  char text[32];
  const auto end = fmt::format_to_n(text, sizeof text, "{}", *r.Amount()).out;
  double amount = 0;
  std::from_chars(text, end, amount);
  row.BindReal(index, amount);
}

constexpr const char* kColumns[] = {"ID",        "Punch",     "[Card ID]",  "Department",
                                    "JobNumber", "Level4",    "Level5",     "[Punch Type]",
                                    "[Date In]", "[Time In]", "[Date Out]", "[Time Out]"};

}  // namespace

void TcdDbWriter::WriteRecord(const TcdRecord& r) {
  if (!open_) throw core::InvalidOperationException("The clock data writer is closed.");
  db::Statement& insert = InsertFor(AmountColumnForPunchType(r.PunchType()));
  DateTimeText text;
  // No ID: the table numbers the row (NULL would do on SQLite, not for a server's identity).
  BindColumns(insert, 1, r, text);
  BindAmount(insert, 12, r);
  insert.Execute();
  last_row_id_ = db_.LastInsertId();
}

void TcdDbWriter::WriteMany(const std::vector<const TcdRecord*>& records, int64_t first_id) {
  if (!open_) throw core::InvalidOperationException("The clock data writer is closed.");
  if (records.empty()) return;
  std::vector<std::string> columns(std::begin(kColumns), std::end(kColumns));
  columns.insert(columns.end(), kAmountColumns.begin(), kAmountColumns.end());
  auto rows = db_.InsertMany("[Clock Data Table]", columns);
  const int first_amount = static_cast<int>(std::size(kColumns)) + 1;
  DateTimeText text;
  int64_t id = first_id;
  for (const TcdRecord* r : records) {
    rows->BindInt(1, id++);
    BindColumns(*rows, 2, *r, text);
    const size_t amount = AmountColumnIndex(r->PunchType());
    for (size_t i = 0; i < kAmountColumns.size(); ++i) {
      if (i == amount) {
        BindAmount(*rows, first_amount + static_cast<int>(i), *r);
      } else {
        rows->BindNull(first_amount + static_cast<int>(i));
      }
    }
    rows->AddRow();
  }
  rows->Finish();
  last_row_id_ = id - 1;
}

}  // namespace clockcomm::records
