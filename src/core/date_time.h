// Calendar date, time of day and local wall-clock date/time, the fixed text formats used across
// the system, and the one lenient conversion from free-form text that every parser relies on.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace clockcomm::core {

// Pattern tokens understood by the Format methods: "yyyy", "yy", "mm" (month), "m", "dd", "d",
// "HH"/"hh" (24-hour, two digits), "H", "nn" (minute), "ss". Anything else is copied as it is.
// The formats the system uses are named below.
inline constexpr std::string_view kFormatTcdDate = "yyyy/m/d";
inline constexpr std::string_view kFormatHourMinute = "HH:nn";
inline constexpr std::string_view kFormatHourMinuteSecond = "HH:nn:ss";
inline constexpr std::string_view kFormatMonthDay = "mmdd";
inline constexpr std::string_view kFormatIsoDate = "yyyy-mm-dd";
inline constexpr std::string_view kFormatSqlDate = "yyyy/mm/dd";

// A calendar date (proleptic Gregorian), always valid once built.
class Date {
 public:
  // The platform's "zero" date, used where a time was given without a date.
  Date() : Date(1899, 12, 30, 0) {}

  static std::optional<Date> FromYmd(int year, int month, int day);
  // Throws ArgumentException naming the bad part.
  static Date FromYmdOrThrow(int year, int month, int day);
  static Date FromDaysSinceEpoch(int64_t days);  // 1970-01-01 is day 0

  int Year() const { return year_; }
  int Month() const { return month_; }
  int Day() const { return day_; }
  int64_t DaysSinceEpoch() const;
  int DayOfWeek() const;  // 0 = Sunday ... 6 = Saturday
  Date AddDays(int64_t days) const { return FromDaysSinceEpoch(DaysSinceEpoch() + days); }
  // First day of the month that follows this date's month.
  Date FirstOfNextMonth() const;

  std::string Format(std::string_view pattern) const;
  std::string ToString() const { return Format(kFormatIsoDate); }

  friend bool operator==(const Date&, const Date&) = default;
  friend auto operator<=>(const Date& a, const Date& b) {
    return a.DaysSinceEpoch() <=> b.DaysSinceEpoch();
  }

  static bool IsLeapYear(int year);
  static int DaysInMonth(int year, int month);

 private:
  Date(int year, int month, int day, int) : year_(year), month_(month), day_(day) {}
  int year_;
  int month_;
  int day_;
};

// Seconds since midnight, 0..86399.
class TimeOfDay {
 public:
  TimeOfDay() = default;
  static std::optional<TimeOfDay> FromHms(int hour, int minute, int second = 0);
  static TimeOfDay FromSeconds(int seconds_since_midnight);  // taken modulo one day

  int Hour() const { return seconds_ / 3600; }
  int Minute() const { return seconds_ / 60 % 60; }
  int Second() const { return seconds_ % 60; }
  int TotalSeconds() const { return seconds_; }
  TimeOfDay WithoutSeconds() const { return FromSeconds(seconds_ - Second()); }

  std::string Format(std::string_view pattern) const;
  std::string ToString() const { return Format(kFormatHourMinuteSecond); }

  friend bool operator==(const TimeOfDay&, const TimeOfDay&) = default;
  friend auto operator<=>(const TimeOfDay&, const TimeOfDay&) = default;

 private:
  explicit TimeOfDay(int seconds) : seconds_(seconds) {}
  int seconds_ = 0;
};

// A local wall-clock date and time to the second. Terminals speak local time; so do we.
class DateTime {
 public:
  DateTime() = default;
  DateTime(Date date, TimeOfDay time) : date_(date), time_(time) {}
  static std::optional<DateTime> FromParts(int year, int month, int day, int hour = 0,
                                           int minute = 0, int second = 0);

  const Date& GetDate() const { return date_; }
  const TimeOfDay& GetTime() const { return time_; }

  // Seconds on a uniform scale (days since 1970 * 86400 + time); wall time, no time zone.
  int64_t Seconds() const { return date_.DaysSinceEpoch() * 86400 + time_.TotalSeconds(); }
  static DateTime FromSeconds(int64_t seconds);

  DateTime AddSeconds(int64_t seconds) const { return FromSeconds(Seconds() + seconds); }
  DateTime AddMinutes(int64_t minutes) const { return AddSeconds(minutes * 60); }
  DateTime AddDays(int64_t days) const { return DateTime(date_.AddDays(days), time_); }
  DateTime TruncatedToMinute() const { return DateTime(date_, time_.WithoutSeconds()); }

  std::string Format(std::string_view pattern) const;
  std::string ToString() const { return Format("yyyy-mm-dd HH:nn:ss"); }

  friend bool operator==(const DateTime&, const DateTime&) = default;
  friend auto operator<=>(const DateTime& a, const DateTime& b) {
    return a.Seconds() <=> b.Seconds();
  }

 private:
  Date date_;
  TimeOfDay time_;
};

// Whole seconds from a to b (negative when b is earlier).
inline int64_t SecondsBetween(const DateTime& a, const DateTime& b) {
  return b.Seconds() - a.Seconds();
}

// The fixed forms without the pattern engine, for the paths that write row after row. Each writes
// into out (room for 16 characters) and returns the end of what it wrote.
char* FormatIsoDate(const Date& date, char* out);                  // yyyy-mm-dd
char* FormatTcdDate(const Date& date, char* out);                  // yyyy/m/d
char* FormatTime(const TimeOfDay& time, bool seconds, char* out);  // HH:nn or HH:nn:ss

// Two-digit years: 00-29 are 2000-2029, 30-99 are 1930-1999.
int ExpandTwoDigitYear(int two_digit_year);

// The lenient conversion: accepts month/day/year (two- or four-digit year), year/month/day and
// year-month-day dates, times such as "8:30am", "9pm", "08:30", "13:55", "8:30:15 PM", and a date
// followed by a time. Strict about values: month 13, 25:61 or 31 February are refused. A missing
// date part gives the zero date, a missing time part midnight. Returns nothing when not accepted.
std::optional<DateTime> ParseDateTime(std::string_view text);
// The date part of an accepted text that has one.
std::optional<Date> ParseDate(std::string_view text);
// The time part of an accepted text (midnight for a text that holds only a date).
std::optional<TimeOfDay> ParseTime(std::string_view text);
// Exactly "yyyy-mm-dd" naming a real day (what a command option or a query string gives).
std::optional<Date> ParseIsoDate(std::string_view text);

}  // namespace clockcomm::core
