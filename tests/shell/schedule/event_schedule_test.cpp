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

// Looking entries up is the host poll schedule's business, and its tests'.
TEST(EventSchedule, AddIncrementAndFirstElapsed) {
  EventSchedule schedule;
  const auto now = At(2009, 10, 20, 10, 0);
  schedule.Add(ScheduledEvent("a", Hm(17, 0)), now);
  schedule.Add(ScheduledEvent("b", Hm(9, 0)), now);
  EXPECT_EQ(schedule.Item(std::string_view("b")).NextEvent(), At(2009, 10, 21, 9, 0));
  EXPECT_THROW(schedule.Add(ScheduledEvent("b", Hm(1, 0)), now), core::ArgumentException);
  // Not yet due: incrementing moves today's 17:00 to tomorrow's.
  schedule.IncrementEvent("a", now);
  EXPECT_EQ(schedule.Item(std::string_view("a")).NextEvent(), At(2009, 10, 21, 17, 0));
  // Overdue by two days: the next time is the first one after now, not the day after the old.
  schedule.IncrementEvent("b", At(2009, 10, 23, 8, 0));
  EXPECT_EQ(schedule.Item(std::string_view("b")).NextEvent(), At(2009, 10, 23, 9, 0));
  EXPECT_EQ(schedule.FirstElapsed(At(2009, 10, 21, 16, 0)), nullptr);
  EXPECT_EQ(schedule.FirstElapsed(At(2009, 10, 21, 17, 0))->Key(), "a");
  EXPECT_THROW(schedule.IncrementEvent("c", now), core::ItemNotFoundException);
}

}  // namespace
}  // namespace clockcomm::shell
