// The site's "PunchTypeRules.txt": which punch type a T4 work code stands for, and the punch type
// a punch finally gets, from its rule or, without a valid rule, computed from the clock's in/out
// handling and the employee's earlier punches. Punch types are compared ignoring case and come out
// in upper case.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/date_time.h"
#include "core/line_problem.h"
#include "core/log_sink.h"
#include "db/database.h"
#include "t4/clock_assignment.h"
#include "t4/t4_punch.h"

namespace clockcomm::t4 {

inline constexpr const char* kPunchTypeRulesFile = "PunchTypeRules.txt";
// The types a rule may give, each between blanks.
inline constexpr const char* kValidPunchTypes = " I O LI LO LL LR BI BO BL BR SW TO ";

// The employee's earlier punches, as the computed punch type needs them.
class IPunchHistory {
 public:
  virtual ~IPunchHistory() = default;
  // The type of the employee's last attendance punch on the day of the moment, strictly before
  // it; nothing when there is none.
  virtual std::optional<std::string> LastPunchType(long badge, const core::DateTime& moment) = 0;
};

// The history in a company's [Clock Data Table]. Attendance punches are the types this program
// writes (I O LI LO BI BO SW); amounts and other codes are passed over. A row's moment is its in
// date and time, or its out date and time when it has no in date (an out-punch); rows of one
// moment count in the order they were written.
class ClockDataPunchHistory : public IPunchHistory {
 public:
  explicit ClockDataPunchHistory(db::Database& company_db) : db_(company_db) {}
  std::optional<std::string> LastPunchType(long badge, const core::DateTime& moment) override;

 private:
  db::Database& db_;
};

class PunchTypeRules {
 public:
  // No rules.
  PunchTypeRules() = default;
  // Reads "PunchTypeRules.txt" of the installation folder: work code = punch type, one a line. A
  // missing file gives no rules; an unreadable one too, logged. Lines whose key is no whole
  // number or that have no "=" are logged and left out.
  PunchTypeRules(const std::filesystem::path& program_folder, core::LogSink& log);
  // The lines of a text in the file's format that reading it would log: what a site is told
  // before it saves the file.
  static std::vector<core::LineProblem> Problems(std::string_view text);

  int Count() const { return static_cast<int>(rules_.size()); }
  // The rule of the work code, cut to two characters and in upper case; empty when there is none
  // or it reads "to" (any case: a work code a site marks as having no type).
  std::string GetPunchType(long work_code) const;
  // Trimmed and in upper case, one of kValidPunchTypes.
  static bool IsValidPunchType(std::string_view punch_type);
  // The punch's type: its work code's rule when the clock uses rules and the rule is valid;
  // otherwise the clock's computed type (ClockAssignment::GetEffectivePunchType) from the
  // punch's in/out state and the employee's last punch before it.
  std::string GetFinalPunchType(const T4Punch& punch, const ClockAssignment& clock,
                                IPunchHistory& history) const;

 private:
  // Reads the rules of text; each line left out or not in effect goes to bad_line.
  void Parse(std::string_view text, const std::function<void(core::LineProblem)>& bad_line);

  std::map<long, std::string> rules_;
};

}  // namespace clockcomm::t4
