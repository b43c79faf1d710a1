#include "records/tcd_record.h"

#include <gtest/gtest.h>

#include "core/errors.h"
#include "records/tcd_record_static.h"
#include "records/transfer_fixture.h"

namespace clockcomm::records {
namespace {

using test_support::D;
using test_support::T;

TEST(TcdRecordTest, DepartmentRules) {
  struct Case {
    const char* text;
    std::optional<int32_t> expected;
    bool throws;
  };
  const Case cases[] = {
      {"1234", 1234, false},
      {"abc", std::nullopt, false},
      {"", std::nullopt, false},
      {"0", 0, false},
      {"999999999", 999999999, false},
      {"-1", std::nullopt, true},
      {"1000000000", std::nullopt, true},
      {"1e20", std::nullopt, true},
  };
  for (const auto& c : cases) {
    TcdRecord r;
    r.SetDepartment(42);
    if (c.throws) {
      try {
        r.SetDepartmentText(c.text);
        ADD_FAILURE() << c.text << " was accepted";
      } catch (const core::ArgumentException& e) {
        EXPECT_STREQ(e.what(), "Department must be between 0 and 999999999.");
        EXPECT_EQ(r.Department(), 42) << "old value must stay for " << c.text;
      }
    } else {
      r.SetDepartmentText(c.text);
      EXPECT_EQ(r.Department(), c.expected) << c.text;
    }
  }
  // The constructor applies the range check too.
  EXPECT_THROW(TcdRecord("1", 1, 1, -5, "", "", "", "I", {}, {}, {}, {}, {}, ""),
               core::ArgumentException);
}

// The setter checks the job's length; the constructor trims every text field and checks nothing.
TEST(TcdRecordTest, JobNumberLengthAndTrimming) {
  TcdRecord r;
  r.SetJobNumber("1234567890123");
  EXPECT_EQ(r.JobNumber(), "1234567890123");
  try {
    r.SetJobNumber("12345678901234");
    FAIL() << "14 characters accepted";
  } catch (const core::ArgumentException& e) {
    EXPECT_STREQ(e.what(), "JobNumber cannot exceed 13 characters.");
  }
  EXPECT_EQ(r.JobNumber(), "1234567890123");
  TcdRecord built("1", 1, 1, std::nullopt, "  12345678901234  ", "", "", "I", {}, {}, {}, {}, {},
                  "");
  EXPECT_EQ(built.JobNumber(), "12345678901234");
  TcdRecord trimmed(" 99 ", 1, 1, std::nullopt, " j ", " a ", " b ", " LO ", {}, {}, {}, {}, {},
                    " c ");
  EXPECT_EQ(trimmed.ClockNumber(), "99");
  EXPECT_EQ(trimmed.PunchType(), "LO");
  EXPECT_EQ(trimmed.Level4() + trimmed.Level5() + trimmed.PunchClass(), "abc");
}

TEST(TcdRecordTest, ToTcdStringForms) {
  TcdRecord r("999", 1, 2, 3, "work", "level4", "level5", "I", std::nullopt, std::nullopt,
              D(2009, 1, 1), T(8, 30), 6.0f, "7");
  // The quoted form (1) is what the call files hold, line for line in the golden transcripts.
  EXPECT_EQ(r.ToTcdString(0), "999,1,2,3,work,level4,level5,I,,,2009/1/1,08:30,6,7");
  EXPECT_EQ(r.ToTcdString(2), r.ToTcdString(0)) << "only 1 means quoted";
  r.SetDepartment(std::nullopt);
  r.SetAmount(12.3f);
  r.SetSequenceNumber(-4);
  r.SetTimeout(T(8, 30, 15));
  EXPECT_EQ(r.ToTcdString(0), "999,-4,2,,work,level4,level5,I,,,2009/1/1,08:30,12.3,7");
  r.SetIncludeSeconds(true);
  EXPECT_EQ(r.ToTcdString(0), "999,-4,2,,work,level4,level5,I,,,2009/1/1,08:30:15,12.3,7");
}

TEST(TcdRecordStaticTest, ConvertLettersToNumbers) {
  const std::pair<const char*, const char*> cases[] = {
      {"123-", "1230"},
      {"AB-1", "2201"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZ", "22233344455566671778889991"},
      {"abc", ""},
      {"1 2.3", "10213"},
      {"#*/", ""},
      {"", ""},
  };
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(TcdRecordStatic::ConvertLettersToNumbers(in), out) << in;
  }
}

// Each parsed record as the text of all its fields (ToTcdString, unquoted).
TEST(TcdRecordStaticTest, ParseLineFormsAndRefusals) {
  struct Case {
    const char* legend;
    const char* line;
    const char* fields;
  };
  const Case cases[] = {
      {"six-digit date, four-digit time", "999,1,2,3,job,,,I,091020,1224,,,,1",
       "999,1,2,3,job,,,I,2009/10/20,12:24,,,,1"},
      {"month/day/year, am and pm times", "999,1,2,3,job,,,C,1/2/2008,8:30am,1/2/2008,9pm,,1",
       "999,1,2,3,job,,,C,2008/1/2,08:30,2008/1/2,21:00,,1"},
      {"empty department", "999,1,2,,job,,,C,1/2/2008,8:30am,1/2/2008,9pm,,1",
       "999,1,2,,job,,,C,2008/1/2,08:30,2008/1/2,21:00,,1"},
      {"letters in department", "999,1,2,AB,job,,,I,,,,,,1", "999,1,2,22,job,,,I,,,,,,1"},
      {"letters in badge", "999,1,A1,,,,,I,,,,,,", "999,1,21,,,,,I,,,,,,"},
      {"fully quoted",
       "\"1\",\"\",\"111\",\"\",\"\",\"\",\"\",\"I\",\"11/13/2009\",\"13:55\","
       "\"\",\"\",\"\",\"\"",
       "1,0,111,,,,,I,2009/11/13,13:55,,,,"},
      {"out date and amount", "999,1,2,,work,level4,level5,I,,,1/1/2009,08:30,6,7",
       "999,1,2,,work,level4,level5,I,,,2009/1/1,08:30,6,7"},
      {"writer's own form", "999,5,1234,3,work,,,I,2009/10/20,12:24,,,,",
       "999,5,1234,3,work,,,I,2009/10/20,12:24,,,,"},
      {"extra fields ignored, leading numbers", " 7 ,12x,34abc,,,,,O,,,,,abc,,extra,more",
       "7,12,34,,,,,O,,,,,,"},
      {"bad six-digit date and odd times are null", "1,1,1,,,,,I,091340,2561,13/45/2009,12345,,",
       "1,1,1,,,,,I,,,,,,"},
  };
  for (const auto& c : cases) {
    const TcdRecord got = TcdRecordStatic::Parse(c.line);
    EXPECT_EQ(got.ToTcdString(0), c.fields) << c.legend;
    EXPECT_FALSE(got.IncludeSeconds());
  }
  EXPECT_THROW(TcdRecordStatic::Parse("999,1,2,3,job,,,I,091020,1224,,,"),
               core::IndexOutOfRangeException);
  EXPECT_THROW(TcdRecordStatic::Parse(""), core::IndexOutOfRangeException);
  EXPECT_THROW(TcdRecordStatic::Parse("1,1,1,ZZZZZZZZZZ,,,,I,,,,,,"), core::ArgumentException);
}

}  // namespace
}  // namespace clockcomm::records
