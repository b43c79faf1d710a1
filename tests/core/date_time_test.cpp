#include "core/date_time.h"

#include <gtest/gtest.h>

#include "core/errors.h"

namespace clockcomm::core {
namespace {

struct ParseCase {
  const char* text;
  const char* expected;  // "yyyy-mm-dd HH:nn:ss", or nullptr when refused
};

TEST(ParseDateTime, AcceptsTheFormsTheTerminalsAndFilesUse) {
  const ParseCase cases[] = {
      {"1/2/2008", "2008-01-02 00:00:00"},
      {"1/2/08", "2008-01-02 00:00:00"},
      {"1/1/29", "2029-01-01 00:00:00"},  // century window: 00-29 are 2000s
      {"1/1/30", "1930-01-01 00:00:00"},  // 30-99 are 1900s
      {"2009/1/1", "2009-01-01 00:00:00"},
      {"2000/2/29", "2000-02-29 00:00:00"},  // leap year by the 400 rule
      {"8:30am", "1899-12-30 08:30:00"},
      {"9pm", "1899-12-30 21:00:00"},
      {"12am", "1899-12-30 00:00:00"},
      {"12:15pm", "1899-12-30 12:15:00"},
      {"13:55", "1899-12-30 13:55:00"},
      {"8:30:15 PM", "1899-12-30 20:30:15"},
      {" 7:05 ", "1899-12-30 07:05:00"},
      {"1/2/2008 8:30am", "2008-01-02 08:30:00"},
      {"2009-10-20T12:24:00", "2009-10-20 12:24:00"},
      // The fixed forms read without the general rules, and their near misses.
      {"23:59:59", "1899-12-30 23:59:59"},
      {"10/20/2009", "2009-10-20 00:00:00"},
      {"08:60", nullptr},
      {"08:3a", nullptr},
      {"20091/1/1", nullptr},
      // Refused: impossible values, and digit runs that the fixed-width fallbacks handle.
      {"13/1/2009", nullptr},
      {"2/31/2009", nullptr},
      {"2/29/1900", nullptr},
      {"24:00", nullptr},
      {"13pm", nullptr},
      {"8:5", nullptr},
      {"1224", nullptr},
      {"091020", nullptr},
      {"", nullptr},
      {"1/2", nullptr},
      {"1/2-2008", nullptr},
      {"1/2/2008 25:00", nullptr},
  };
  for (const auto& c : cases) {
    auto parsed = ParseDateTime(c.text);
    if (c.expected == nullptr) {
      EXPECT_FALSE(parsed.has_value()) << c.text << " gave " << parsed->ToString();
    } else {
      ASSERT_TRUE(parsed.has_value()) << c.text;
      EXPECT_EQ(parsed->ToString(), c.expected) << c.text;
    }
  }
}

TEST(ParseDateTime, DateAndTimePartsSeparately) {
  EXPECT_EQ(ParseDate("1/2/2008 9pm")->ToString(), "2008-01-02");
  EXPECT_FALSE(ParseDate("9pm").has_value());  // a time alone is not a date
  EXPECT_EQ(ParseTime("1/2/2008 9pm")->ToString(), "21:00:00");
  EXPECT_EQ(ParseTime("1/2/2008")->ToString(), "00:00:00");
}

TEST(ParseIsoDate, OnlyTheExactFormOfARealDay) {
  EXPECT_EQ(ParseIsoDate("2008-02-29")->ToString(), "2008-02-29");
  for (const char* refused : {"2009-02-29", "2009-2-03", "2009/02/03", " 2009-02-03", "2009-02-03x",
                              "+009-02-03", "2009-13-01", "2009-00-10", ""}) {
    EXPECT_FALSE(ParseIsoDate(refused).has_value()) << refused;
  }
}

TEST(Date, ArithmeticAcrossMonthYearAndLeapDays) {
  const Date d = Date::FromYmdOrThrow(2008, 2, 28);
  EXPECT_EQ(d.AddDays(1).ToString(), "2008-02-29");
  EXPECT_EQ(d.AddDays(2).ToString(), "2008-03-01");
  EXPECT_EQ(Date::FromYmdOrThrow(2009, 12, 31).AddDays(1).ToString(), "2010-01-01");
  EXPECT_EQ(Date::FromYmdOrThrow(2010, 1, 1).AddDays(-1).ToString(), "2009-12-31");
  EXPECT_EQ(Date::FromYmdOrThrow(2009, 12, 15).FirstOfNextMonth().ToString(), "2010-01-01");
  EXPECT_EQ(Date::FromYmdOrThrow(1970, 1, 1).DayOfWeek(), 4);    // Thursday
  EXPECT_EQ(Date::FromYmdOrThrow(2026, 11, 22).DayOfWeek(), 0);  // Sunday
  EXPECT_EQ(Date::FromYmdOrThrow(1899, 12, 30).DayOfWeek(), 6);  // Saturday, before the epoch
  EXPECT_EQ(Date::FromDaysSinceEpoch(Date::FromYmdOrThrow(1600, 3, 1).DaysSinceEpoch()).ToString(),
            "1600-03-01");
  EXPECT_THROW(Date::FromYmdOrThrow(2009, 2, 29), ArgumentException);
}

TEST(DateTime, SecondsAndTruncation) {
  const DateTime a = *DateTime::FromParts(2009, 12, 31, 23, 59, 30);
  EXPECT_EQ(a.AddSeconds(30).ToString(), "2010-01-01 00:00:00");
  EXPECT_EQ(a.AddMinutes(-1).ToString(), "2009-12-31 23:58:30");
  EXPECT_EQ(a.TruncatedToMinute().ToString(), "2009-12-31 23:59:00");
  EXPECT_EQ(SecondsBetween(a, a.AddDays(1)), 86400);
  EXPECT_LT(a, a.AddSeconds(1));
  EXPECT_EQ(DateTime::FromSeconds(-1).ToString(), "1969-12-31 23:59:59");
}

}  // namespace
}  // namespace clockcomm::core
