#include "zon/zon2x_to_tcd_formatter.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "core/date_time.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::zon {

namespace {

constexpr size_t kFieldCount = 13;
constexpr size_t kPunchTypeField = 6;

// A two-digit number from exactly two decimal digits.
std::optional<int> TwoDigits(std::string_view s) {
  if (s.size() != 2 || s[0] < '0' || s[0] > '9' || s[1] < '0' || s[1] > '9') return std::nullopt;
  return (s[0] - '0') * 10 + (s[1] - '0');
}

}  // namespace

bool Zon2xToTcdFormatter::Formattable(std::string_view line) const {
  return std::count(line.begin(), line.end(), ',') == kFieldCount - 1;
}

bool Zon2xToTcdFormatter::AlreadyFormatted(std::string_view line) const {
  if (std::count(line.begin(), line.end(), '"') != 2 * kFieldCount) return false;
  auto fields = core::Split(line, ',');
  if (fields.size() != kFieldCount) return false;
  return std::all_of(fields.begin(), fields.end(), [](const std::string& f) {
    return f.size() >= 2 && f.front() == '"' && f.back() == '"';
  });
}

std::string Zon2xToTcdFormatter::FormatDate(std::string_view yymmdd) {
  auto year = TwoDigits(yymmdd.substr(0, 2));
  auto month = TwoDigits(yymmdd.substr(2, 2));
  auto day = TwoDigits(yymmdd.substr(4, 2));
  if (yymmdd.size() != 6 || !year || !month || !day ||
      !core::Date::FromYmd(core::ExpandTwoDigitYear(*year), *month, *day)) {
    throw core::FormatException(kInvalidDate);
  }
  return std::string(yymmdd.substr(2, 2)) + "/" + std::string(yymmdd.substr(4, 2)) + "/" +
         std::string(yymmdd.substr(0, 2));
}

std::string Zon2xToTcdFormatter::FormatTime(std::string_view hhmm) {
  auto hour = TwoDigits(hhmm.substr(0, 2));
  auto minute = TwoDigits(hhmm.substr(2, 2));
  if (hhmm.size() != 4 || !hour || !minute || !core::TimeOfDay::FromHms(*hour, *minute)) {
    throw core::FormatException(kInvalidTime);
  }
  return std::string(hhmm.substr(0, 2)) + ":" + std::string(hhmm.substr(2, 2));
}

std::string Zon2xToTcdFormatter::Format(std::string_view line) const {
  std::string cleaned;
  cleaned.reserve(line.size());
  for (char c : line) {
    if (c != '"' && c != ' ') cleaned.push_back(c);
  }
  std::vector<std::string> fields = core::Split(cleaned, ',');

  if (fields.size() > kPunchTypeField) {
    std::string& type = fields[kPunchTypeField];
    if (type == "PC" || type == "PI" || type == "PE" || type == "PO") type = type.substr(1);
  }
  // Fields 7/8 and 9/10 are a date and a time each (in, then out).
  for (size_t date_field : {size_t{7}, size_t{9}}) {
    if (date_field < fields.size() && fields[date_field].size() == 6) {
      fields[date_field] = FormatDate(fields[date_field]);
    }
    size_t time_field = date_field + 1;
    if (time_field < fields.size() && fields[time_field].size() == 4) {
      fields[time_field] = FormatTime(fields[time_field]);
    }
  }
  return "\"" + core::Join(fields, "\",\"") + "\"";
}

}  // namespace clockcomm::zon
