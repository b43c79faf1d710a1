#include "core/date_time.h"

#include <array>
#include <cctype>

#include "core/errors.h"

namespace clockcomm::core {
namespace {

// Days from civil date, after H. Hinnant's public-domain algorithm.
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void AppendPadded(std::string& out, int value, int width) {
  std::string digits = std::to_string(value);
  if (static_cast<int>(digits.size()) < width) out.append(width - digits.size(), '0');
  out += digits;
}

struct Fields {
  const Date* date = nullptr;
  const TimeOfDay* time = nullptr;
};

// Applies the pattern tokens to whichever of date and time are present.
std::string FormatFields(std::string_view pattern, const Fields& f) {
  struct Token {
    std::string_view text;
    int (*get)(const Fields&);
    int width;
  };
  static const std::array<Token, 11> kTokens = {{
      {"yyyy", [](const Fields& x) { return x.date ? x.date->Year() : 0; }, 4},
      {"yy", [](const Fields& x) { return x.date ? x.date->Year() % 100 : 0; }, 2},
      {"mm", [](const Fields& x) { return x.date ? x.date->Month() : 0; }, 2},
      {"m", [](const Fields& x) { return x.date ? x.date->Month() : 0; }, 1},
      {"dd", [](const Fields& x) { return x.date ? x.date->Day() : 0; }, 2},
      {"d", [](const Fields& x) { return x.date ? x.date->Day() : 0; }, 1},
      {"HH", [](const Fields& x) { return x.time ? x.time->Hour() : 0; }, 2},
      {"hh", [](const Fields& x) { return x.time ? x.time->Hour() : 0; }, 2},
      {"H", [](const Fields& x) { return x.time ? x.time->Hour() : 0; }, 1},
      {"nn", [](const Fields& x) { return x.time ? x.time->Minute() : 0; }, 2},
      {"ss", [](const Fields& x) { return x.time ? x.time->Second() : 0; }, 2},
  }};
  std::string out;
  size_t i = 0;
  while (i < pattern.size()) {
    bool matched = false;
    for (const Token& token : kTokens) {
      if (pattern.substr(i, token.text.size()) == token.text) {
        AppendPadded(out, token.get(f), token.width);
        i += token.text.size();
        matched = true;
        break;
      }
    }
    if (!matched) out += pattern[i++];
  }
  return out;
}

std::string_view Trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

bool AllDigits(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

int ToInt(std::string_view s) {
  int v = 0;
  for (char c : s) v = v * 10 + (c - '0');
  return v;
}

// "m/d/y", "y/m/d" with "/", "-" or "." between the parts.
std::optional<Date> ParseDatePart(std::string_view s) {
  std::string_view parts[3];
  size_t count = 0;
  size_t start = 0;
  char separator = 0;
  for (size_t i = 0; i <= s.size(); ++i) {
    if (i == s.size() || s[i] == '/' || s[i] == '-' || s[i] == '.') {
      if (i < s.size()) {
        if (separator != 0 && s[i] != separator) return std::nullopt;
        separator = s[i];
      }
      if (count == 3) return std::nullopt;
      parts[count++] = s.substr(start, i - start);
      start = i + 1;
    }
  }
  if (count != 3) return std::nullopt;
  for (auto p : parts) {
    if (!AllDigits(p) || p.size() > 4) return std::nullopt;
  }
  if (parts[0].size() == 4) {  // year first
    if (parts[1].size() > 2 || parts[2].size() > 2) return std::nullopt;
    return Date::FromYmd(ToInt(parts[0]), ToInt(parts[1]), ToInt(parts[2]));
  }
  if (parts[0].size() > 2 || parts[1].size() > 2) return std::nullopt;
  int year;
  if (parts[2].size() == 4) {
    year = ToInt(parts[2]);
  } else if (parts[2].size() == 2) {
    year = ExpandTwoDigitYear(ToInt(parts[2]));
  } else {
    return std::nullopt;
  }
  return Date::FromYmd(year, ToInt(parts[0]), ToInt(parts[1]));
}

bool EndsWithIgnoringCase(std::string_view s, std::string_view lower_suffix) {
  if (s.size() < lower_suffix.size()) return false;
  s = s.substr(s.size() - lower_suffix.size());
  for (size_t i = 0; i < s.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(s[i])) != lower_suffix[i]) return false;
  }
  return true;
}

// "h[:mm[:ss]]" with an optional am/pm marker; an hour alone needs the marker ("9pm").
std::optional<TimeOfDay> ParseTimePart(std::string_view body) {
  int meridiem = 0;  // 0 none, 1 am, 2 pm
  for (auto [suffix, value] :
       {std::pair<std::string_view, int>{"am", 1}, {"pm", 2}, {"a", 1}, {"p", 2}}) {
    if (body.size() > suffix.size() && EndsWithIgnoringCase(body, suffix)) {
      meridiem = value;
      body = Trim(body.substr(0, body.size() - suffix.size()));
      break;
    }
  }
  std::string_view parts[3];
  size_t count = 0;
  size_t start = 0;
  for (size_t i = 0; i <= body.size(); ++i) {
    if (i == body.size() || body[i] == ':') {
      if (count == 3) return std::nullopt;
      parts[count++] = body.substr(start, i - start);
      start = i + 1;
    }
  }
  if (count == 1 && meridiem == 0) return std::nullopt;
  for (size_t i = 0; i < count; ++i) {
    if (!AllDigits(parts[i]) || parts[i].size() > 2) return std::nullopt;
    if (i > 0 && parts[i].size() != 2) return std::nullopt;
  }
  int hour = ToInt(parts[0]);
  const int minute = count > 1 ? ToInt(parts[1]) : 0;
  const int second = count > 2 ? ToInt(parts[2]) : 0;
  if (meridiem != 0) {
    if (hour > 12) return std::nullopt;
    if (hour == 12) hour = 0;
    if (meridiem == 2) hour += 12;
  }
  return TimeOfDay::FromHms(hour, minute, second);
}

bool LooksLikeTime(std::string_view s) {
  for (char c : s) {
    if (c == ':' || std::isalpha(static_cast<unsigned char>(c))) return true;
  }
  return false;
}

int Digit(char c) { return c >= '0' && c <= '9' ? c - '0' : -100; }

// The forms terminals send, without the general rules: "HH:nn", "HH:nn:ss", and dates of digits
// and "/" alone. Gives a value only where the lenient conversion gives the same one.
std::optional<DateTime> ParseFixedForms(std::string_view s, bool& date_given) {
  if ((s.size() == 5 || s.size() == 8) && s[2] == ':' && (s.size() == 5 || s[5] == ':')) {
    const int hour = Digit(s[0]) * 10 + Digit(s[1]);
    const int minute = Digit(s[3]) * 10 + Digit(s[4]);
    const int second = s.size() == 8 ? Digit(s[6]) * 10 + Digit(s[7]) : 0;
    if (hour < 0 || minute < 0 || second < 0) return std::nullopt;
    auto time = TimeOfDay::FromHms(hour, minute, second);
    if (time) date_given = false;
    return time ? std::optional<DateTime>(DateTime(Date(), *time)) : std::nullopt;
  }
  if (s.size() < 5 || s.size() > 10 ||
      s.find_first_not_of("0123456789/") != std::string_view::npos) {
    return std::nullopt;
  }
  auto date = ParseDatePart(s);
  if (date) date_given = true;
  return date ? std::optional<DateTime>(DateTime(*date, TimeOfDay())) : std::nullopt;
}

// The lenient conversion in one pass; date_given tells whether the text began with a date.
std::optional<DateTime> ParseLenient(std::string_view text, bool& date_given) {
  date_given = false;
  if (auto fixed = ParseFixedForms(text, date_given)) return fixed;
  std::string_view s = Trim(text);
  if (s.empty() || s.size() > 64) return std::nullopt;
  // A date comes first when there is one; the time follows after blanks or a 'T'.
  size_t split = s.find_first_of(" \tT");
  std::string_view first = split == std::string_view::npos ? s : s.substr(0, split);
  if (auto date = ParseDatePart(first)) {
    date_given = true;
    std::string_view rest =
        split == std::string_view::npos ? std::string_view{} : Trim(s.substr(split + 1));
    if (rest.empty()) return DateTime(*date, TimeOfDay());
    auto time = ParseTimePart(rest);
    if (!time) return std::nullopt;
    return DateTime(*date, *time);
  }
  if (!LooksLikeTime(s)) return std::nullopt;
  auto time = ParseTimePart(s);
  if (!time) return std::nullopt;
  return DateTime(Date(), *time);
}

}  // namespace

