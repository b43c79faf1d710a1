#include "records/intake/history_purge.h"

#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "records/transfer_fixture.h"

namespace clockcomm::records {
namespace {
namespace fs = std::filesystem;

using test_support::D;

TEST(HistoryPurgeTest, AgeFromTheNameWithTheFixedYearEndRule) {
  struct Case {
    const char* name;
    core::Date today;
    std::optional<int> age;
  } cases[] = {
      {"0102000A.TCD", D(2010, 3, 15), 72},  // same year, common year
      {"1231001.TCD", D(2010, 2, 28), 60},   // last year: -306 + 366, kept
      {"1231001.TCD", D(2010, 3, 1), 61},    // one day later, deleted
      {"1231001.TCD", D(2008, 3, 1), 61},    // leap year: -305 + 366, the true age
      {"0315.TCD", D(2010, 3, 15), 0},       // today
      {"0316.TCD", D(2010, 3, 15), 365},     // tomorrow's date: a year ago, by the rule
      {"0229.TCD", D(2010, 3, 31), 30},      // no 29 Feb in 2010: taken as 1 March
      {"1301.TCD", D(2010, 3, 15), std::nullopt},
      {"0100.TCD", D(2010, 3, 15), std::nullopt},
      {"ab01.TCD", D(2010, 3, 15), std::nullopt},
      {"01.TCD", D(2010, 3, 15), std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(HistoryFileAge(c.name, c.today), c.age) << c.name << " on " << c.today.ToString();
  }
}

TEST(HistoryPurgeTest, DeletesOldTcdFilesOnlyAndLogsBothLines) {
  test::TempDir dir;
  for (const char* name :
       {"0102000A.TCD", "1231001.TCD", "0301002.tcd", "0102000A.arc", "notes.TCD", "0310004.TCD"}) {
    std::ofstream(dir.path() / name) << "x";
  }
  core::ManualClock clock(*core::DateTime::FromParts(2010, 3, 15, 9, 30));
  test_support::RecordingLog log;
  EXPECT_EQ(PurgeHistoryFiles(dir.path(), clock, log), 2);

  EXPECT_FALSE(fs::exists(dir.path() / "0102000A.TCD"));  // 72 days
  EXPECT_FALSE(fs::exists(dir.path() / "1231001.TCD"));   // 75 days by the rule, from last year
  EXPECT_TRUE(fs::exists(dir.path() / "0301002.tcd"));    // 14 days
  EXPECT_TRUE(fs::exists(dir.path() / "0102000A.arc"));   // not a history file
  EXPECT_TRUE(fs::exists(dir.path() / "notes.TCD"));      // no date in the name
  EXPECT_TRUE(fs::exists(dir.path() / "0310004.TCD"));
  EXPECT_EQ(log.screen, (std::vector<std::string>{
                            "2010-03-15 09:30:00 Deleting history files more than 60 days old.",
                            "2010-03-15 09:30:00 Event Complete."}));
}

}  // namespace
}  // namespace clockcomm::records
