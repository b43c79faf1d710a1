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

int DigitAt(std::string_view s, size_t i) { return s[i] >= '0' && s[i] <= '9' ? s[i] - '0' : -1; }

// One or two digits from s[i], ended by the end of s or by the separator: the value, -1 for
// anything else; i is left past the run.
int ShortRun(std::string_view s, size_t& i, char separator) {
  if (i >= s.size()) return -1;
  int value = DigitAt(s, i++);
  if (value < 0) return -1;
  if (i < s.size() && s[i] != separator) {
    const int second = DigitAt(s, i++);
    if (second < 0) return -1;
    value = value * 10 + second;
  }
  if (i < s.size() && s[i] != separator) return -1;
  return value;
}

// The forms this program writes, "2009/10/20" and "08:30" or "08:30:15", read without the lenient
// conversion (which they always pass unchanged): four digits of year, one or two of month and day;
// one or two digits of hour, two of minute and second.
std::optional<core::Date> WrittenDate(std::string_view text) {
  if (text.size() < 8 || text.size() > 10 || text[4] != '/') return std::nullopt;
  int year = 0;
  for (size_t i = 0; i < 4; ++i) {
    const int digit = DigitAt(text, i);
    if (digit < 0) return std::nullopt;
    year = year * 10 + digit;
  }
  size_t i = 5;
  const int month = ShortRun(text, i, '/');
  if (month < 0 || i == text.size()) return std::nullopt;
  ++i;
  const int day = ShortRun(text, i, '/');
  if (day < 0 || i != text.size()) return std::nullopt;
  return core::Date::FromYmd(year, month, day);
}

std::optional<core::TimeOfDay> WrittenTime(std::string_view text) {
  size_t i = 0;
  const int hour = ShortRun(text, i, ':');
  if (hour < 0 || i == text.size()) return std::nullopt;
  int parts[2] = {0, 0};
  for (int& part : parts) {
    // i is at a ':'; two digits follow, then the end or (after the minute) another ':'.
    if (i + 3 > text.size()) return std::nullopt;
    const int tens = DigitAt(text, i + 1), ones = DigitAt(text, i + 2);
    if (tens < 0 || ones < 0) return std::nullopt;
    part = tens * 10 + ones;
    i += 3;
    if (i == text.size()) return core::TimeOfDay::FromHms(hour, parts[0], parts[1]);
    if (text[i] != ':' || &part == &parts[1]) return std::nullopt;
  }
  return std::nullopt;
}

// A field of one to nine digits, the usual form of the number fields: its value, which the
// lenient conversions (keypad letters, leading number, department text) give it as well; -1 for
// any other text.
int32_t PlainNumber(std::string_view s) {
  if (s.empty() || s.size() > 9) return -1;
  int32_t value = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return -1;
    value = value * 10 + (c - '0');
  }
  return value;
}

// An amount of digits, a point and digits, fifteen digits in all at most: the value the general
// conversion gives, as the digits as a whole number and the power of ten are both exact, so the
// one division rounds once, correctly. Nothing for any other text.
std::optional<float> PlainAmount(std::string_view s) {
  if (s.size() < 3 || s.size() > 16) return std::nullopt;
  int64_t digits = 0;
  double scale = 0;  // 0 until the point is seen
  for (char c : s) {
    if (c >= '0' && c <= '9') {
      digits = digits * 10 + (c - '0');
      scale *= 10;
    } else if (c == '.' && scale == 0) {
      scale = 1;
    } else {
      return std::nullopt;
    }
  }
  if (scale < 10 || s.front() == '.') return std::nullopt;
  return static_cast<float>(static_cast<double>(digits) / scale);
}

// Cuts the first fourteen fields of a line as views into it, for lines where that gives what the
// copying split gives: every field plain (no quote in it) or quoted whole with no quote inside
// ("a,b" included). False for any other line; false too for a line of fewer fields.
// kQuoteAtEnd: the line ends in a quote, as a quoted line does, so every search for a quote stops
// without a bound check.
template <bool kQuoteAtEnd>
bool SplitPlain(std::string_view line, std::string_view (&f)[kTcdFieldCount]) {
  const char* p = line.data();
  const char* const end = p + line.size();
  for (int i = 0; i < kTcdFieldCount; ++i) {
    if (p < end && *p == '"') {
      // Fields are short: a byte loop beats a library search here.
      const char* close = p + 1;
      if (close == end) return false;  // the line's last quote opens a field: nothing stops it
      while ((kQuoteAtEnd || close < end) && *close != '"') ++close;
      if (close == end || (close + 1 < end && close[1] != ',')) return false;
      f[i] = std::string_view(p + 1, static_cast<size_t>(close - p - 1));
      p = close + 1;
    } else {
      const char* q = p;
      while (q < end && *q != ',' && *q != '"') ++q;
      if (q < end && *q == '"') return false;
      f[i] = std::string_view(p, static_cast<size_t>(q - p));
      p = q;
    }
    // p is at the comma that ends the field, or at the end of the line.
    if (p == end) return i == kTcdFieldCount - 1;
    ++p;
  }
  return true;
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
  if (text.empty()) return std::nullopt;
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
  if (text.empty()) return std::nullopt;
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

namespace {

// The fields as SplitFields cuts them, for any line: views into a per-thread buffer that the next
// call reuses. Throws core::IndexOutOfRangeException for fewer than fourteen fields.
void SplitCopied(std::string_view line, std::string_view (&f)[kTcdFieldCount]) {
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
  for (size_t i = 0, from = 0; i < kTcdFieldCount; from = ends[i++]) {
    f[i] = std::string_view(text + from, ends[i] - from);
  }
}

// The record of a line's first fourteen fields.
TcdRecord FromFields(const std::string_view (&f)[kTcdFieldCount]) {
  // Plain digits, the usual number fields, skip the conversions that give them the same value.
  const int32_t sequence = PlainNumber(f[1]);
  const int32_t badge = PlainNumber(f[2]);
  const int32_t department = PlainNumber(f[3]);
  TcdRecord record(
      f[0], sequence >= 0 ? sequence : core::LeadingInt32(f[1]),
      badge >= 0 ? badge : core::LeadingInt32(TcdRecordStatic::ConvertLettersToNumbers(f[2])),
      department >= 0 ? std::optional<int64_t>(department) : std::nullopt, f[4], f[5], f[6], f[7],
      TcdRecordStatic::ParseDateField(f[8]), TcdRecordStatic::ParseTimeField(f[9]),
      TcdRecordStatic::ParseDateField(f[10]), TcdRecordStatic::ParseTimeField(f[11]), std::nullopt,
      f[13], false);
  if (department < 0 && !f[3].empty())
    record.SetDepartmentText(TcdRecordStatic::ConvertLettersToNumbers(f[3]));
  if (!f[12].empty()) {
    if (const auto amount = PlainAmount(f[12])) {
      record.SetAmount(amount);
    } else {
      record.SetAmountText(f[12]);
    }
  }
  return record;
}

}  // namespace

TcdRecord TcdRecordStatic::Parse(std::string_view line) {
  std::string_view f[kTcdFieldCount];
  const bool plain =
      !line.empty() && line.back() == '"' ? SplitPlain<true>(line, f) : SplitPlain<false>(line, f);
  if (!plain) SplitCopied(line, f);
  return FromFields(f);
}

}  // namespace clockcomm::records
