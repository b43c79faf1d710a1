#include "t4/duplicate_checker.h"

#include <gtest/gtest.h>

#include "core/errors.h"

namespace clockcomm::t4 {
namespace {

const core::DateTime kEight = *core::DateTime::FromParts(2024, 2, 29, 8, 0, 0);

struct Step {
  long badge;
  int second;  // after 08:00:00
  bool duplicate;
};

struct Case {
  const char* legend;
  long threshold;
  std::vector<Step> steps;
};

TEST(DuplicateChecker, ComparesWithBothNeighboursWithinTheThreshold) {
  const Case cases[] = {
      {"15 s apart is a duplicate", 15, {{1, 0, false}, {1, 15, true}}},
      {"16 s apart is kept", 15, {{1, 0, false}, {1, 16, false}, {1, 32, false}}},
      {"a duplicate is not stored", 15, {{1, 0, false}, {1, 10, true}, {1, 25, false}}},
      {"badges are apart", 15, {{1, 0, false}, {2, 0, false}, {2, 5, true}}},
      {"exact match at threshold 0", 0, {{1, 0, false}, {1, 0, true}, {1, 1, false}}},
      {"out of order: the later neighbour",
       15,
       {{1, 100, false}, {1, 0, false}, {1, 85, true}, {1, 84, false}}},
      {"out of order: the earlier neighbour",
       15,
       {{1, 100, false}, {1, 0, false}, {1, 15, true}, {1, 16, false}}},
      {"between two, far from both", 15, {{1, 0, false}, {1, 60, false}, {1, 30, false}}},
  };
  for (const Case& c : cases) {
    DuplicateChecker checker;
    checker.SetThreshold(c.threshold);
    for (size_t i = 0; i < c.steps.size(); ++i) {
      const Step& s = c.steps[i];
      EXPECT_EQ(checker.FindDuplicate(s.badge, kEight.AddSeconds(s.second)), s.duplicate)
          << c.legend << ", step " << i;
    }
  }
}

TEST(DuplicateChecker, ThresholdDefaultsTo15AndRefusesNegative) {
  DuplicateChecker checker;
  EXPECT_EQ(checker.Threshold(), 15);
  try {
    checker.SetThreshold(-1);
    FAIL() << "no exception";
  } catch (const core::ArgumentException& e) {
    EXPECT_STREQ(e.what(), "Threshold cannot be negative.");
    EXPECT_EQ(e.ParamName(), "Threshold");
  }
  EXPECT_EQ(checker.Threshold(), 15);
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
