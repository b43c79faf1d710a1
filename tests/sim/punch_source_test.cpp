#include "sim/punch_source.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "core/errors.h"
#include "test_support/temp_dir.h"
#include "zon/zon2x_to_tcd_formatter.h"

namespace clockcomm::sim {
namespace {

TEST(PunchSourceTest, GeneratedPunchesAreDistinctWellFormedLinesOfTheDay) {
  const auto day = core::Date::FromYmdOrThrow(2009, 10, 20);
  auto punches = GeneratePunches(1000, day);
  ASSERT_EQ(punches.size(), 1000u);
  EXPECT_EQ(std::set<std::string>(punches.begin(), punches.end()).size(), punches.size());
  zon::Zon2xToTcdFormatter formatter;
  for (const auto& punch : punches) {
    ASSERT_TRUE(formatter.Formattable(punch)) << punch;
    EXPECT_NO_THROW(formatter.Format(punch)) << punch;  // valid dates and times throughout
  }
  EXPECT_TRUE(GeneratePunches(0, day).empty());
}

TEST(PunchSourceTest, PunchFileSkipsCommentsAndNamesTheBadLine) {
  test::TempDir dir;
  const auto path = (dir.path() / "punches.txt").string();
  {
    std::ofstream out(path, std::ios::binary);
    out << "# two punches\r\n2,12,,,,,I,091020,1224,,,,1\r\n\n 3,12,,,,,O,091020,1705,,,,1 \n";
  }
  EXPECT_EQ(ReadPunchFile(path), (std::vector<std::string>{"2,12,,,,,I,091020,1224,,,,1",
                                                           "3,12,,,,,O,091020,1705,,,,1"}));
  {
    std::ofstream out(path, std::ios::binary);
    out << "2,12,,,,,I,091020,1224,,,,1\n2,12,I,091020\n";
  }
  try {
    ReadPunchFile(path);
    ADD_FAILURE() << "a short line was accepted";
  } catch (const core::ArgumentException& e) {
    EXPECT_NE(std::string(e.what()).find("line 2"), std::string::npos) << e.what();
  }
  EXPECT_THROW(ReadPunchFile((dir.path() / "missing.txt").string()), core::SystemError);
}

}  // namespace
}  // namespace clockcomm::sim
