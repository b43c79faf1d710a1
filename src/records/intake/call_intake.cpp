#include "records/intake/call_intake.h"

#include <fstream>

#include "core/durable_file.h"
#include "core/screen_message.h"
#include "db/open.h"
#include "records/intake/call_file.h"
#include "records/intake/call_state.h"
#include "records/parameter_override.h"

namespace clockcomm::records {
namespace {

std::string SystemErrorText(const core::SystemError& e) {
  return "System error " + std::to_string(e.Number()) + ": " + e.Description();
}

}  // namespace

CallIntake::CallIntake(IntakePaths paths, CompanyFactory& companies, core::LogSink& log,
                       core::Clock& clock)
    : delivery_(std::move(paths), companies, log, clock),
      companies_(companies),
      log_(log),
      clock_(clock) {}

CallIntake::~CallIntake() = default;

void CallIntake::Show(std::string_view format, std::initializer_list<std::string_view> details) {
  log_.Screen(core::ScreenMessage(format, clock_.Now(), details));
}

OpenResult CallIntake::Open(CallOrigin origin) {
  Reset();
  origin_ = std::move(origin);
  const auto company = companies_.GetCompanyByClockName(origin_.clock_name);
  if (!company) {
    log_.Event("System setup error",
               "Clock name '" + origin_.clock_name + "' was not found in Company3.mdb");
  } else {
    try {
      company_db_ = db::Open(company->ClockwynDatabaseFilename());
    } catch (const core::Error& e) {
      // The punches are still kept; the transfer assigns and reports again.
      log_.Event("AssignDepartmentsAndJobs Error", e.what());
    }
  }
  assigner_ = std::make_unique<DepartmentJobAssigner>(
      ParameterOverride(delivery_.Paths().program_folder), company_db_.get(), log_);
  const auto& folder = delivery_.Paths().data_directory;
  try {
    auto file = ClaimCallFile(folder, clock_.Now().GetDate(), origin_.upload_type);
    if (!file) {
      log_.Event("System error", kAllCallFilesUsed);
      Show(std::string("{0} System error, ") + kAllCallFilesUsed);
      return OpenResult::kAllFilesUsed;
    }
    file_ = *file;
    lock_ = core::FileLock::TryLock(file_);
    WriteCallState(file_, {CallState::kReceiving, origin_, ""});
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
  try {
    writer_->WriteRecord(record);
  } catch (const core::SystemError& e) {
    log_.Event(SystemErrorText(e), "Couldn't write the call's file " + file_.string());
    throw IntakeStorageError(e.what());
  }
  ++record_count_;
}

void CallIntake::Reject(std::string_view packet, std::string_view reason) {
  if (reject_file_.empty()) {
    reject_file_ = file_.empty() ? delivery_.Paths().data_directory / kNoHeaderRejectFile
                                 : std::filesystem::path(file_).replace_extension(".BAD");
    reject_file_new_ = true;
  }
  std::ofstream out(reject_file_, std::ios::app | std::ios::binary);
  out << packet << "\t" << reason << "\r\n";
  out.flush();
  if (!out) {
    log_.Event("Error", "Couldn't write " + reject_file_.string());
    throw IntakeStorageError("Couldn't write " + reject_file_.string());
  }
  if (file_.empty()) {
    Show("{0} A packet without a usable header was kept in {1}", {reject_file_.string()});
    log_.Event("Packet kept", reject_file_.string() + ": " + std::string(reason));
  }
}

bool CallIntake::Seal() { return MakeDurable(false); }

bool CallIntake::SyncReceived() { return MakeDurable(true); }

bool CallIntake::MakeDurable(bool keep_open) {
  try {
    if (writer_) {
      writer_->Sync();
      if (!keep_open) {
        writer_->CloseWriter();
        writer_.reset();
      }
    }
    if (!reject_file_.empty()) core::SyncFile(reject_file_);
    const bool names_changed = !sealed_ || reject_file_new_;
    if (!file_.empty() && !sealed_) {
      // Pending before receiving goes: a crash in between leaves both, and pending wins.
      WriteCallState(file_, {CallState::kPending, origin_, ""});
      std::filesystem::remove(StateMarker(file_, CallState::kReceiving));
    }
    // The folder's entries (the state markers, a new .BAD file) change only now and then; once
    // they are durable, syncing the file alone keeps each further punch.
    if (names_changed) core::SyncDirectory(delivery_.Paths().data_directory);
    reject_file_new_ = false;
    sealed_ = !file_.empty();
    return true;
  } catch (const std::exception& e) {
    log_.Event("System error",
               "Couldn't make the call's file " + file_.string() + " durable: " + e.what());
    writer_.reset();
    return false;
  }
}

FinishResult CallIntake::Finish(bool succeeded) {
  writer_.reset();
  // Once sealed the terminal may have been told its punches arrived: the file is delivered, and
  // should the terminal send them again their content keys let each in once.
  succeeded = succeeded || sealed_;
  FinishResult result = FinishResult::kEmpty;
  if (!succeeded) {
    std::error_code ec;
    if (!file_.empty()) {
      std::filesystem::remove(file_, ec);
      ClearCallState(file_);
    }
    // NOHEADER.BAD may hold other calls' packets: it stays, on disk.
    if (reject_file_.filename() == kNoHeaderRejectFile) {
      try {
        core::SyncFile(reject_file_);
      } catch (const core::SystemError& e) {
        log_.Event("Error", "Couldn't sync " + reject_file_.string() + ": " + e.what());
      }
    } else if (!reject_file_.empty()) {
      std::filesystem::remove(reject_file_, ec);
    }
    Show("{0} Upload Incomplete");
    result = FinishResult::kIncomplete;
  }
  if (succeeded && record_count_ > 0) {
    const DeliveryResult delivered = delivery_.Deliver(origin_, file_);
    if (delivered.already_present > 0) {
      // A batch or packet sent again after a lost EOT, ACK or NAK: said, so that a terminal that
      // keeps re-sending is noticed.
      const std::string counts =
          std::to_string(delivered.already_present) + " of " + std::to_string(record_count_);
      Show("{0} {1} punches were already in the database and were not added again", {counts});
      log_.Event("Punches already present",
                 file_.string() + ": " + counts + " punches were already in the database");
    }
    try {
      if (delivered.delivered) {
        ClearCallState(file_);
      } else {
        WriteCallState(file_, {CallState::kPending, origin_, delivered.reason});
      }
    } catch (const core::SystemError& e) {
      log_.Event("Error", "Call state of " + file_.string() + ": " + e.what());
    }
    result = delivered.delivered ? FinishResult::kDelivered : FinishResult::kPending;
  } else if (record_count_ == 0) {
    if (succeeded && !file_.empty()) ClearCallState(file_);
    Show("{0} No records in batch.");
    log_.Event("No records in batch.", origin_.clock_name);
  }
  last_finish_ = result;
  Reset();
  return result;
}

void CallIntake::Reset() {
  origin_ = CallOrigin();
  assigner_.reset();
  company_db_.reset();
  file_.clear();
  writer_.reset();
  lock_.reset();
  reject_file_.clear();
  record_count_ = 0;
  sealed_ = false;
}

}  // namespace clockcomm::records
