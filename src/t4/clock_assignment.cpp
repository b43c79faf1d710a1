#include "t4/clock_assignment.h"

#include <cmath>
#include <set>
#include <vector>

#include "core/text.h"
#include "records/tcd_record.h"
#include "records/tcd_record_override_service.h"

namespace clockcomm::t4 {
namespace {

enum class Option {
  kDepartment,
  kJob,
  kTimeOffset,
  kUsePunchType,
  kWorkCode,
  kPrecision,
  kDisableTemplates,
  kDebugLog,
  kScheduleLockout,
  kVerifyType,
  kInOutSwitch,
  kInOut,
};

struct Key {
  const char* name;
  Option option;
};

// Every key and alias a line may use, in lower case.
constexpr Key kKeys[] = {
    {"dept", Option::kDepartment},
    {"department", Option::kDepartment},
    {"job", Option::kJob},
    {"timeoffset", Option::kTimeOffset},
    {"time", Option::kTimeOffset},
    {"offset", Option::kTimeOffset},
    {"usepunchtype", Option::kUsePunchType},
    {"punchtype", Option::kUsePunchType},
    {"workcode", Option::kWorkCode},
    {"precision", Option::kPrecision},
    {"second", Option::kPrecision},
    {"disabletemplatemanagement", Option::kDisableTemplates},
    {"disabletemplate", Option::kDisableTemplates},
    {"disabletemplates", Option::kDisableTemplates},
    {"template", Option::kDisableTemplates},
    {"templates", Option::kDisableTemplates},
    {"debuglog", Option::kDebugLog},
    {"schedulelockout", Option::kScheduleLockout},
    {"lockout", Option::kScheduleLockout},
    {"schedule", Option::kScheduleLockout},
    {"schedules", Option::kScheduleLockout},
    {"verifytype", Option::kVerifyType},
    {"in/out,switch", Option::kInOutSwitch},
    {"ios", Option::kInOutSwitch},
    {"inoutswitch", Option::kInOutSwitch},
    {"inout_switch", Option::kInOutSwitch},
    {"in/out", Option::kInOut},
    {"inout", Option::kInOut},
    {"io", Option::kInOut},
};

// A value the line's option does not accept; the text says what would be.
struct BadValue {
  std::string why;
};

bool ParseFlag(const std::string& value) {
  const std::string v = core::ToLower(value);
  if (v == "-1" || v == "true") return true;
  if (v == "0" || v == "false") return false;
  throw BadValue{"is not a flag (true, false, -1 or 0)"};
}

int ParseWhole(const std::string& value, int low, int high) {
  const auto n = core::ParseInt(value);
  if (!n || *n < low || *n > high) {
    throw BadValue{"is not a whole number from " + std::to_string(low) + " to " +
                   std::to_string(high)};
  }
  return *n;
}

// "wc:3" or "wc:1-2"; nothing when the value is no position at all.
std::optional<WorkCodePosition> ParsePosition(const std::string& value, int max_length) {
  if (!core::StartsWithIgnoreCase(value, "wc:")) return std::nullopt;
  const std::string range = core::Trim(std::string_view(value).substr(3));
  const auto dash = range.find('-');
  const auto first = core::ParseInt(range.substr(0, dash));
  const auto last = dash == std::string::npos ? first : core::ParseInt(range.substr(dash + 1));
  if (!first || !last || *first < 1 || *last < *first ||
      *last > ClockAssignment::kMaxWorkCodeDigits || *last - *first + 1 > max_length) {
    throw BadValue{"is not a work code position (wc:N or wc:N-M, digits 1 to " +
                   std::to_string(ClockAssignment::kMaxWorkCodeDigits) + ", at most " +
                   std::to_string(max_length) + " of them)"};
  }
  return WorkCodePosition{*first, *last};
}

bool IsInType(std::string_view type) {
  return records::PunchTypeInList(" I LI BI SW LR BR ", core::ToUpper(core::Trim(type)));
}

// The type the terminal's in/out key stands for; nothing for a state without a meaning here.
std::optional<std::string> TypeOfState(long in_out) {
  switch (in_out) {
    case 0:  // check in
    case 4:  // overtime in
      return "I";
    case 1:  // check out
    case 5:  // overtime out
      return "O";
    case 2:
      return "BO";
    case 3:
      return "BI";
    default:
      return std::nullopt;
  }
}

}  // namespace

std::string PunchTypeAfter(const std::optional<std::string>& last_punch_type) {
  if (!last_punch_type) return "I";
  const std::string last = core::ToUpper(core::Trim(*last_punch_type));
  if (IsInType(last)) return "O";
  if (last == "LO" || last == "LL") return "LI";
  if (last == "BO" || last == "BL") return "BI";
  return "I";
}

bool ClockAssignment::TryParse(std::string_view line, std::string& error) {
  std::vector<std::string> pieces;
  for (const auto& piece : core::Split(line, ',')) pieces.push_back(core::Trim(piece));
  if (pieces.empty() || pieces[0].empty() || pieces[0].find('=') != std::string::npos) {
    error = "the line must begin with the clock name";
    return false;
  }
  ClockAssignment parsed;
  parsed.clock_name_ = pieces[0];
  std::set<Option> given;
  for (size_t i = 1; i < pieces.size(); ++i) {
    if (pieces[i].empty()) continue;  // a comma too many
    std::string option = pieces[i];
    while (option.find('=') == std::string::npos && i + 1 < pieces.size()) {
      option += "," + pieces[++i];
    }
    const auto equals = option.find('=');
    if (equals == std::string::npos) {
      error = "'" + option + "' is not key=value";
      return false;
    }
    // Keys hold no blanks: "in/out , switch" is "in/out,switch".
    std::string key = core::ToLower(option.substr(0, equals));
    std::erase(key, ' ');
    std::erase(key, '\t');
    const std::string value = core::Trim(std::string_view(option).substr(equals + 1));
    const Key* found = nullptr;
    for (const auto& k : kKeys) {
      if (key == k.name) found = &k;
    }
    if (found == nullptr) {
      error = "unknown key '" + key + "'";
      return false;
    }
    if (!given.insert(found->option).second) {
      error = "'" + key + "' sets an option given before on the line";
      return false;
    }
    try {
      switch (found->option) {
        case Option::kDepartment:
          parsed.department_position_ = ParsePosition(value, 9);
          if (!parsed.department_position_) {
            parsed.department_ = ParseWhole(value, 0, records::kMaxDepartment);
          }
          break;
        case Option::kJob:
          parsed.job_position_ = ParsePosition(value, kMaxWorkCodeDigits);
          if (!parsed.job_position_) {
            if (value.empty() || value.size() > records::kMaxJobNumberLength) {
              throw BadValue{"is not a job (1 to 13 characters) nor a work code position"};
            }
            parsed.job_ = value;
          }
          break;
        case Option::kTimeOffset: {
          const auto hours = core::ParseNumber(value);
          if (!hours || std::fabs(*hours) > 24)
            throw BadValue{"is not a number of hours (-24 to 24)"};
          parsed.offset_ = std::chrono::seconds(std::llround(*hours * 3600));
          break;
        }
        case Option::kUsePunchType:
          parsed.use_punch_type_ = ParseFlag(value);
          break;
        case Option::kWorkCode:
          parsed.work_code_digits_ = ParseWhole(value, 0, kMaxWorkCodeDigits);
          break;
        case Option::kPrecision:
          parsed.include_seconds_ = ParseFlag(value);
          break;
        case Option::kDisableTemplates:
          parsed.disable_templates_ = ParseFlag(value);
          break;
        case Option::kDebugLog:
          parsed.debug_log_ = ParseFlag(value);
          break;
        case Option::kScheduleLockout:
          parsed.schedule_lockouts_ = ParseFlag(value);
          break;
        case Option::kVerifyType:
          parsed.verify_type_ = ParseWhole(value, 0, 255);
          break;
        case Option::kInOutSwitch:
          // The switch includes plain in/out handling, whatever order the line gives them in.
          if (ParseFlag(value)) {
            parsed.in_out_ = InOutMode::kInOutSwitch;
          } else if (parsed.in_out_ == InOutMode::kInOutSwitch) {
            parsed.in_out_ = InOutMode::kHistory;
          }
          break;
        case Option::kInOut:
          if (ParseFlag(value) && parsed.in_out_ == InOutMode::kHistory) {
            parsed.in_out_ = InOutMode::kInOut;
          }
          break;
      }
    } catch (const BadValue& bad) {
      error = key + ": '" + value + "' " + bad.why;
      return false;
    }
  }
  *this = std::move(parsed);
  return true;
}

std::string ClockAssignment::WorkCodeDigitsAt(long work_code, const WorkCodePosition& p) const {
  if (work_code <= 0) return {};  // no work code keyed
  std::string digits = std::to_string(work_code);
  if (static_cast<int>(digits.size()) < work_code_digits_) {
    digits.insert(0, static_cast<size_t>(work_code_digits_) - digits.size(), '0');
  }
  const auto first = static_cast<size_t>(p.first - 1);
  if (first >= digits.size()) return {};
  return digits.substr(first, static_cast<size_t>(p.last - p.first + 1));
}

std::optional<int64_t> ClockAssignment::GetEffectiveDepartment(long work_code) const {
  if (!department_position_) return department_;
  const std::string digits = WorkCodeDigitsAt(work_code, *department_position_);
  if (digits.empty()) return std::nullopt;
  return std::stoll(digits);
}

std::string ClockAssignment::GetEffectiveJob(long work_code) const {
  if (!job_position_) return job_;
  return WorkCodeDigitsAt(work_code, *job_position_);
}

std::string ClockAssignment::GetEffectivePunchType(
    long in_out, const std::optional<std::string>& last_punch_type) const {
  if (in_out_ == InOutMode::kHistory) return PunchTypeAfter(last_punch_type);
  const auto keyed = TypeOfState(in_out);
  if (!keyed) return PunchTypeAfter(last_punch_type);
  if (in_out_ == InOutMode::kInOutSwitch && *keyed == "I" && last_punch_type &&
      IsInType(*last_punch_type)) {
    return "SW";
  }
  return *keyed;
}

}  // namespace clockcomm::t4
