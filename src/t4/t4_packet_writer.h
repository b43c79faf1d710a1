// Stores each punch a T4 clock accepts, exactly once: its row(s) committed to the company's
// [Clock Data Table] and its TCD line(s) appended and synced to the company's daily file. The
// punch type comes from PunchTypeRules, department and job from ClockAssignments and then the
// site's settings override. A punch is known by its content (clock, machine number, badge, time,
// in/out state, work code) in [Punch Keys]; one the terminal sends again after a restart is
// recognised and written nowhere a second time. The lines of committed rows wait in
// [T4 Pending Punches] until they are synced in the file; whatever a crash left there is
// finished first. See docs/t4.md for the steps and why they are safe.
#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/errors.h"
#include "core/log_sink.h"
#include "records/company_factory.h"
#include "records/department_job_assigner.h"
#include "records/punch_keys.h"
#include "records/tcd_db_writer.h"
#include "records/tcd_record.h"
#include "t4/clock_assignments.h"
#include "t4/punch_type_rules.h"
#include "t4/t4_punch.h"

namespace clockcomm::t4 {

// A punch that could not be stored; the clock must keep it in the terminal's log.
class T4WriteError : public core::Error {
 public:
  explicit T4WriteError(const std::string& message) : core::Error(message) {}
};

class T4PacketWriter {
 public:
  enum class Outcome {
    kWritten,        // stored now
    kAlreadyStored,  // stored before; nothing written
  };
  struct Counts {
    int written = 0;
    int already_stored = 0;
  };

  // program_folder holds "SettingsOverride.txt"; the clock gives the daily file's date.
  T4PacketWriter(records::CompanyFactory& companies, const PunchTypeRules& rules,
                 const ClockAssignments& assignments, std::filesystem::path program_folder,
                 core::LogSink& log, core::Clock& clock);

  // Returns once the row(s) are committed and the line(s) synced in the daily file. Throws
  // T4WriteError (logged) when the clock has no company or either store failed; what was done is
  // then finished, not repeated, by the next call for the company. Safe to call from several
  // threads.
  Outcome WritePacket(const T4Punch& punch);
  // The punches of one clock's bulk read, in the terminal's order, stored as WritePacket stores
  // one, a chunk at a time: its rows in one transaction, its lines synced at once. On a failure
  // the chunks before it stay stored.
  Counts WritePackets(const std::vector<T4Punch>& punches);
  static constexpr size_t kChunk = 10'000;

  // The content key of a punch as the terminal reported it.
  static records::PunchKey PunchKey(const T4Punch& punch);

 private:
  // A punch's records, and the lines they make in the daily file.
  struct Pending {
    std::string key;         // the punch key's text
    std::string daily_file;  // the file's name in the company's directory
    std::vector<records::TcdRecord> records;
    std::string lines;
  };

  Counts WriteChunk(std::span<const T4Punch> punches, const std::filesystem::path& directory,
                    db::Database& company_db, records::DepartmentJobAssigner& assigner);
  Pending BuildRecords(const T4Punch& punch, db::Database& company_db,
                       records::DepartmentJobAssigner& assigner) const;
  void InsertRows(db::Database& company_db, const T4Punch& punch, const Pending& pending,
                  records::PunchKeys& keys, records::TcdDbWriter& writer);
  // Appends to each daily file the lines of the pending punches (only those it does not hold yet
  // when check_file is set), syncs it, then forgets the punches.
  void WriteLines(const std::filesystem::path& directory, db::Database& company_db,
                  const std::vector<Pending>& pending, bool check_file);
  // The writer's own table and index, made once per company database and process.
  void PrepareTables(db::Database& company_db);
  // The lines a crash or a failed file left pending, written now.
  void FinishPendingLines(const std::filesystem::path& directory, db::Database& company_db);
  void StampRegistry(const std::string& clock_name);

  records::CompanyFactory& companies_;
  const PunchTypeRules& rules_;
  const ClockAssignments& assignments_;
  std::filesystem::path program_folder_;
  core::LogSink& log_;
  core::Clock& clock_;

  std::mutex mutex_;                          // guards the sets below
  std::set<std::string> durable_files_;       // daily files whose folder entry is synced
  std::set<std::string> stamped_registry_;    // "<clock>|<date>" stamped in the registry
  std::set<std::string> prepared_databases_;  // company databases that have the writer's tables
};

}  // namespace clockcomm::t4
