#include "records/transfer_ledger.h"

namespace clockcomm::records {
namespace {

// The hash's text form, written into a caller's buffer of 16.
std::string_view HexOf(uint64_t value, char* out) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (int i = 15; i >= 0; --i, value >>= 4) out[i] = kDigits[value & 0xF];
  return std::string_view(out, 16);
}

}  // namespace

TransferLedger::TransferLedger(db::Database& company_db) : db_(company_db) {
  db_.Execute(
      "CREATE TABLE IF NOT EXISTS [Transfer Ledger] ("
      "FileName TEXT NOT NULL, Line INTEGER NOT NULL, LineHash TEXT NOT NULL, "
      "ClockDataID INTEGER, "
      // Without rowid the key is the table: one b-tree page written per entry, not two.
      "PRIMARY KEY (FileName, Line, LineHash)) WITHOUT ROWID");
}

TransferLedger::~TransferLedger() = default;

uint64_t TransferLedger::LineHashValue(std::string_view line) {
  uint64_t h = 14695981039346656037ull;
  for (unsigned char c : line) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return h;
}

std::string TransferLedger::LineHash(std::string_view line) {
  char hex[16];
  return std::string(HexOf(LineHashValue(line), hex));
}

void TransferLedger::LoadFile(std::string_view file_name) {
  loaded_file_ = std::string(file_name);
  loaded_has_entries_ =
      !db_.Query("SELECT 1 FROM [Transfer Ledger] WHERE FileName = ? LIMIT 1", {file_name}).Eof();
}

bool TransferLedger::Contains(int line_number, uint64_t line_hash) {
  if (!loaded_has_entries_) return false;
  if (!find_) {
    find_ = db_.Prepare(
        "SELECT 1 FROM [Transfer Ledger] WHERE FileName = ? AND Line = ? AND LineHash = ?");
  }
  char hex[16];
  find_->BindText(1, loaded_file_);
  find_->BindInt(2, line_number);
  find_->BindText(3, HexOf(line_hash, hex));
  return find_->HasRow();
}

void TransferLedger::Add(std::string_view file_name, int line_number, uint64_t line_hash,
                         int64_t clock_data_id) {
  if (!add_) {
    add_ = db_.Prepare(
        "INSERT INTO [Transfer Ledger] (FileName, Line, LineHash, ClockDataID) VALUES (?, ?, ?, "
        "?)");
  }
  char hex[16];
  add_->BindText(1, file_name);
  add_->BindInt(2, line_number);
  add_->BindText(3, HexOf(line_hash, hex));
  add_->BindInt(4, clock_data_id);
  add_->Execute();
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
