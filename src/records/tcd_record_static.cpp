#include "records/tcd_record_static.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::records {
namespace {

std::optional<int> TwoDigits(std::string_view s) {
  if (s.size() != 2 || s[0] < '0' || s[0] > '9' || s[1] < '0' || s[1] > '9') return std::nullopt;
  return (s[0] - '0') * 10 + (s[1] - '0');
}

bool AllDigits(std::string_view s) {
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

// Cuts text at the separator into up to three runs of digits, each of a length in [min, max]
// (the first run: [first_min, first_max]); false for anything else.
bool DigitRuns(std::string_view text, char separator, size_t first_min, size_t first_max,
               size_t min, size_t max, int (&parts)[3], size_t& count) {
  count = 0;
  while (count < 3) {
    const size_t end = std::min(text.find(separator), text.size());
    const std::string_view run = text.substr(0, end);
    const size_t low = count == 0 ? first_min : min, high = count == 0 ? first_max : max;
    if (run.size() < low || run.size() > high || !AllDigits(run)) return false;
    int value = 0;
    for (char c : run) value = value * 10 + (c - '0');
    parts[count++] = value;
    if (end == text.size()) return true;
    text.remove_prefix(end + 1);
  }
  return false;
}

// The forms this program writes, "2009/10/20" and "08:30" or "08:30:15", read without the lenient
// conversion (which they always pass unchanged).
std::optional<core::Date> WrittenDate(std::string_view text) {
  int parts[3];
  size_t count = 0;
  if (!DigitRuns(text, '/', 4, 4, 1, 2, parts, count) || count != 3) return std::nullopt;
  return core::Date::FromYmd(parts[0], parts[1], parts[2]);
}

std::optional<core::TimeOfDay> WrittenTime(std::string_view text) {
  int parts[3] = {0, 0, 0};
  size_t count = 0;
  if (!DigitRuns(text, ':', 1, 2, 2, 2, parts, count) || count < 2) return std::nullopt;
  return core::TimeOfDay::FromHms(parts[0], parts[1], parts[2]);
}

}  // namespace

std::string TcdRecordStatic::ConvertLettersToNumbers(std::string_view text) {
  // Index by letter A..Z; Q and Z sit on 1 as they do on the terminals' keypads.
  static constexpr char kKeypad[] = "22233344455566671778889991";
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c >= '0' && c <= '9') {
      out += c;
    } else if (c >= 'A' && c <= 'Z') {
      out += kKeypad[c - 'A'];
    } else if (c == '.') {
      out += '1';
    } else if (c == '-' || c == ' ') {
      out += '0';
    }
  }
  return out;
}

std::optional<core::Date> TcdRecordStatic::ParseDateField(std::string_view text) {
  if (auto d = WrittenDate(text)) return d;
  // Six digits are never a date of the lenient conversion, so they skip it.
  if (text.size() != 6 || !AllDigits(text)) {
    if (auto d = core::ParseDate(text)) return d;
  }
  if (text.size() == 6) {
    auto yy = TwoDigits(text.substr(0, 2));
    auto mm = TwoDigits(text.substr(2, 2));
    auto dd = TwoDigits(text.substr(4, 2));
    if (yy && mm && dd) return core::Date::FromYmd(core::ExpandTwoDigitYear(*yy), *mm, *dd);
  }
  return std::nullopt;
}

std::optional<core::TimeOfDay> TcdRecordStatic::ParseTimeField(std::string_view text) {
  if (auto t = WrittenTime(text)) return t;
  // Four digits are never a time of the lenient conversion, so they skip it.
  if (text.size() != 4 || !AllDigits(text)) {
    if (auto t = core::ParseDateTime(text)) return t->GetTime();
  }
  if (text.size() == 4) {
    auto hh = TwoDigits(text.substr(0, 2));
    auto nn = TwoDigits(text.substr(2, 2));
    if (hh && nn) return core::TimeOfDay::FromHms(*hh, *nn, 0);
  }
  return std::nullopt;
}

std::vector<std::string> TcdRecordStatic::SplitFields(std::string_view line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c != '"') {
      if (c == ',' && !quoted) {
        fields.emplace_back();
      } else {
        fields.back() += c;
      }
      continue;
    }
    if (quoted && i + 1 < line.size() && line[i + 1] == '"') {
      fields.back() += '"';  // a quote inside a quoted field is written twice
      ++i;
    } else if (quoted) {
      quoted = false;
    } else if (fields.back().empty()) {
      quoted = true;
    }
    // Any other quote is dropped, as lines of older producers carry stray ones.
  }
  return fields;
}

TcdRecord TcdRecordStatic::Parse(std::string_view line) {
  // The fields as SplitFields cuts them, written one after another into a buffer that keeps its
  // room from line to line, so that a line costs no allocation of its own.
  thread_local std::string buffer;
  if (buffer.size() < line.size()) buffer.resize(line.size());
  char* const text = buffer.data();
  size_t length = 0;            // of what text holds
  size_t ends[kTcdFieldCount];  // where each of the first fourteen fields ends in text
  size_t count = 0;
  bool quoted = false;
  size_t field_start = 0;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c != '"') {
      if (c == ',' && !quoted) {
        if (count < kTcdFieldCount) ends[count] = length;
        ++count;
        field_start = length;
      } else {
        text[length++] = c;
      }
      continue;
    }
    if (quoted && i + 1 < line.size() && line[i + 1] == '"') {
      text[length++] = '"';  // a quote inside a quoted field is written twice
      ++i;
    } else if (quoted) {
      quoted = false;
    } else if (length == field_start) {
      quoted = true;
    }
    // Any other quote is dropped, as lines of older producers carry stray ones.
  }
  if (count < kTcdFieldCount) ends[count] = length;
  ++count;
  if (count < static_cast<size_t>(kTcdFieldCount)) throw core::IndexOutOfRangeException();
  std::string_view f[kTcdFieldCount];
  for (size_t i = 0, from = 0; i < kTcdFieldCount; from = ends[i++]) {
    f[i] = std::string_view(text + from, ends[i] - from);
  }
  TcdRecord record(f[0], core::LeadingInt32(f[1]),
                   core::LeadingInt32(ConvertLettersToNumbers(f[2])), std::nullopt, f[4], f[5],
                   f[6], f[7], ParseDateField(f[8]), ParseTimeField(f[9]), ParseDateField(f[10]),
                   ParseTimeField(f[11]), std::nullopt, f[13], false);
  record.SetDepartmentText(ConvertLettersToNumbers(f[3]));
  record.SetAmountText(f[12]);
  return record;
}

}  // namespace clockcomm::records
