#include "shell/schedule/host_poll_schedule.h"

#include <gtest/gtest.h>

#include "schedule_test_support.h"

namespace clockcomm::shell {
namespace {

using testing::At;
using testing::Hm;
using testing::Row;

TEST(HostPollSchedule, EachSelectedLocationIsDueOnceADayAndStaysDueOverAReload) {
  core::ManualClock clock(At(2009, 10, 20, 8, 0));
  testing::MemoryPollList list({Row(1, "North", Hm(9, 0)), Row(2, "South", Hm(12, 0)),
                                Row(3, "NoTime", std::nullopt), Row(4, "Off", Hm(8, 0), false)});
  HostPollSchedule schedule(list, clock);
  schedule.Load();
  EXPECT_FALSE(schedule.TakeDue());
  EXPECT_EQ(schedule.NextDue(), At(2009, 10, 20, 9, 0));

  clock.Set(At(2009, 10, 20, 9, 0));
  auto due = schedule.TakeDue();
  ASSERT_TRUE(due);
  EXPECT_EQ(due->Name(), "North");
  EXPECT_FALSE(schedule.TakeDue()) << "taken entries are not due again today";
  clock.Set(At(2009, 10, 20, 8, 30));  // set back over the call time (daylight saving)
  clock.Set(At(2009, 10, 20, 9, 0));
  EXPECT_FALSE(schedule.TakeDue()) << "nor when the clock passes their time again";
  EXPECT_EQ(schedule.NextDueOf(1), At(2009, 10, 21, 9, 0));
  EXPECT_EQ(schedule.NextDue(), At(2009, 10, 20, 12, 0));

  // South's terminal calls in after its time: its due entry is done, no poll follows.
  clock.Set(At(2009, 10, 20, 12, 30));
  EXPECT_EQ(schedule.UpdateForClock("t2"), 1);
  EXPECT_FALSE(schedule.TakeDue());
  // North calls in before tomorrow's time: tomorrow's poll stays.
  EXPECT_EQ(schedule.UpdateForClock("NORTH"), 0);
  EXPECT_EQ(schedule.NextDueOf(1), At(2009, 10, 21, 9, 0));

  // Two days later (the machine slept, or the clock jumped) the list is read again: what is due
  // stays due, one late poll, and then the first time after now; East, added after its time
  // today, waits for tomorrow.
  clock.Set(At(2009, 10, 23, 8, 0));
  list.Add(Row(5, "East", Hm(7, 0)));
  schedule.Load();
  due = schedule.TakeDue();
  ASSERT_TRUE(due);
  EXPECT_EQ(due->CallTime(), At(2009, 10, 21, 9, 0));
  EXPECT_EQ(schedule.NextDueOf(1), At(2009, 10, 23, 9, 0));
  EXPECT_EQ(schedule.NextDueOf(2), At(2009, 10, 21, 12, 0));
  EXPECT_EQ(schedule.NextDueOf(5), At(2009, 10, 24, 7, 0));
}

}  // namespace
}  // namespace clockcomm::shell