bool Date::IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int Date::DaysInMonth(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month == 2 && IsLeapYear(year)) return 29;
  return kDays[month - 1];
}

std::optional<Date> Date::FromYmd(int year, int month, int day) {
  if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1 ||
      day > DaysInMonth(year, month)) {
    return std::nullopt;
  }
  return Date(year, month, day, 0);
}

Date Date::FromYmdOrThrow(int year, int month, int day) {
  auto d = FromYmd(year, month, day);
  if (!d) {
    throw ArgumentException("Invalid date " + std::to_string(year) + "-" + std::to_string(month) +
                                "-" + std::to_string(day) + ".",
                            "date");
  }
  return *d;
}

Date Date::FromDaysSinceEpoch(int64_t z) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t y = static_cast<int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  return Date(static_cast<int>(y + (m <= 2)), static_cast<int>(m), static_cast<int>(d), 0);
}

int64_t Date::DaysSinceEpoch() const {
  return DaysFromCivil(year_, static_cast<unsigned>(month_), static_cast<unsigned>(day_));
}

int Date::DayOfWeek() const {
  const int64_t z = DaysSinceEpoch();
  return static_cast<int>(z >= -4 ? (z + 4) % 7 : (z + 5) % 7 + 6);
}

Date Date::FirstOfNextMonth() const {
  return month_ == 12 ? Date(year_ + 1, 1, 1, 0) : Date(year_, month_ + 1, 1, 0);
}

