// The family-neutral end of a call: whatever terminal sent the punches, they go through here. The
// intake claims the call's numbered file, assigns departments and jobs once per punch, keeps
// packets that are not punches, makes everything durable before the terminal may be told, and at
// the end of a good call archives, transfers into the company database, copies the file to the
// duplicate folders and purges old history files. A terminal driver never touches a file or a
// database itself.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/clock.h"
#include "core/log_sink.h"
#include "db/database.h"
#include "records/company.h"
#include "records/company_factory.h"
#include "records/department_job_assigner.h"
#include "records/parameter_override.h"
#include "records/tcd_file_writer.h"
#include "records/tcd_record.h"

namespace clockcomm::records {

struct IntakePaths {
  std::filesystem::path data_directory;     // the call files
  std::filesystem::path program_folder;     // "SettingsOverride.txt"
  std::filesystem::path registry_database;  // COMPANY3.db, for the clock-table stamp
};

// Who a call is from, as the terminal announced itself.
struct CallOrigin {
  std::string clock_name;
  int clock_number = 0;
  std::string upload_type;  // "W" makes a ".WHO" file
};

enum class OpenResult {
  kOpened,
  kAllFilesUsed,  // all 9999 numbered files of today exist: the run must end
  kFileError,     // the file could not be made (logged): the run must end
};

// Screen texts of the intake.
inline constexpr const char* kNoHeaderRejectFile = "NOHEADER.BAD";

class CallIntake {
 public:
  CallIntake(IntakePaths paths, CompanyFactory& companies, core::LogSink& log, core::Clock& clock);
  ~CallIntake();

  // The call's clock is known: its company is looked up (an unknown clock is logged, its punches
  // are still kept) and the call's file is claimed.
  OpenResult Open(CallOrigin origin);
  bool IsOpen() const { return writer_ != nullptr; }
  const CallOrigin& Origin() const { return origin_; }
  const std::optional<Company>& CompanyOfCall() const { return company_; }
  const std::filesystem::path& File() const { return file_; }
  int RecordCount() const { return record_count_; }
  int Rejected() const { return rejected_; }

  // A punch as the terminal sent it: assigned and written to the call's file.
  void Add(TcdRecord record);
  // A packet that passed its checks but is no punch: kept beside the call's file as "<call>.BAD"
  // (before any header, in NOHEADER.BAD, which no later call removes).
  void Reject(std::string_view packet, std::string_view reason);
  // Everything received is flushed and synced. Must return true before the terminal is told that
  // its punches arrived; false (logged) when they could not be written.
  bool Seal();
  // The end of the call. A good call with punches is archived, transferred, copied and purged; a
  // failed one loses its file (the terminal kept its punches and sends them again).
  void Finish(bool succeeded);

 private:
  void Show(std::string_view format, std::initializer_list<std::string_view> details = {});
  void Archive();
  void Transfer();
  void CopyToDuplicateFolders();
  void Reset();

  IntakePaths paths_;
  CompanyFactory& companies_;
  core::LogSink& log_;
  core::Clock& clock_;
  ParameterOverride overrides_;

  CallOrigin origin_;
  std::optional<Company> company_;
  std::unique_ptr<db::Database> company_db_;
  std::unique_ptr<DepartmentJobAssigner> assigner_;
  std::filesystem::path file_;
  std::unique_ptr<TcdFileWriter> writer_;
  std::filesystem::path reject_file_;
  int record_count_ = 0;
  int rejected_ = 0;
};

}  // namespace clockcomm::records
