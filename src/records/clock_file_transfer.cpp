#include "records/clock_file_transfer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>
#include <optional>

#include "core/durable_file.h"
#include "core/text.h"
#include "db/location.h"
#include "db/open.h"
#include "records/database_writer.h"
#include "records/employee_info.h"
#include "records/parameter_override.h"
#include "records/punch_batch.h"
#include "records/punch_keys.h"
#include "records/tcd_copier.h"
#include "records/tcd_db_writer.h"
#include "records/tcd_file_reader.h"
#include "records/tcd_record_override_service.h"

namespace clockcomm::records {
namespace {

// The lines that hold more than blanks (a line's final carriage return aside), read a piece at a
// time. Throws SystemError naming the file.
int CountRecordLines(const std::filesystem::path& file) {
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw core::SystemError::FromErrno(errno, file.string());
  int count = 0;
  int others = 0;  // characters of the line so far that are not blanks
  char last = 0;
  char buffer[64 * 1024];
  while (true) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int err = errno;
      close(fd);
      throw core::SystemError::FromErrno(err, file.string());
    }
    if (n == 0) break;
    for (ssize_t i = 0; i < n; ++i) {
      const char c = buffer[i];
      if (c == '\n') {
        if (others - (last == '\r' ? 1 : 0) > 0) ++count;
        others = 0;
        last = 0;
        continue;
      }
      if (c != ' ' && c != '\t') ++others;
      last = c;
    }
  }
  close(fd);
  if (others - (last == '\r' ? 1 : 0) > 0) ++count;
  return count;
}

// The bad lines of one run, written beside the clock file as they come and put in place at the
// end: a run repeated after a crash neither loses nor doubles a rejected line.
class RejectFile {
 public:
  explicit RejectFile(std::filesystem::path path) : path_(std::move(path)) {
    tmp_ = path_;
    tmp_ += ".tmp";
  }
  ~RejectFile() {
    if (out_.is_open()) {
      out_.close();
      std::error_code ec;
      std::filesystem::remove(tmp_, ec);
    }
  }
  void Add(const std::string& line) {
    if (!out_.is_open()) {
      out_.open(tmp_, std::ios::binary | std::ios::trunc);
      if (!out_) throw core::SystemError::FromErrno(errno, tmp_.string());
    }
    out_ << line << "\r\n";
    ++count_;
  }
  int Count() const { return count_; }
  // Puts the lines in place, or removes an old reject file when this run found none.
  void Finish() {
    std::error_code ec;
    if (count_ == 0) {
      std::filesystem::remove(path_, ec);
      return;
    }
    out_.close();
    if (!out_) throw core::SystemError::FromErrno(errno, tmp_.string());
    core::SyncFile(tmp_);
    std::filesystem::rename(tmp_, path_);
    core::SyncDirectory(path_.parent_path());
  }

 private:
  std::filesystem::path path_;
  std::filesystem::path tmp_;
  std::ofstream out_;
  int count_ = 0;
};

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
  try {
    result.records_in_file = CountRecordLines(file);
  } catch (const core::SystemError& e) {
    log_.Event("System error", e.what());
    throw TransferError(std::string("Cannot read TCD file: ") + e.what());
  }
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
  const std::string db_name = db::ShownLocation(db_path.native());
  std::error_code ec;
  if (!db::IsServerLocation(db_path.native()) && !std::filesystem::exists(db_path, ec)) {
    const std::string msg = "Company database " + db_name + " of company " + company.Name() +
                            " was not found. " + file_name +
                            " was not transferred and stays where it was.";
    log_.Event("System error", msg);
    throw TransferError(msg);
  }

  ParameterOverride settings(paths_.program_folder);
  RejectFile rejects(RejectPath(file));
  try {
    db = db::Open(db_path);
    PunchKeys keys(*db);
    PunchKeys::Hasher key_of(company.ClockName());
    if (options.again) {
      result.forgotten = static_cast<int>(keys.ForgetDeletedRows());
      log_.Event("Transfer again", "Operator asked to transfer " + file.string() +
                                       " again: forgot " + std::to_string(result.forgotten) +
                                       " punch keys whose rows were deleted from [Clock Data "
                                       "Table]");
    }
    TcdRecordOverrideService overrides(EmployeeInfoMap::Load(*db), settings);
    TcdFileReader reader(file);
    TcdDbWriter writer(*db);
    PunchBatch punches(*db, keys, writer);

    // A batch's rows and punch keys are committed together, so a run after a crash finds each
    // line either fully in or not at all. With transactions off the batches are written in one
    // transaction for the whole file; memory holds one batch either way.
    const int batch_rows = std::max(1, options.batch_rows);
    std::optional<db::Transaction> transaction;
    const auto after_write = [&](const TcdRecord& written) {
      if (options.break_lunch_matcher &&
          (written.PunchType() == "LI" || written.PunchType() == "BI")) {
        options.break_lunch_matcher(written);
      }
    };
    const auto write = [&](bool last) {
      if (!transaction) transaction.emplace(*db);
      const PunchBatch::Result batch = punches.Write(after_write);
      result.inserted += batch.written;
      result.already_present += batch.already_present;
      if (!options.use_transactions && !last) return;
      try {
        transaction->Commit();
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
      transaction.reset();
    };

    int read_count = 0;
    std::optional<TcdRecord> record;
    while (true) {
      std::string reason;
      PunchKey key;  // the punch as the terminal sent it, before the transfer's changes
      try {
        if (!reader.Read()) break;
        record = *reader.Record();
        key = key_of.Of(*record);
        MoveOutPunch(*record);
        ApplyOverrides(overrides, *record);
      } catch (const db::DatabaseError&) {
        throw;
      } catch (const core::Error& e) {
        record.reset();
        reason = e.what();
      }
      ++read_count;
      if (options.listener != nullptr && record) {
        options.listener->RecordCopied(*record, read_count);
      }
      if (!record) {
        log_.Event("Bad TCD line",
                   file_name + " line " + std::to_string(reader.LineNumber()) + ": " + reason);
        rejects.Add(reader.Line());
        continue;
      }
      // Known by its content, from this file, another file or another call. Lines already in
      // count too: a file sent again holds the write lock no longer than one batch at a time.
      punches.Add(key, std::move(*record));
      if (static_cast<int>(punches.Size()) == batch_rows) write(false);
    }
    if (punches.Size() > 0 || transaction) write(true);
    reader.CloseReader();
    writer.CloseWriter();
    result.rejected = rejects.Count();
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
    throw TransferError("Company database " + db_name + " " + what + " (" + e.what() + "). " +
                        std::to_string(result.inserted) + " row(s) of " + file_name +
                        " went in; the file stays where it was, run the transfer again.");
  }

  rejects.Finish();
  if (result.rejected > 0) {
    result.reject_file = RejectPath(file);
    log_.Screen(Screen("{0} " + std::to_string(result.rejected) + " bad line(s) of " + file_name +
                       " kept in " + result.reject_file.filename().string()));
  }

  if (options.mode_letter != "W") {
    // A copy: the clock file stays in place, and the punch keys keep a second run from doubling.
    result.archive_file = ArchivePath(file);
    core::CopyFileAtomically(file, result.archive_file);
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
      total += CountRecordLines(f);
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
