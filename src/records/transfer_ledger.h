// What has been transferred, kept in the company database itself so that a row and its ledger
// entry are committed together: a transfer run again after a crash skips exactly the lines that
// went in. A line is known by the file's name, its line number and a hash of its bytes, so a
// file that grew since (the daily file) transfers only its new lines, and a later file that
// reuses the name (next year's 10200001.TCD) is not mistaken for the old one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "db/database.h"

namespace clockcomm::records {

class TransferLedger {
 public:
  // Creates the ledger table when missing.
  explicit TransferLedger(db::Database& company_db);
  ~TransferLedger();

  // 64-bit FNV-1a of the line's bytes (without line end), as 16 hex digits.
  static std::string LineHash(std::string_view line);
  static uint64_t LineHashValue(std::string_view line);

  // Opens the entries of one file name for Contains. A file with no entries (its first transfer)
  // is answered without a query per line.
  void LoadFile(std::string_view file_name);
  bool Contains(int line_number, uint64_t line_hash);
  // Records a transferred line; call inside the transaction that wrote its row.
  void Add(std::string_view file_name, int line_number, uint64_t line_hash, int64_t clock_data_id);
  // How many entries the database holds for a file name.
  int64_t CountForFile(std::string_view file_name);
  // Forgets the entries of a file name whose rows are no longer in [Clock Data Table] (an
  // administrator deleted them), so that the next transfer puts exactly those lines back. Entries
  // whose rows are still there stay: a row is never doubled. Returns the entries forgotten.
  int64_t ForgetDeletedRows(std::string_view file_name);

 private:
  db::Database& db_;
  std::string loaded_file_;
  bool loaded_has_entries_ = false;
  std::unique_ptr<db::Statement> find_;
  std::unique_ptr<db::Statement> add_;
};

}  // namespace clockcomm::records
