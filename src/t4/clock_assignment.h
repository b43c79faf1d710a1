// One clock's line of "ClockAssignments.txt": where its punches' department and job come from,
// how their punch type is computed when no rule gives one, and the clock's terminal settings.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/date_time.h"

namespace clockcomm::t4 {

// Digits first..last (from 1, counted from the left, both included) of the work code.
struct WorkCodePosition {
  int first = 1;
  int last = 1;
  friend bool operator==(const WorkCodePosition&, const WorkCodePosition&) = default;
};

// What the terminal's in/out state means for the computed punch type.
enum class InOutMode {
  kHistory,      // nothing: the employee's earlier punches decide
  kInOut,        // the state's key decides (0 in, 1 out, 2 break out, 3 break in, 4 in, 5 out)
  kInOutSwitch,  // as kInOut, and an "in" of an employee who is in is a switch ("SW")
};

class ClockAssignment {
 public:
  static constexpr int kMaxWorkCodeDigits = 10;  // a 32-bit work code

  // The defaults of a clock without a line.
  ClockAssignment() = default;

  // Reads one line without its comment: the clock name, then key=value options, all separated by
  // commas ("Front, dept=wc:1-2, in/out,switch=true"). A piece without "=" belongs to the next
  // piece, which is how the key "in/out,switch" keeps its comma. False with the reason in error
  // for a bad line (an unknown key, a bad value, an option given twice); this object is then
  // unchanged.
  bool TryParse(std::string_view line, std::string& error);

  const std::string& ClockName() const { return clock_name_; }

  // The department of a punch: the line's number, or the digits of the work code at the
  // position. Nothing when neither is given or the work code has no digits there (0: none keyed).
  std::optional<int64_t> GetEffectiveDepartment(long work_code) const;
  // The job of a punch, likewise (leading zeros kept: a job is text). Empty when none.
  std::string GetEffectiveJob(long work_code) const;
  const std::optional<WorkCodePosition>& DepartmentWorkCode() const { return department_position_; }
  const std::optional<WorkCodePosition>& JobWorkCode() const { return job_position_; }
  // "workcode": the work code is read with at least this many digits, zeros in front, so that a
  // code keyed with leading zeros keeps its positions. 0: as the terminal reports it.
  int WorkCodeDigits() const { return work_code_digits_; }

  // "usepunchtype": whether PunchTypeRules is asked at all (default true).
  bool UsePunchType() const { return use_punch_type_; }
  InOutMode InOut() const { return in_out_; }
  // The computed punch type of a punch with this in/out state, given the type of the employee's
  // last punch before it (nothing: none that day). Always one of I O LI BI BO SW.
  std::string GetEffectivePunchType(long in_out,
                                    const std::optional<std::string>& last_punch_type) const;

  // The time to give the terminal when its clock is set: now moved by the offset.
  core::DateTime SetTime(const core::DateTime& now) const {
    return now.AddSeconds(offset_.count());
  }
  std::chrono::seconds TimeOffset() const { return offset_; }
  bool IncludeSeconds() const { return include_seconds_; }
  bool DisableTemplateManagement() const { return disable_templates_; }
  bool DebugLog() const { return debug_log_; }
  bool UseScheduleLockouts() const { return schedule_lockouts_; }
  bool UseVerifyType() const { return verify_type_.has_value(); }
  // The verify type to set on the terminal; 0 when none is given.
  int VerifyType() const { return verify_type_.value_or(0); }

 private:
  std::string WorkCodeDigitsAt(long work_code, const WorkCodePosition& position) const;

  std::string clock_name_;
  std::optional<int64_t> department_;
  std::optional<WorkCodePosition> department_position_;
  std::string job_;
  std::optional<WorkCodePosition> job_position_;
  int work_code_digits_ = 0;
  bool use_punch_type_ = true;
  InOutMode in_out_ = InOutMode::kHistory;
  std::chrono::seconds offset_{0};
  bool include_seconds_ = false;
  bool disable_templates_ = false;
  bool debug_log_ = false;
  bool schedule_lockouts_ = false;
  std::optional<int> verify_type_;
};

// The type that follows the employee's last punch: after an in-type an "O", after a lunch or
// break out its return ("LI", "BI"), otherwise (nothing, an out) an "I". Case is ignored.
std::string PunchTypeAfter(const std::optional<std::string>& last_punch_type);

}  // namespace clockcomm::t4
