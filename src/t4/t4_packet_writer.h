// Stores each punch a T4 clock accepts, exactly once: its TCD line(s) appended and synced to the
// company's daily file, and its row(s) committed to the company's [Clock Data Table]. The punch
// type comes from PunchTypeRules, department and job from ClockAssignments and then the site's
// settings override. A punch is known by its content (clock, machine number, badge, time, in/out
// state, work code) in [Punch Keys]; one the terminal sends again after a restart is recognised
// and written nowhere a second time. See docs/t4.md for the steps and why they are safe.
#pragma once

#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/errors.h"
#include "core/log_sink.h"
#include "records/company_factory.h"
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
    kCompleted,      // an earlier attempt had begun it (a crash, a failure): finished now
    kAlreadyStored,  // stored before; nothing written
  };

  // program_folder holds "SettingsOverride.txt"; the clock gives the daily file's date.
  T4PacketWriter(records::CompanyFactory& companies, const PunchTypeRules& rules,
                 const ClockAssignments& assignments, std::filesystem::path program_folder,
                 core::LogSink& log, core::Clock& clock);

  // Returns once the line(s) are synced in the daily file and the row(s) committed. Throws
  // T4WriteError (logged) when the clock has no company or either store failed; what was done is
  // then finished, not repeated, when the punch comes again. Safe to call from several threads.
  Outcome WritePacket(const T4Punch& punch);

  // The content key of a punch as the terminal reported it.
  static std::string PunchKey(const T4Punch& punch);

 private:
  struct Pending {
    std::string daily_file;  // the file's name in the company's directory
    std::vector<records::TcdRecord> records;
  };

  Pending BuildRecords(const T4Punch& punch, db::Database& company_db) const;
  std::optional<Pending> LoadPending(db::Database& company_db, const std::string& key) const;
  // Appends the lines the file does not hold yet (all of them when check_file is false).
  void AppendLines(const std::filesystem::path& file, const Pending& pending, bool check_file);
  void CommitRows(db::Database& company_db, const T4Punch& punch, const std::string& key,
                  const Pending& pending);
  void StampRegistry(const std::string& clock_name);

  records::CompanyFactory& companies_;
  const PunchTypeRules& rules_;
  const ClockAssignments& assignments_;
  std::filesystem::path program_folder_;
  core::LogSink& log_;
  core::Clock& clock_;

  std::mutex mutex_;                        // guards the two sets below
  std::set<std::string> durable_files_;     // daily files whose folder entry is synced
  std::set<std::string> stamped_registry_;  // "<clock>|<date>" stamped in the registry
};

}  // namespace clockcomm::t4
