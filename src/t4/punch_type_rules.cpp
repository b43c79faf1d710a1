#include "t4/punch_type_rules.h"

#include "core/text.h"
#include "records/tcd_record_override_service.h"
#include "t4/clock_assignments.h"

namespace clockcomm::t4 {

std::optional<std::string> ClockDataPunchHistory::LastPunchType(long badge,
                                                                const core::DateTime& moment) {
  const core::Date day = moment.GetDate();
  const core::TimeOfDay time = moment.GetTime();
  // Strictly before: a punch asked about again (after a restart) finds the same answer, not its
  // own rows.
  auto rs = db_.Query(
      "SELECT [Punch Type] FROM [Clock Data Table] WHERE [Card ID] = ? "
      "AND [Punch Type] IN ('I', 'O', 'LI', 'LO', 'BI', 'BO', 'SW') "
      "AND (([Date In] = ? AND [Time In] < ?) "
      "OR ([Date In] IS NULL AND [Date Out] = ? AND [Time Out] < ?)) "
      "ORDER BY COALESCE([Time In], [Time Out]) DESC, ID DESC LIMIT 1",
      {static_cast<int64_t>(badge), day, time, day, time});
  if (rs.Eof()) return std::nullopt;
  return rs.Field(0).AsText();
}

PunchTypeRules::PunchTypeRules(const std::filesystem::path& program_folder, core::LogSink& log) {
  const auto file = program_folder / kPunchTypeRulesFile;
  const auto text = ReadSiteFile(file, log, "no punch type rules are in effect");
  if (!text) return;
  Parse(*text, [&](const core::LineProblem& p) { LogBadLine(log, file, p.line, p.what); });
}

std::vector<core::LineProblem> PunchTypeRules::Problems(std::string_view text) {
  std::vector<core::LineProblem> problems;
  PunchTypeRules().Parse(text, [&](core::LineProblem p) { problems.push_back(std::move(p)); });
  return problems;
}

void PunchTypeRules::Parse(std::string_view text,
                           const std::function<void(core::LineProblem)>& bad_line) {
  int line_number = 0;
  for (const auto& raw : core::Split(text, '\n')) {
    ++line_number;
    const std::string line = core::Trim(WithoutLineEnd(raw));
    if (line.empty()) continue;
    const auto equals = line.find('=');
    if (equals == std::string::npos) {
      bad_line({line_number, "'" + line + "' is not work code = punch type"});
      continue;
    }
    const std::string key = core::Trim(std::string_view(line).substr(0, equals));
    const std::string value = core::Trim(std::string_view(line).substr(equals + 1));
    if (key.empty() || value.empty()) continue;  // a work code not (yet) given a type
    const auto work_code = core::ParseInt(key);
    if (!work_code) {
      bad_line({line_number, "'" + key + "' is not a work code (a whole number)"});
      continue;
    }
    // Kept all the same (the clock's computed type serves the code), but never what was meant.
    const std::string type = core::ToUpper(value.substr(0, 2));
    if (!IsValidPunchType(type)) {
      bad_line({line_number, "'" + value + "' gives " + type + ", which is not a punch type (" +
                                 core::Trim(kValidPunchTypes) + "); the computed type is used"});
    }
    rules_[*work_code] = value;  // a later line for the code replaces the earlier
  }
}

std::string PunchTypeRules::GetPunchType(long work_code) const {
  const auto rule = rules_.find(work_code);
  if (rule == rules_.end()) return {};
  const std::string type = core::ToUpper(rule->second.substr(0, 2));
  return type == "TO" ? std::string() : type;
}

bool PunchTypeRules::IsValidPunchType(std::string_view punch_type) {
  const std::string type = core::ToUpper(core::Trim(punch_type));
  // One word: " I O " must not pass as two neighbours of the list.
  return !type.empty() && type.find(' ') == std::string::npos &&
         records::PunchTypeInList(kValidPunchTypes, type);
}

std::string PunchTypeRules::GetFinalPunchType(const T4Punch& punch, const ClockAssignment& clock,
                                              IPunchHistory& history) const {
  if (clock.UsePunchType()) {
    const std::string rule = GetPunchType(punch.work_code);
    if (IsValidPunchType(rule)) return core::Trim(rule);
  }
  return clock.GetEffectivePunchType(punch.in_out,
                                     history.LastPunchType(punch.badge_id, punch.timestamp));
}

}  // namespace clockcomm::t4
