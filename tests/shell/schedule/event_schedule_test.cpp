#include "shell/schedule/event_schedule.h"

#include <gtest/gtest.h>

#include "core/errors.h"
#include "schedule_test_support.h"

namespace clockcomm::shell {
namespace {

using testing::At;
using testing::Hm;

TEST(ScheduledEvent, SetNextAfter) {
  struct Case {
    core::DateTime after;
    core::DateTime expected;
    const char* legend;
  } cases[] = {
      {At(2009, 10, 20, 8, 0), At(2009, 10, 20, 9, 30), "before the time: same day"},
      {At(2009, 10, 20, 9, 29, 59), At(2009, 10, 20, 9, 30), "a second before: same day"},
      {At(2009, 10, 20, 9, 30), At(2009, 10, 21, 9, 30), "exactly at the time: next day"},
      {At(2009, 10, 20, 9, 30, 1), At(2009, 10, 21, 9, 30), "a second after: next day"},
      {At(2009, 12, 31, 23, 0), At(2010, 1, 1, 9, 30), "after, on New Year's Eve"},
      {At(2012, 2, 28, 10, 0), At(2012, 2, 29, 9, 30), "into a leap day"},
  };
  for (const Case& c : cases) {
    ScheduledEvent event("1", Hm(9, 30));
    event.SetNextAfter(c.after);
    EXPECT_EQ(event.NextEvent(), c.expected) << c.legend;
  }
  ScheduledEvent from_date;  // only the time of a given date is kept
  from_date.SetTimeOfDay(At(2009, 10, 20, 14, 25, 36));
  from_date.SetNextAfter(At(2012, 2, 29, 0, 0));
  EXPECT_EQ(from_date.NextEvent(), At(2012, 2, 29, 14, 25, 36));
}

TEST(ScheduledEvent, ElapsedAtAndAfterNextEventOnly) {
  ScheduledEvent event("1", Hm(9, 30));
  EXPECT_THROW(event.Elapsed(At(2009, 10, 20, 9, 30)), core::InvalidOperationException);
  event.SetNextAfter(At(2009, 10, 20, 8, 0));
  EXPECT_FALSE(event.Elapsed(At(2009, 10, 20, 9, 29, 59)));
  EXPECT_TRUE(event.Elapsed(At(2009, 10, 20, 9, 30)));
  EXPECT_TRUE(event.Elapsed(At(2009, 10, 22, 0, 0)));
  EXPECT_FALSE(event.Elapsed(At(2009, 10, 19, 23, 0)));
}

TEST(EventSchedule, ItemByPositionKeyOrGridCell) {
  EventSchedule schedule;
  const auto now = At(2009, 10, 20, 10, 0);
  schedule.Add(ScheduledEvent("7", Hm(9, 0)), now);
  schedule.Add(ScheduledEvent("12", Hm(11, 0)), now);
  EXPECT_EQ(schedule.Count(), 2u);
  EXPECT_EQ(schedule.Item(1).Key(), "12");
  EXPECT_EQ(schedule.Item(std::string_view("7")).NextEvent(), At(2009, 10, 21, 9, 0));
  EXPECT_EQ(&schedule.Item(db::Value(int64_t{1})), &schedule.Item(1));
  EXPECT_EQ(&schedule.Item(db::Value("7")), &schedule.Item(0));

  EXPECT_THROW(schedule.Item(2), core::IndexOutOfRangeException);
  EXPECT_THROW(schedule.Item(db::Value(-1)), core::IndexOutOfRangeException);
  EXPECT_THROW(schedule.Item(std::string_view("8")), core::ItemNotFoundException);
  for (const db::Value& bad : {db::Value(), db::Value(1.5)}) {
    try {
      schedule.Item(bad);
      ADD_FAILURE() << "no error for an index that is neither a number nor a key";
    } catch (const core::ArgumentException& e) {
      EXPECT_STREQ(e.what(), "Unsupported index type.");
    }
  }
  EXPECT_THROW(schedule.Add(ScheduledEvent("7", Hm(1, 0)), now), core::ArgumentException);
}

TEST(EventSchedule, RemoveContainsClearAndIncrement) {
  EventSchedule schedule;
  const auto now = At(2009, 10, 20, 10, 0);
  schedule.Add(ScheduledEvent("a", Hm(17, 0)), now);
  schedule.Add(ScheduledEvent("b", Hm(9, 0)), now);
  // Not yet due: incrementing moves today's 17:00 to tomorrow's.
  schedule.IncrementEvent("a", now);
  EXPECT_EQ(schedule.Item(std::string_view("a")).NextEvent(), At(2009, 10, 21, 17, 0));
  // Overdue by two days: the next time is the first one after now, not the day after the old.
  schedule.IncrementEvent("b", At(2009, 10, 23, 8, 0));
  EXPECT_EQ(schedule.Item(std::string_view("b")).NextEvent(), At(2009, 10, 23, 9, 0));
  EXPECT_EQ(schedule.FirstElapsed(At(2009, 10, 21, 16, 0)), nullptr);
  EXPECT_EQ(schedule.FirstElapsed(At(2009, 10, 21, 17, 0))->Key(), "a");

  schedule.Remove("a");
  EXPECT_FALSE(schedule.Contains("a"));
  EXPECT_TRUE(schedule.Contains("b"));
  EXPECT_THROW(schedule.Remove("a"), core::ItemNotFoundException);
  EXPECT_THROW(schedule.IncrementEvent("a", now), core::ItemNotFoundException);
  schedule.Clear();
  EXPECT_EQ(schedule.Count(), 0u);
}

TEST(EventSchedule, LoadFromAnyGridOfRows) {
  EventSchedule schedule;
  const auto now = At(2009, 10, 20, 10, 0);
  try {
    schedule.LoadFrom(nullptr, now);
    ADD_FAILURE() << "a missing grid was accepted";
  } catch (const core::ArgumentException& e) {
    EXPECT_STREQ(e.what(), "grid cannot be Nothing.");
  }

  // A list given by the console, with its own column names and blank times.
  db::Recordset console(
      {"Key", "Time"},
      {{"north", "08:15"}, {"south", ""}, {"east", db::Value()}, {"west", "1899-12-30 18:45:00"}});
  schedule.LoadFrom(&console, now, "key", "TIME");
  ASSERT_EQ(schedule.Count(), 2u);
  EXPECT_EQ(schedule.Item(0).Key(), "north");
  EXPECT_EQ(schedule.Item(0).NextEvent(), At(2009, 10, 21, 8, 15));
  EXPECT_EQ(schedule.Item(1).TimeOfDay(), Hm(18, 45));

  // A bad time or a missing column refuses the whole grid and keeps what was loaded.
  db::Recordset bad({"LocationID", "DialTime"}, {{int64_t{1}, "09:00"}, {int64_t{2}, "9 o'clock"}});
  try {
    schedule.LoadFrom(&bad, now);
    ADD_FAILURE() << "an unreadable time was accepted";
  } catch (const core::FormatException& e) {
    EXPECT_NE(std::string(e.what()).find("Row 2"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("9 o'clock"), std::string::npos) << e.what();
  }
  EXPECT_THROW(schedule.LoadFrom(&console, now), core::ItemNotFoundException);
  EXPECT_EQ(schedule.Count(), 2u);
  EXPECT_TRUE(schedule.Contains("north"));
}

}  // namespace
}  // namespace clockcomm::shell
