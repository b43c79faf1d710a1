// The family-neutral end of a call: whatever terminal sent the punches, they go through here. The
// intake claims the call's numbered file, assigns departments and jobs once per punch, keeps
// packets that are not punches, makes everything durable (and marks the file pending) before the
// terminal may be told, and at the end of a good call delivers the file into the company's data.
// A file that cannot be delivered stays pending for the recovery sweep. A terminal driver never
// touches a file or a database itself.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/clock.h"
#include "core/errors.h"
#include "core/file_lock.h"
#include "core/log_sink.h"
#include "db/database.h"
#include "records/company.h"
#include "records/company_factory.h"
#include "records/department_job_assigner.h"
#include "records/intake/call_delivery.h"
#include "records/intake/call_origin.h"
#include "records/tcd_file_writer.h"
#include "records/tcd_record.h"

namespace clockcomm::records {

enum class OpenResult {
  kOpened,
  kAllFilesUsed,  // all 9999 numbered files of today exist: the run must end
  kFileError,     // the file could not be made (logged): the run must end
};

// How the end of a call left its punches.
enum class FinishResult {
  kDelivered,   // in the company database
  kPending,     // durable, waiting for a company or a database (named on the screen and logged)
  kIncomplete,  // the call failed: the file is gone, the terminal kept its punches
  kEmpty,       // nothing to deliver
};

// What a terminal sent could not be stored: the terminal must not be told it arrived.
class IntakeStorageError : public core::Error {
 public:
  explicit IntakeStorageError(const std::string& message) : core::Error(message) {}
};

// Packets of calls without a usable header are kept here; no later call removes it.
inline constexpr const char* kNoHeaderRejectFile = "NOHEADER.BAD";

class CallIntake {
 public:
  CallIntake(IntakePaths paths, CompanyFactory& companies, core::LogSink& log, core::Clock& clock);
  ~CallIntake();

  // The call's clock is known: its company is looked up (an unknown clock is logged, its punches
  // are still kept) and the call's file is claimed and marked as receiving.
  OpenResult Open(CallOrigin origin);
  bool IsOpen() const { return writer_ != nullptr; }
  const CallOrigin& Origin() const { return origin_; }
  const std::filesystem::path& File() const { return file_; }
  int RecordCount() const { return record_count_; }

  // A punch as the terminal sent it: assigned and written to the call's file. Throws
  // IntakeStorageError when it could not be written.
  void Add(TcdRecord record);
  // A packet that passed its checks but is no punch: kept beside the call's file as "<call>.BAD"
  // (before any header, in NOHEADER.BAD). Throws IntakeStorageError when it could not be kept.
  void Reject(std::string_view packet, std::string_view reason);
  // Everything received is flushed and synced and the file marked pending. Must return true
  // before the terminal is told that its punches arrived; false (logged) when they could not be.
  bool Seal();
  // The same durability while the call goes on, for terminals that forget a punch as soon as it
  // is acknowledged: the file stays open and later Adds go to it; Finish delivers as usual.
  bool SyncReceived();
  // The end of the call: a good call's file is delivered (or left pending); a failed one loses
  // its file (the terminal kept its punches and sends them again), unless it was sealed.
  FinishResult Finish(bool succeeded);
  FinishResult LastFinish() const { return last_finish_; }

 private:
  void Show(std::string_view format, std::initializer_list<std::string_view> details = {});
  void Reset();
  // Syncs what was written and marks the file pending (once); closes the writer unless keep_open.
  bool MakeDurable(bool keep_open);

  CallDelivery delivery_;
  CompanyFactory& companies_;
  core::LogSink& log_;
  core::Clock& clock_;

  CallOrigin origin_;
  std::unique_ptr<db::Database> company_db_;
  std::unique_ptr<DepartmentJobAssigner> assigner_;
  std::filesystem::path file_;
  std::unique_ptr<TcdFileWriter> writer_;
  // Held from Open to Finish: the recovery sweep leaves a held file alone.
  std::optional<core::FileLock> lock_;
  std::filesystem::path reject_file_;
  int record_count_ = 0;
  bool sealed_ = false;
  bool reject_file_new_ = false;  // created since the folder was last made durable
  FinishResult last_finish_ = FinishResult::kEmpty;
};

}  // namespace clockcomm::records
