#include "t4/duplicate_checker.h"

#include <gtest/gtest.h>

#include "core/errors.h"

namespace clockcomm::t4 {
namespace {

const core::DateTime kEight = *core::DateTime::FromParts(2024, 2, 29, 8, 0, 0);

// Each case offers punches in order, "badge@second" after 08:00:00, with a '!' on a duplicate.
TEST(DuplicateChecker, ComparesWithBothNeighboursWithinTheThreshold) {
  const std::tuple<const char*, long, std::vector<const char*>> cases[] = {
      {"15 s apart is a duplicate (the default)", 15, {"1@0", "1@15!"}},
      {"16 s apart is kept", 15, {"1@0", "1@16", "1@32"}},
      {"a duplicate is not stored", 15, {"1@0", "1@10!", "1@25"}},
      {"badges are apart", 15, {"1@0", "2@0", "2@5!"}},
      {"exact match at threshold 0", 0, {"1@0", "1@0!", "1@1"}},
      {"out of order: the later neighbour", 15, {"1@100", "1@0", "1@85!", "1@84"}},
      {"out of order: the earlier neighbour", 15, {"1@100", "1@0", "1@15!", "1@16"}},
      {"between two, far from both", 15, {"1@0", "1@60", "1@30"}},
  };
  for (const auto& [legend, threshold, steps] : cases) {
    DuplicateChecker checker;
    if (threshold != 15) checker.SetThreshold(threshold);
    for (const std::string step : steps) {
      const long badge = std::stol(step);
      const int second = std::stoi(step.substr(step.find('@') + 1));
      EXPECT_EQ(checker.FindDuplicate(badge, kEight.AddSeconds(second)), step.back() == '!')
          << legend << ", " << step;
    }
  }
  DuplicateChecker checker;
  EXPECT_THROW(checker.SetThreshold(-1), core::ArgumentException);
}

TEST(DuplicateChecker, PurgeDropsOnlyPunchesOlderThanTheMinutes) {
  DuplicateChecker checker;
  checker.FindDuplicate(1, kEight);
  checker.FindDuplicate(1, kEight.AddSeconds(60));
  checker.FindDuplicate(2, kEight);
  // At 08:11:00, 08:00:00 is more than ten minutes old; 08:01:00 is exactly ten and stays.
  checker.PurgeRecords(10, kEight.AddMinutes(11));
  EXPECT_FALSE(checker.FindDuplicate(1, kEight.AddSeconds(5)));
  EXPECT_TRUE(checker.FindDuplicate(1, kEight.AddSeconds(65)));
  EXPECT_FALSE(checker.FindDuplicate(2, kEight));
  checker.Forget(2, kEight);
  EXPECT_FALSE(checker.FindDuplicate(2, kEight.AddSeconds(1)));
  checker.Reset();
  EXPECT_FALSE(checker.FindDuplicate(1, kEight.AddSeconds(65)));
}

}  // namespace
}  // namespace clockcomm::t4