std::string Date::Format(std::string_view pattern) const {
  if (pattern == kFormatIsoDate) {
    char text[16];
    return std::string(text, FormatIsoDate(*this, text));
  }
  return FormatFields(pattern, Fields{this, nullptr});
}

std::optional<TimeOfDay> TimeOfDay::FromHms(int hour, int minute, int second) {
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) {
    return std::nullopt;
  }
  return TimeOfDay(hour * 3600 + minute * 60 + second);
}

TimeOfDay TimeOfDay::FromSeconds(int seconds_since_midnight) {
  int s = seconds_since_midnight % 86400;
  if (s < 0) s += 86400;
  return TimeOfDay(s);
}

std::string TimeOfDay::Format(std::string_view pattern) const {
  if (pattern == kFormatHourMinuteSecond || pattern == kFormatHourMinute) {
    char text[16];
    return std::string(text, FormatTime(*this, pattern == kFormatHourMinuteSecond, text));
  }
  return FormatFields(pattern, Fields{nullptr, this});
}

std::optional<DateTime> DateTime::FromParts(int year, int month, int day, int hour, int minute,
                                            int second) {
  auto d = Date::FromYmd(year, month, day);
  auto t = TimeOfDay::FromHms(hour, minute, second);
  if (!d || !t) return std::nullopt;
  return DateTime(*d, *t);
}

DateTime DateTime::FromSeconds(int64_t seconds) {
  int64_t days = seconds / 86400;
  int64_t rest = seconds % 86400;
  if (rest < 0) {
    rest += 86400;
    --days;
  }
  return DateTime(Date::FromDaysSinceEpoch(days), TimeOfDay::FromSeconds(static_cast<int>(rest)));
}

std::string DateTime::Format(std::string_view pattern) const {
  return FormatFields(pattern, Fields{&date_, &time_});
}

namespace {

char* Digits(int value, int width, char* out) {
  for (int i = width - 1; i >= 0; --i, value /= 10) out[i] = static_cast<char>('0' + value % 10);
  return out + width;
}

// Without leading zeros.
char* Number(int value, char* out) { return Digits(value, value >= 10 ? 2 : 1, out); }

}  // namespace

char* FormatIsoDate(const Date& date, char* out) {
  out = Digits(date.Year(), 4, out);
  *out++ = '-';
  out = Digits(date.Month(), 2, out);
  *out++ = '-';
  return Digits(date.Day(), 2, out);
}

char* FormatTcdDate(const Date& date, char* out) {
  out = Digits(date.Year(), 4, out);
  *out++ = '/';
  out = Number(date.Month(), out);
  *out++ = '/';
  return Number(date.Day(), out);
}

char* FormatTime(const TimeOfDay& time, bool seconds, char* out) {
  out = Digits(time.Hour(), 2, out);
  *out++ = ':';
  out = Digits(time.Minute(), 2, out);
  if (!seconds) return out;
  *out++ = ':';
  return Digits(time.Second(), 2, out);
}

int ExpandTwoDigitYear(int two_digit_year) {
  return two_digit_year < 30 ? 2000 + two_digit_year : 1900 + two_digit_year;
}

std::optional<DateTime> ParseDateTime(std::string_view text) {
  bool date_given;
  return ParseLenient(text, date_given);
}

std::optional<Date> ParseDate(std::string_view text) {
  bool date_given;
  auto dt = ParseLenient(text, date_given);
  if (!dt || !date_given) return std::nullopt;
  return dt->GetDate();
}

std::optional<TimeOfDay> ParseTime(std::string_view text) {
  bool date_given;
  auto dt = ParseLenient(text, date_given);
  if (!dt) return std::nullopt;
  return dt->GetTime();
}

std::optional<Date> ParseIsoDate(std::string_view text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
  int parts[3] = {0, 0, 0};
  for (size_t i = 0, part = 0; i < text.size(); ++i) {
    if (i == 4 || i == 7) {
      ++part;
    } else if (text[i] >= '0' && text[i] <= '9') {
      parts[part] = parts[part] * 10 + (text[i] - '0');
    } else {
      return std::nullopt;
    }
  }
  return Date::FromYmd(parts[0], parts[1], parts[2]);
}

}  // namespace clockcomm::core
