// What has been transferred, kept in the company database itself so that a row and its ledger
// entry are committed together: a transfer run again after a crash skips exactly the lines that
// went in. A line is known by the file's name, its line number and a hash of its bytes, so a
// file that grew since (the daily file) transfers only its new lines, and a later file that
// reuses the name (next year's 10200001.TCD) is not mistaken for the old one.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "db/database.h"

namespace clockcomm::records {

class TransferLedger {
 public:
  // Creates the ledger table when missing.
  explicit TransferLedger(db::Database& company_db);

  // 64-bit FNV-1a of the line's bytes (without line end), as 16 hex digits.
  static std::string LineHash(std::string_view line);

  // Loads the entries of one file name, so that lookups during a transfer need no query.
  void LoadFile(std::string_view file_name);
  bool Contains(int line_number, const std::string& line_hash) const;
  // Records a transferred line; call inside the transaction that wrote its row.
  void Add(std::string_view file_name, int line_number, const std::string& line_hash,
           int64_t clock_data_id);
  // How many entries the database holds for a file name.
  int64_t CountForFile(std::string_view file_name);
  // Forgets the entries of a file name whose rows are no longer in [Clock Data Table] (an
  // administrator deleted them), so that the next transfer puts exactly those lines back. Entries
  // whose rows are still there stay: a row is never doubled. Returns the entries forgotten.
  int64_t ForgetDeletedRows(std::string_view file_name);

 private:
  db::Database& db_;
  std::string loaded_file_;
  std::set<std::pair<int, std::string>> entries_;
};

}  // namespace clockcomm::records
