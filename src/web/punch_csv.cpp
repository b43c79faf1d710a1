#include "web/punch_csv.h"

#include "core/text.h"

namespace clockcomm::web {
namespace {

template <typename T>
std::string Optional(const std::optional<T>& value, std::string (*text)(const T&)) {
  return value ? text(*value) : std::string();
}

std::string DateText(const core::Date& d) { return d.Format(core::kFormatIsoDate); }
std::string TimeText(const core::TimeOfDay& t) { return t.Format(core::kFormatHourMinuteSecond); }
std::string IntText(const int64_t& n) { return std::to_string(n); }
std::string NumberText(const double& n) { return core::NumberText(n); }

}  // namespace

std::string CsvField(std::string_view text) {
  std::string field(text);
  if (!field.empty() && std::string_view("=+-@\t\r").find(field.front()) != std::string::npos) {
    field.insert(0, 1, '\'');
  }
  if (field.find_first_of(",\"\r\n") == std::string::npos) return field;
  return "\"" + core::ReplaceAll(field, "\"", "\"\"") + "\"";
}

std::string PunchCsvLine(const records::StoredPunch& p) {
  std::string line = std::to_string(p.id);
  for (const std::string& field :
       {Optional(p.sequence, IntText), std::to_string(p.badge), Optional(p.department, IntText),
        CsvField(p.job), CsvField(p.level4), CsvField(p.level5), CsvField(p.punch_type),
        Optional(p.date_in, DateText), Optional(p.time_in, TimeText),
        Optional(p.date_out, DateText), Optional(p.time_out, TimeText),
        Optional(p.amount, NumberText), p.amount_column}) {
    line += ',';
    line += field;
  }
  return line + "\r\n";
}

}  // namespace clockcomm::web
