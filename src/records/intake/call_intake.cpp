#include "records/intake/call_intake.h"

#include <fstream>

#include "core/durable_file.h"
#include "core/errors.h"
#include "core/safe_path.h"
#include "core/screen_message.h"
#include "core/text.h"
#include "db/open.h"
#include "records/clock_file_transfer.h"
#include "records/intake/call_file.h"
#include "records/intake/history_purge.h"
#include "records/tcd_archive.h"
#include "records/tcd_file_reader.h"

namespace clockcomm::records {
namespace {

std::string SystemErrorText(const core::SystemError& e) {
  return "System error " + std::to_string(e.Number()) + ": " + e.Description();
}

}  // namespace

CallIntake::CallIntake(IntakePaths paths, CompanyFactory& companies, core::LogSink& log,
                       core::Clock& clock)
    : paths_(std::move(paths)),
      companies_(companies),
      log_(log),
      clock_(clock),
      overrides_(paths_.program_folder) {}

CallIntake::~CallIntake() = default;

void CallIntake::Show(std::string_view format, std::initializer_list<std::string_view> details) {
  log_.Screen(core::ScreenMessage(format, clock_.Now(), details));
}

OpenResult CallIntake::Open(CallOrigin origin) {
  Reset();
  origin_ = std::move(origin);
  company_ = companies_.GetCompanyByClockName(origin_.clock_name);
  if (!company_) {
    log_.Event("System setup error",
               "Clock name '" + origin_.clock_name + "' was not found in Company3.mdb");
  } else {
    try {
      company_db_ = db::Open(company_->ClockwynDatabaseFilename());
    } catch (const core::Error& e) {
      // The punches are still kept; the transfer assigns and reports again.
      log_.Event("AssignDepartmentsAndJobs Error", e.what());
    }
  }
  overrides_ = ParameterOverride(paths_.program_folder);
  assigner_ = std::make_unique<DepartmentJobAssigner>(overrides_, company_db_.get(), log_);
  try {
    auto file = ClaimCallFile(paths_.data_directory, clock_.Now().GetDate(), origin_.upload_type);
    if (!file) {
      log_.Event("System error", kAllCallFilesUsed);
      Show(std::string("{0} System error, ") + kAllCallFilesUsed);
      return OpenResult::kAllFilesUsed;
    }
    file_ = *file;
    writer_ = std::make_unique<TcdFileWriter>(file_, true);
  } catch (const core::SystemError& e) {
    log_.Event(SystemErrorText(e), "Couldn't open dot file.");
    Show("{0} File open error - check log for details");
    return OpenResult::kFileError;
  }
  Show("{0} File opened is: {1}", {file_.string()});
  return OpenResult::kOpened;
}

void CallIntake::Add(TcdRecord record) {
  if (!writer_) throw core::InvalidOperationException("Data packet before header.");
  assigner_->Assign(record);
  writer_->WriteRecord(record);
  ++record_count_;
}

void CallIntake::Reject(std::string_view packet, std::string_view reason) {
  if (reject_file_.empty()) {
    reject_file_ = file_.empty() ? paths_.data_directory / kNoHeaderRejectFile
                                 : std::filesystem::path(file_).replace_extension(".BAD");
  }
  std::ofstream out(reject_file_, std::ios::app | std::ios::binary);
  out << packet << "\t" << reason << "\r\n";
  out.flush();
  ++rejected_;
  if (!out) log_.Event("Error", "Couldn't write " + reject_file_.string());
}

bool CallIntake::Seal() {
  try {
    if (writer_) {
      writer_->Sync();
      writer_->CloseWriter();
      writer_.reset();
    }
    if (!reject_file_.empty()) core::SyncFile(reject_file_);
    core::SyncDirectory(paths_.data_directory);
    return true;
  } catch (const core::SystemError& e) {
    log_.Event(SystemErrorText(e), "Couldn't write the call's file " + file_.string());
    writer_.reset();
    return false;
  }
}

void CallIntake::Finish(bool succeeded) {
  writer_.reset();
  if (!succeeded) {
    std::error_code ec;
    if (!file_.empty()) std::filesystem::remove(file_, ec);
    // NOHEADER.BAD may hold other calls' packets: it stays.
    if (!reject_file_.empty() && reject_file_.filename() != kNoHeaderRejectFile) {
      std::filesystem::remove(reject_file_, ec);
    }
    Show("{0} Upload Incomplete");
  }
  if (succeeded && record_count_ > 0) {
    Archive();
    Transfer();
    CopyToDuplicateFolders();
    PurgeHistoryFiles(paths_.data_directory, clock_, log_);
  } else if (record_count_ == 0) {
    Show("{0} No records in batch.");
    log_.Event("No records in batch.", origin_.clock_name);
  }
  Reset();
}

// Every received line also goes to the company's daily and permanent archives.
void CallIntake::Archive() {
  if (!company_) return;
  try {
    TcdArchiveWriter archive(*company_, clock_.Now().GetDate());
    TcdFileReader reader(file_);
    while (reader.Read()) archive.WriteRecord(*reader.Record());
    archive.Sync();
    archive.CloseWriter();
  } catch (const core::SystemError& e) {
    log_.Event("System error " + std::to_string(e.Number()), e.Description());
    Show(kArchiveOpenScreenText);
  } catch (const core::Error& e) {
    log_.Event("Error", e.what());
  }
}

void CallIntake::Transfer() {
  ClockFileTransfer transfer({paths_.program_folder, paths_.registry_database}, log_, clock_);
  TransferOptions options;
  options.mode_letter = origin_.upload_type;
  // The call's file is already on the disk, so the rows go in as one transaction (all or none,
  // each with its ledger entry): one sync per call instead of one per punch.
  options.use_transactions = false;
  try {
    transfer.Transfer(company_.value_or(Company()), file_, options);
  } catch (const core::Error& e) {
    Show("{0} {1}", {e.what()});
    log_.Event("Transfer failed", e.what());
  }
}

void CallIntake::CopyToDuplicateFolders() {
  const std::string templates = overrides_.DuplicateTCD();
  if (templates.empty()) return;
  const std::string file_name = file_.filename().string();
  for (const std::string& item : core::Split(templates, '+')) {
    std::string folder = core::Trim(item);
    if (folder.empty()) continue;
    folder = core::ReplaceAll(folder, "[ClockName]", core::SafeFileName(origin_.clock_name));
    folder = core::ReplaceAll(folder, "[FileName]", file_name);
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    std::filesystem::copy_file(file_, std::filesystem::path(folder) / file_name,
                               std::filesystem::copy_options::overwrite_existing, ec);
    if (ec) {
      log_.Event("Error", "Couldn't copy " + file_name + " to " + folder + ": " + ec.message());
    }
  }
}

void CallIntake::Reset() {
  origin_ = CallOrigin();
  company_.reset();
  assigner_.reset();
  company_db_.reset();
  file_.clear();
  writer_.reset();
  reject_file_.clear();
  record_count_ = 0;
  rejected_ = 0;
}

}  // namespace clockcomm::records
