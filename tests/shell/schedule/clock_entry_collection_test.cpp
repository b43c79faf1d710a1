#include "shell/schedule/clock_entry_collection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "core/errors.h"
#include "schedule_test_support.h"
#include "shell/schedule/clock_entry_comparer.h"

namespace clockcomm::shell {
namespace {

using namespace std::chrono_literals;
using testing::At;
using testing::Hm;
using testing::Row;

TEST(ClockEntry, FromPollRow) {
  ClockEntry entry = ClockEntry::FromPollRow(
      Row(7, "Dock", Hm(6, 45), false, "555-0199"),
      ClockLine{comm::ConnectionType::kModem, terminal::TerminalType::kZonTranz, 3});
  EXPECT_EQ(entry.Address(), "555-0199");
  EXPECT_EQ(entry.GroupKey(), "555-0199");
  EXPECT_EQ(entry.CallTime().GetTime(), Hm(6, 45));
  EXPECT_FALSE(entry.Active());
  EXPECT_EQ(entry.ComPort(), 3);
  EXPECT_NE(entry.UniqueID(), ClockEntry::FromPollRow(Row(7, "Dock", Hm(6, 45))).UniqueID());
}

TEST(ClockEntryComparer, CallTimeThenLineThenPollListOrder) {
  auto make = [](int64_t id, core::DateTime call, std::string group) {
    ClockEntry e;
    e.SetLocationId(id);
    e.SetCallTime(call);
    e.SetGroupKey(std::move(group));
    return e;
  };
  const auto nine = At(2009, 10, 20, 9, 0);
  struct Case {
    ClockEntry a, b;
    int expected;
    const char* legend;
  } cases[] = {
      {make(1, nine, "x"), make(2, nine.AddMinutes(1), "a"), -1, "earlier call time first"},
      {make(1, nine.AddDays(1), "a"), make(2, nine, "a"), 1, "tomorrow after today"},
      {make(9, nine, "line1"), make(2, nine, "line2"), -1, "same time: by line"},
      {make(3, nine, "line1"), make(2, nine, "line1"), 1, "same line: by LocationId"},
      {make(3, nine, "line1"), make(3, nine, "line1"), 0, "same in every key"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ClockEntryComparer::Compare(c.a, c.b), c.expected) << c.legend;
    EXPECT_EQ(ClockEntryComparer::Compare(c.b, c.a), -c.expected) << c.legend;
  }
}

// Records TimeHit calls with the clock's time, and lets the test wait for the timer's ticks.
class ClockEntryTimer : public ::testing::Test {
 protected:
  void StartAt(core::DateTime start, std::vector<PollRow> rows) {
    clock_.Set(start);
    list_ = std::make_unique<testing::MemoryPollList>(std::move(rows));
    collection_.Load(*list_);
    collection_.SetTimeHit([this](const ClockEntry& e) {
      std::lock_guard lock(mutex_);
      hits_.push_back(e.Name() + "@" + clock_.Now().Format("mm-dd HH:nn:ss"));
    });
    collection_.SetEnabled(true);
    ASSERT_TRUE(collection_.WaitForTicks(1, 5s));
  }
  // Sets the clock and waits until the timer has handled the tick it causes.
  void TickAt(core::DateTime t) {
    const uint64_t before = collection_.TickCount();
    clock_.Set(t);
    ASSERT_TRUE(collection_.WaitForTicks(before + 1, 5s)) << "no tick at " << t.ToString();
  }
  // The handler below uses this fixture's members: stop the timer before they go.
  void TearDown() override { collection_.SetEnabled(false); }
  std::vector<std::string> Hits() {
    std::lock_guard lock(mutex_);
    return hits_;
  }

  core::ManualClock clock_;
  ClockEntryCollection collection_{clock_};
  std::unique_ptr<testing::MemoryPollList> list_;
  std::mutex mutex_;
  std::vector<std::string> hits_;
};

TEST_F(ClockEntryTimer, FiresEachActiveEntryOnceAtItsMinuteAcrossMidnightAndTheSkippedHour) {
  StartAt(
      At(2024, 3, 9, 8, 0, 30),
      {Row(1, "Eight", Hm(8, 0)), Row(2, "EightOhTwo", Hm(8, 2, 45)),
       Row(3, "Off", Hm(8, 1), false), Row(4, "None", std::nullopt), Row(5, "Midnight", Hm(23, 59)),
       Row(6, "PastMidnight", Hm(0, 1)), Row(7, "Skipped", Hm(2, 30))});
  EXPECT_EQ(Hits(), (std::vector<std::string>{"Eight@03-09 08:00:30"}));
  TickAt(At(2024, 3, 9, 8, 1));
  TickAt(At(2024, 3, 9, 8, 2));
  TickAt(At(2024, 3, 9, 23, 59));
  TickAt(At(2024, 3, 10, 0, 1));
  TickAt(At(2024, 3, 10, 1, 59, 59));
  TickAt(At(2024, 3, 10, 3, 0));  // spring forward: 02:00 becomes 03:00
  TickAt(At(2024, 3, 10, 8, 0));
  EXPECT_EQ(Hits(),
            (std::vector<std::string>{"Eight@03-09 08:00:30", "EightOhTwo@03-09 08:02:00",
                                      "Midnight@03-09 23:59:00", "PastMidnight@03-10 00:01:00",
                                      "Skipped@03-10 03:00:00", "Eight@03-10 08:00:00"}));
  collection_.SetEnabled(false);
  EXPECT_FALSE(collection_.Enabled());
}

TEST_F(ClockEntryTimer, TheRepeatedHourFiresNothingTwice) {
  StartAt(At(2024, 11, 3, 1, 0, 30), {Row(1, "Quarter", Hm(1, 15)),
                                      Row(2, "ThreeQuarter", Hm(1, 45)), Row(3, "Two", Hm(2, 0))});
  TickAt(At(2024, 11, 3, 1, 15));
  TickAt(At(2024, 11, 3, 1, 45));
  TickAt(At(2024, 11, 3, 1, 59, 59));
  clock_.Set(At(2024, 11, 3, 1, 0));  // fall back: 02:00 becomes 01:00 again
  clock_.Set(At(2024, 11, 3, 1, 15));
  clock_.Set(At(2024, 11, 3, 1, 45));
  TickAt(At(2024, 11, 3, 2, 0));
  EXPECT_EQ(Hits(),
            (std::vector<std::string>{"Quarter@11-03 01:15:00", "ThreeQuarter@11-03 01:45:00",
                                      "Two@11-03 02:00:00"}));
  EXPECT_EQ(collection_.TickCount(), 5u);
}

}  // namespace
}  // namespace clockcomm::shell
