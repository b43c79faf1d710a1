#include "records/transfer_ledger.h"

#include <fmt/format.h>

namespace clockcomm::records {

TransferLedger::TransferLedger(db::Database& company_db) : db_(company_db) {
  db_.Execute(
      "CREATE TABLE IF NOT EXISTS [Transfer Ledger] ("
      "FileName TEXT NOT NULL, Line INTEGER NOT NULL, LineHash TEXT NOT NULL, "
      "ClockDataID INTEGER, "
      // Without rowid the key is the table: one b-tree page written per entry, not two.
      "PRIMARY KEY (FileName, Line, LineHash)) WITHOUT ROWID");
}

std::string TransferLedger::LineHash(std::string_view line) {
  uint64_t h = 14695981039346656037ull;
  for (unsigned char c : line) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return fmt::format("{:016x}", h);
}

void TransferLedger::LoadFile(std::string_view file_name) {
  entries_.clear();
  loaded_file_ = std::string(file_name);
  auto rs =
      db_.Query("SELECT Line, LineHash FROM [Transfer Ledger] WHERE FileName = ?", {file_name});
  for (const auto& row : rs.Rows()) {
    entries_.emplace(static_cast<int>(row[0].AsInt()), row[1].AsText());
  }
}

bool TransferLedger::Contains(int line_number, const std::string& line_hash) const {
  return entries_.count({line_number, line_hash}) != 0;
}

void TransferLedger::Add(std::string_view file_name, int line_number, const std::string& line_hash,
                         int64_t clock_data_id) {
  db_.Execute(
      "INSERT INTO [Transfer Ledger] (FileName, Line, LineHash, ClockDataID) VALUES (?, ?, ?, ?)",
      {file_name, line_number, line_hash, clock_data_id});
}

int64_t TransferLedger::CountForFile(std::string_view file_name) {
  return db_.Query("SELECT COUNT(*) FROM [Transfer Ledger] WHERE FileName = ?", {file_name})
      .Field(0)
      .AsInt();
}

int64_t TransferLedger::ForgetDeletedRows(std::string_view file_name) {
  // Row ids are never reused ([Clock Data Table].ID is AUTOINCREMENT), so a missing id means a
  // deleted row. An entry without an id cannot be checked and is kept.
  return db_.Execute(
      "DELETE FROM [Transfer Ledger] WHERE FileName = ? AND ClockDataID IS NOT NULL AND NOT "
      "EXISTS (SELECT 1 FROM [Clock Data Table] WHERE ID = [Transfer Ledger].ClockDataID)",
      {file_name});
}

}  // namespace clockcomm::records
