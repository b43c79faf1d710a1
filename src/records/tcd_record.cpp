#include "records/tcd_record.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::records {
namespace {

// core::Trim without its two calls: the constructor trims six fields of every line parsed.
std::string Trimmed(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return std::string(s);
}

}  // namespace

TcdRecord::TcdRecord(std::string_view clock_number, int32_t sequence_number, int32_t badge_id,
                     std::optional<int64_t> department, std::string_view job_number,
                     std::string_view level4, std::string_view level5, std::string_view punch_type,
                     std::optional<core::Date> date_in, std::optional<core::TimeOfDay> time_in,
                     std::optional<core::Date> date_out, std::optional<core::TimeOfDay> time_out,
                     std::optional<float> amount, std::string_view punch_class,
                     bool include_seconds)
    : clock_number_(Trimmed(clock_number)),
      sequence_number_(sequence_number),
      badge_id_(badge_id),
      job_number_(Trimmed(job_number)),
      level4_(Trimmed(level4)),
      level5_(Trimmed(level5)),
      punch_type_(Trimmed(punch_type)),
      date_in_(date_in),
      time_in_(time_in),
      date_out_(date_out),
      time_out_(time_out),
      amount_(amount),
      punch_class_(Trimmed(punch_class)),
      include_seconds_(include_seconds) {
  SetDepartment(department);
}

void TcdRecord::SetDepartment(std::optional<int64_t> v) {
  if (v && (*v < 0 || *v > kMaxDepartment)) {
    throw core::ArgumentException(kDepartmentRangeMessage, "Department");
  }
  department_ = v ? std::optional<int32_t>(static_cast<int32_t>(*v)) : std::nullopt;
}

void TcdRecord::SetDepartmentText(std::string_view text) {
  auto number = core::ParseNumber(text);
  if (!number || !std::isfinite(*number)) {
    SetDepartment(std::nullopt);
    return;
  }
  // Clamp before converting so that a huge number still reaches the range check.
  double rounded = std::nearbyint(*number);
  if (rounded > 1e12) rounded = 1e12;
  if (rounded < -1e12) rounded = -1e12;
  SetDepartment(static_cast<int64_t>(rounded));
}

void TcdRecord::SetJobNumber(std::string_view v) {
  if (v.size() > kMaxJobNumberLength) {
    throw core::ArgumentException(kJobNumberLengthMessage, "JobNumber");
  }
  job_number_ = std::string(v);
}

void TcdRecord::SetDateInText(std::string_view text) { date_in_ = core::ParseDate(text); }
void TcdRecord::SetTimeInText(std::string_view text) { time_in_ = core::ParseTime(text); }
void TcdRecord::SetDateOutText(std::string_view text) { date_out_ = core::ParseDate(text); }
void TcdRecord::SetTimeoutText(std::string_view text) { time_out_ = core::ParseTime(text); }

void TcdRecord::SetAmountText(std::string_view text) {
  auto number = core::ParseNumber(text);
  amount_ = number ? std::optional<float>(static_cast<float>(*number)) : std::nullopt;
}

namespace {

// Single precision written in its shortest form: 12.3f as "12.3", not its double expansion.
std::string_view AmountText(float amount, char* buffer, size_t size) {
  if (amount == std::floor(amount) && std::fabs(amount) < 1e15f) {
    return std::string_view(
        buffer, std::to_chars(buffer, buffer + size, static_cast<long long>(amount)).ptr - buffer);
  }
  return std::string_view(buffer, fmt::format_to_n(buffer, size, "{}", amount).out - buffer);
}

std::string_view IntText(int64_t value, char* buffer, size_t size) {
  return std::string_view(buffer, std::to_chars(buffer, buffer + size, value).ptr - buffer);
}

// One field: a line is one record, so a line break inside a text (a default job typed with one)
// is a blank; quoted when asked, and always when the text holds a comma or a quote, so that the
// line reads back field for field.
void AppendField(std::string& line, std::string_view text, int quoting) {
  const bool quote = quoting == 1 || text.find_first_of(",\"") != std::string_view::npos;
  if (!quote && text.find_first_of("\r\n") == std::string_view::npos) {
    line += text;
    return;
  }
  if (quote) line += '"';
  for (char c : text) {
    if (c == '\r' || c == '\n') c = ' ';
    if (c == '"') line += '"';
    line += c;
  }
  if (quote) line += '"';
}

}  // namespace

std::string TcdRecord::ToTcdString(int quoting) const {
  std::string line;
  AppendTcdString(line, quoting);
  return line;
}

void TcdRecord::AppendTcdString(std::string& line, int quoting) const {
  char buffer[32];
  auto date_text = [&](const std::optional<core::Date>& d) {
    return d ? std::string_view(buffer, core::FormatTcdDate(*d, buffer) - buffer)
             : std::string_view();
  };
  auto time_text = [&](const std::optional<core::TimeOfDay>& t) {
    return t ? std::string_view(buffer, core::FormatTime(*t, include_seconds_, buffer) - buffer)
             : std::string_view();
  };
  AppendField(line, clock_number_, quoting);
  line += ',';
  AppendField(line, IntText(sequence_number_, buffer, sizeof buffer), quoting);
  line += ',';
  AppendField(line, IntText(badge_id_, buffer, sizeof buffer), quoting);
  line += ',';
  AppendField(line, department_ ? IntText(*department_, buffer, sizeof buffer) : "", quoting);
  for (const std::string* text : {&job_number_, &level4_, &level5_, &punch_type_}) {
    line += ',';
    AppendField(line, *text, quoting);
  }
  line += ',';
  AppendField(line, date_text(date_in_), quoting);
  line += ',';
  AppendField(line, time_text(time_in_), quoting);
  line += ',';
  AppendField(line, date_text(date_out_), quoting);
  line += ',';
  AppendField(line, time_text(time_out_), quoting);
  line += ',';
  AppendField(line, amount_ ? AmountText(*amount_, buffer, sizeof buffer) : "", quoting);
  line += ',';
  AppendField(line, punch_class_, quoting);
}

}  // namespace clockcomm::records
