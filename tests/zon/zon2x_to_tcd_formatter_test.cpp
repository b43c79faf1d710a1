#include "zon/zon2x_to_tcd_formatter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "core/errors.h"

namespace clockcomm::zon {
namespace {

using ::testing::ThrowsMessage;

TEST(Zon2xToTcdFormatter, PunchTypesDatesTimesQuotesAndSpaces) {
  Zon2xToTcdFormatter f;
  struct Row {
    const char* line;
    const char* expected;
  };
  for (const Row& row : {
           Row{"2,12,,,,,I,091020,1224,,,,1",
               R"("2","12","","","","","I","10/20/09","12:24","","","","1")"},
           Row{"2,12,,,,,PC,091020,1224,091020,1730,,1",
               R"("2","12","","","","","C","10/20/09","12:24","10/20/09","17:30","","1")"},
           Row{"1,5,,,,,PO,,,,,,", R"("1","5","","","","","O","","","","","","")"},
           Row{"1,5,,,,,PX,,,,,,", R"("1","5","","","","","PX","","","","","","")"},
           Row{"1,5,,,,,pc,,,,,,", R"("1","5","","","","","pc","","","","","","")"},
           Row{R"("1", "5",,,,,"PI",080229,0000,,,,)",
               R"("1","5","","","","","I","02/29/08","00:00","","","","")"},
           // Only six-character dates and four-character times are rewritten.
           Row{"1,5,,,,,I,91020,124,2009-10,12:24,,",
               R"("1","5","","","","","I","91020","124","2009-10","12:24","","")"},
       }) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(f.Format(row.line), row.expected);
  }
}

TEST(Zon2xToTcdFormatter, RefusesImpossibleDatesAndTimes) {
  Zon2xToTcdFormatter f;
  struct Row {
    std::string line;
    const char* message;
  };
  std::vector<Row> rows;
  for (const char* d : {"091320", "090229", "091000", "09a020", "-91020", "000000"}) {
    rows.push_back({std::string("1,5,,,,,I,") + d + ",1224,,,,", "Invalid date value(s)."});
  }
  for (const char* t : {"2561", "2400", "1260", "12a4", "+123"}) {
    rows.push_back({std::string("1,5,,,,,I,091020,,091020,") + t + ",,", "Invalid time value(s)."});
  }
  for (const Row& row : rows) {
    EXPECT_THAT([&] { f.Format(row.line); }, ThrowsMessage<core::FormatException>(row.message))
        << row.line;
  }
  // Spaces go before the length is looked at: "0910 2" becomes five characters and stays.
  EXPECT_EQ(f.Format("1,5,,,,,I,0910 2,,,,,"), R"("1","5","","","","","I","09102","","","","","")");
}

// That what Format makes counts as formatted is the fuzz target's.
TEST(Zon2xToTcdFormatter, FormattableAndAlreadyFormatted) {
  Zon2xToTcdFormatter f;
  EXPECT_FALSE(f.AlreadyFormatted("2,12,,,,,I,091020,1224,,,,1"));
  EXPECT_FALSE(f.Formattable(std::string(11, ',')));
  EXPECT_TRUE(f.Formattable(std::string(12, ',')));
  EXPECT_FALSE(f.Formattable(std::string(13, ',')));
  std::string quoted = "\"\"";
  for (int i = 0; i < 12; ++i) quoted += ",\"x\"";
  EXPECT_TRUE(f.AlreadyFormatted(quoted));
  EXPECT_FALSE(f.AlreadyFormatted("x" + quoted));  // 26 quotes, but a field starts unquoted
  EXPECT_FALSE(f.AlreadyFormatted("\"a,b\"" + quoted.substr(2)));  // 14 fields
  EXPECT_FALSE(f.AlreadyFormatted("\"" + std::string(12, ',') + "\""));
}

}  // namespace
}  // namespace clockcomm::zon
