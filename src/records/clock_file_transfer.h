// Moves the punches of a clock's TCD files into its company's [Clock Data Table]: out-punches
// into the out columns, the department/job assignment applied, the rows committed in batches each
// with their punch keys, bad lines to a reject file, the file archived as ".ARC", and the
// stamps set. The file is read as a stream: memory stays flat whatever its size.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/errors.h"
#include "core/log_sink.h"
#include "db/database.h"
#include "records/company.h"
#include "records/tcd_stream.h"

namespace clockcomm::records {

// A transfer that could not run or stopped; the TCD file stays where it was.
class TransferError : public core::Error {
 public:
  explicit TransferError(const std::string& message) : core::Error(message) {}
};

struct TransferOptions {
  // Rows are committed in batches of batch_rows (the default): a crash loses at most the batch in
  // hand, which the next run puts in, and the disk syncs once per batch, not once per row. Off:
  // one transaction for the whole file, all rows or none.
  bool use_transactions = true;
  int batch_rows = 20000;
  // The call's upload type; "W" files are transferred but not archived.
  std::string mode_letter;
  // Told after each record read, before its row is written (the progress display).
  UpdateListener* listener = nullptr;
  // Run after a lunch-in or break-in row is written, inside its batch: badge, punch type, out
  // date, out time.
  std::function<void(const TcdRecord&)> break_lunch_matcher;
  // The operator's "transfer again": first forget the punch keys whose rows were deleted from
  // the table, so those punches go in once more; logged as an event.
  bool again = false;
};

struct TransferResult {
  int records_in_file = 0;
  int inserted = 0;                    // rows written by this run
  int already_present = 0;             // punches whose key showed them in before
  int forgotten = 0;                   // keys of deleted rows forgotten (again only)
  int rejected = 0;                    // bad lines, kept in the reject file
  std::filesystem::path archive_file;  // empty when not archived
  std::filesystem::path reject_file;   // empty when there were no bad lines
};

struct TransferPaths {
  std::filesystem::path program_folder;     // where "SettingsOverride.txt" lies
  std::filesystem::path registry_database;  // COMPANY3.db, for the clock-table stamp
};

class ClockFileTransfer {
 public:
  ClockFileTransfer(TransferPaths paths, core::LogSink& log, core::Clock& clock)
      : paths_(std::move(paths)), log_(log), clock_(clock) {}

  // Transfers one file of the company's clock. A company that IsEmpty() cancels the transfer.
  // Throws TransferError (missing company or database, locked database, unreadable file).
  TransferResult Transfer(const Company& company, const std::filesystem::path& file,
                          const TransferOptions& options = {});
  // Transfers several files of one call group, each as above, in order.
  std::vector<TransferResult> TransferGroup(const Company& company,
                                            const std::vector<std::filesystem::path>& files,
                                            const TransferOptions& options = {});

  // Names beside the clock file: <name>.ARC and <name>.REJ.
  static std::filesystem::path ArchivePath(const std::filesystem::path& file);
  static std::filesystem::path RejectPath(const std::filesystem::path& file);

 private:
  std::string Screen(std::string text) const;
  void StampAfterTransfer(db::Database& company_db, const Company& company);

  TransferPaths paths_;
  core::LogSink& log_;
  core::Clock& clock_;
};

}  // namespace clockcomm::records
