#include "records/clock_file_transfer.h"

#include <memory>
#include <optional>

#include "core/durable_file.h"
#include "core/text.h"
#include "db/open.h"
#include "records/database_writer.h"
#include "records/employee_info.h"
#include "records/parameter_override.h"
#include "records/punch_keys.h"
#include "records/tcd_copier.h"
#include "records/tcd_db_writer.h"
#include "records/tcd_file_reader.h"
#include "records/tcd_record_override_service.h"
#include "records/transfer_ledger.h"

namespace clockcomm::records {
namespace {

struct BadLine {
  int number;
  std::string text;
};

int CountRecordLines(const std::string& content) {
  int count = 0;
  for (const auto& line : core::Split(content, '\n')) {
    std::string_view v = line;
    if (!v.empty() && v.back() == '\r') v.remove_suffix(1);
    if (!core::TrimView(v).empty()) ++count;
  }
  return count;
}

std::filesystem::path WithExtension(const std::filesystem::path& file, const char* ext) {
  std::filesystem::path p = file;
  p.replace_extension(ext);
  return p;
}

}  // namespace

std::filesystem::path ClockFileTransfer::ArchivePath(const std::filesystem::path& file) {
  return WithExtension(file, ".ARC");
}

std::filesystem::path ClockFileTransfer::RejectPath(const std::filesystem::path& file) {
  return WithExtension(file, ".REJ");
}

std::string ClockFileTransfer::Screen(std::string text) const {
  return core::ReplaceAll(std::move(text), "{0}", clock_.Now().ToString());
}

TransferResult ClockFileTransfer::Transfer(const Company& company,
                                           const std::filesystem::path& file,
                                           const TransferOptions& options) {
  TransferResult result;
  const std::string file_name = file.filename().string();
  std::string content;
  try {
    content = core::ReadWholeFile(file);
  } catch (const core::SystemError& e) {
    log_.Event("System error", e.what());
    throw TransferError(std::string("Cannot read TCD file: ") + e.what());
  }
  result.records_in_file = CountRecordLines(content);
  log_.Screen(Screen("{0} " + std::to_string(result.records_in_file) + " record(s) in batch."));

  if (company.IsEmpty()) {
    const std::string msg = Screen("{0} - Invalid Object: 'CurrentCompany'.  Canceling transfer.");
    log_.Screen(msg);
    log_.Event("Start of Data Transfer", msg);
    throw TransferError(msg);
  }
  log_.Event("Start of Data Transfer", company.Name() + " database");
  log_.Screen(Screen("{0} Start of data transfer " + company.Name() + " database"));

  const std::filesystem::path db_path = company.ClockwynDatabaseFilename();
  std::unique_ptr<db::Database> db;
  std::error_code ec;
  if (!std::filesystem::exists(db_path, ec)) {
    const std::string msg = "Company database " + db_path.string() + " of company " +
                            company.Name() + " was not found. " + file_name +
                            " was not transferred and stays where it was.";
    log_.Event("System error", msg);
    throw TransferError(msg);
  }

  ParameterOverride settings(paths_.program_folder);
  std::vector<BadLine> bad_lines;
  try {
    db = db::Open(db_path);
    TransferLedger ledger(*db);
    PunchKeys keys(*db);
    const core::Date today = clock_.Now().GetDate();
    keys.Expire(today);
    if (options.again) {
      keys.ForgetDeletedRows();
      result.forgotten = static_cast<int>(ledger.ForgetDeletedRows(file_name));
      log_.Event("Transfer again",
                 "Operator asked to transfer " + file.string() + " again: forgot " +
                     std::to_string(result.forgotten) +
                     " ledger entries whose rows were deleted from [Clock Data Table]");
    }
    ledger.LoadFile(file_name);
    TcdRecordOverrideService overrides(EmployeeInfoMap::Load(*db), settings);
    TcdFileReader reader(file);
    TcdDbWriter writer(*db);

    // Without per-row transactions the whole file is one transaction: all rows or none.
    std::optional<db::Transaction> file_transaction;
    if (!options.use_transactions) file_transaction.emplace(*db);

    int read_count = 0;
    while (true) {
      std::optional<TcdRecord> record;
      std::string reason;
      std::string key;  // the punch as the terminal sent it, before the transfer's changes
      try {
        if (!reader.Read()) break;
        record = *reader.Record();
        key = PunchKeys::KeyOf(company.ClockName(), *record);
        MoveOutPunch(*record);
        ApplyOverrides(overrides, *record);
      } catch (const db::DatabaseError&) {
        throw;
      } catch (const core::Error& e) {
        reason = e.what();
      }
      ++read_count;
      if (options.listener != nullptr && record) {
        options.listener->RecordCopied(*record, read_count);
      }
      if (!record) {
        log_.Event("Bad TCD line",
                   file_name + " line " + std::to_string(reader.LineNumber()) + ": " + reason);
        bad_lines.push_back({reader.LineNumber(), reader.Line()});
        continue;
      }
      const std::string hash = TransferLedger::LineHash(reader.Line());
      // Known by its line, or by its content from another file, another line or another call.
      if (ledger.Contains(reader.LineNumber(), hash) || keys.Contains(key)) {
        ++result.already_present;
        continue;
      }
      if (options.use_transactions) {
        db::Transaction row(*db);
        writer.WriteRecord(*record);
        ledger.Add(file_name, reader.LineNumber(), hash, writer.LastRowId());
        keys.Add(key, writer.LastRowId(), today);
        try {
          row.Commit();
        } catch (const db::DatabaseError& e) {
          try {
            db->Rollback();
          } catch (const std::exception& rollback_error) {
            log_.Event(
                "DBEngine.Rollback error [ImportTC20Data]",
                std::string("DBEngine.Rollback error [ImportTC20Data], ") + rollback_error.what());
          }
          throw;
        }
      } else {
        writer.WriteRecord(*record);
        ledger.Add(file_name, reader.LineNumber(), hash, writer.LastRowId());
        keys.Add(key, writer.LastRowId(), today);
      }
      ++result.inserted;
      if (options.break_lunch_matcher &&
          (record->PunchType() == "LI" || record->PunchType() == "BI")) {
        options.break_lunch_matcher(*record);
      }
    }
    if (file_transaction) file_transaction->Commit();
    reader.CloseReader();
    writer.CloseWriter();
    result.rejected = static_cast<int>(bad_lines.size());
  } catch (const db::DatabaseError& e) {
    log_.Event("System error", e.what());
    std::string what = "could not be written";
    switch (e.GetCause()) {
      case db::DatabaseError::Cause::kBusy:
        what = "is locked by another user";
        break;
      case db::DatabaseError::Cause::kDamaged:
        what = "is damaged (no readable database); restore it from a backup";
        break;
      case db::DatabaseError::Cause::kFull:
        what = "could not be written: the disk is full";
        break;
      case db::DatabaseError::Cause::kOther:
        break;
    }
    throw TransferError("Company database " + db_path.string() + " " + what + " (" + e.what() +
                        "). " + std::to_string(result.inserted) + " row(s) of " + file_name +
                        " went in; the file stays where it was, run the transfer again.");
  }

  // Bad lines follow from the file's content alone, so the reject file is rewritten whole each
  // run: a run repeated after a crash neither loses nor doubles a rejected line.
  const auto reject_path = RejectPath(file);
  if (!bad_lines.empty()) {
    std::string rejects;
    for (const auto& bad : bad_lines) rejects += bad.text + "\r\n";
    core::WriteFileAtomically(reject_path, rejects);
    result.reject_file = reject_path;
    log_.Screen(Screen("{0} " + std::to_string(bad_lines.size()) + " bad line(s) of " + file_name +
                       " kept in " + reject_path.filename().string()));
  } else if (std::filesystem::exists(reject_path, ec)) {
    std::filesystem::remove(reject_path, ec);
  }

  if (options.mode_letter != "W") {
    // A copy: the clock file stays in place, and the ledger keeps a second run from doubling.
    result.archive_file = ArchivePath(file);
    core::WriteFileAtomically(result.archive_file, content);
    log_.Screen(Screen("{0} Data transferred to the archive file."));
    log_.Event("Data transferred to the archive file.", "The original clock file was retained.");
  }

  StampAfterTransfer(*db, company);
  log_.Screen(Screen("{0} Transfer for clock " + company.ClockName() + " complete"));
  return result;
}

void ClockFileTransfer::StampAfterTransfer(db::Database& company_db, const Company& company) {
  const core::Date today = clock_.Now().GetDate();
  // The rows are in; a stamp that cannot be written is logged, not a failed transfer.
  try {
    DatabaseWriter::StampCompanyDatabase(company_db, today);
  } catch (const db::DatabaseError& e) {
    log_.Event("System error", std::string("Clock Table Updated stamp: ") + e.what());
  }
  if (paths_.registry_database.empty()) return;
  try {
    auto registry = db::Open(paths_.registry_database);
    DatabaseWriter::StampRegistry(*registry, company.ClockName(), today);
  } catch (const db::DatabaseError& e) {
    log_.Event("System error", std::string("Clock Table Updated stamp: ") + e.what());
  }
}

std::vector<TransferResult> ClockFileTransfer::TransferGroup(
    const Company& company, const std::vector<std::filesystem::path>& files,
    const TransferOptions& options) {
  int total = 0;
  for (const auto& f : files) {
    try {
      total += CountRecordLines(core::ReadWholeFile(f));
    } catch (const core::SystemError&) {  // reported by Transfer below
    }
  }
  log_.Screen(Screen("{0} " + std::to_string(total) + " records in group."));
  log_.Event("Start of Data Transfer", company.Name());
  std::vector<TransferResult> results;
  for (const auto& f : files) results.push_back(Transfer(company, f, options));
  log_.Screen(Screen("{0} Transfer for call group complete"));
  return results;
}

}  // namespace clockcomm::records
