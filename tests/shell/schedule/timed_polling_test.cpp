#include "shell/schedule/timed_polling.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "schedule_test_support.h"

namespace clockcomm::shell {
namespace {

using namespace std::chrono_literals;
using testing::At;
using testing::Hm;
using testing::PollRecord;
using testing::Row;

TEST(TimedPollingCallList, CallTimeIsBaseDatePlusDialTimeOrNextDayWhenEarlier) {
  const core::DateTime base = At(2009, 10, 20, 8, 30);
  struct Case {
    core::TimeOfDay dial;
    core::DateTime expected;
    const char* legend;
  } cases[] = {
      {Hm(8, 30), At(2009, 10, 20, 8, 30), "equal to the base: this pass, at once"},
      {Hm(8, 29, 59), At(2009, 10, 21, 8, 29, 59), "a second before the base: tomorrow"},
      {Hm(23, 59), At(2009, 10, 20, 23, 59), "later today"},
      {Hm(0, 0), At(2009, 10, 21, 0, 0), "midnight: across the date line"},
  };
  for (const Case& c : cases) {
    auto entries = TimedPolling::CallList({Row(1, "X", c.dial)}, base);
    ASSERT_EQ(entries.size(), 1u) << c.legend;
    EXPECT_EQ(entries[0].CallTime(), c.expected) << c.legend;
  }
}

// Runs the cycle on its own thread against a manual clock. Each step moves the clock once the
// loop (and the auto-end watcher) wait, then waits until the expected number of polls is made.
class TimedPollingRun : public ::testing::Test {
 protected:
  void Start(core::DateTime start, std::vector<PollRow> rows,
             std::optional<core::DateTime> auto_end = std::nullopt, bool fail_first_read = false) {
    clock_.Set(start);
    list_ = std::make_unique<testing::MemoryPollList>(std::move(rows));
    if (fail_first_read) list_->FailNextRead();
    polling_ = std::make_unique<TimedPolling>(*list_, poller_, log_, clock_, stop_, auto_end);
    waiters_ = auto_end ? 2 : 1;
    thread_ = std::thread([this] { result_ = polling_->Run(); });
  }
  void StepTo(core::DateTime t, size_t polls_after) {
    ASSERT_TRUE(clock_.WaitForWaiters(waiters_, 5s)) << "loop not waiting before " << t.ToString();
    clock_.Set(t);
    ASSERT_TRUE(poller_.WaitForPolls(polls_after)) << "no poll by " << t.ToString();
    EXPECT_EQ(poller_.Polls().size(), polls_after) << "at " << t.ToString();
  }
  TimedPollingResult Finish() {
    thread_.join();
    return result_;
  }
  void TearDown() override {
    if (thread_.joinable()) {
      stop_.Request();
      thread_.join();
    }
  }

  core::ManualClock clock_;
  core::StopSignal stop_;
  testing::RecordingLog log_;
  testing::RecordingPoller poller_{clock_};
  std::unique_ptr<testing::MemoryPollList> list_;
  std::unique_ptr<TimedPolling> polling_;
  std::thread thread_;
  int waiters_ = 1;
  TimedPollingResult result_ = TimedPollingResult::kNoEntries;
};

// Calls in call-time order, a row added during the day and the auto-end are the timed polling
// call's too; here over two days, with the rows that are not called.
TEST_F(TimedPollingRun, TwoDaysOfScheduleWithListReReadAndAutoEnd) {
  PollRow unreadable = Row(6, "F", std::nullopt);
  unreadable.dial_time_text = "25:99";
  Start(At(2009, 10, 20, 8, 0, 20),
        {Row(1, "A", Hm(17, 0)), Row(2, "B", Hm(9, 0)), Row(3, "C", Hm(12, 0)),
         Row(4, "D", std::nullopt), Row(5, "E", Hm(10, 0), false), unreadable},
        At(2009, 10, 21, 18, 0));

  StepTo(At(2009, 10, 20, 8, 59, 59), 0);
  StepTo(At(2009, 10, 20, 9, 0), 1);
  StepTo(At(2009, 10, 20, 10, 0), 1);  // E is not selected
  // Added during the day: G after the pass's last call time is called tonight; H, before it,
  // waits for the next pass.
  list_->Add(Row(7, "G", Hm(20, 0)));
  list_->Add(Row(8, "H", Hm(15, 0)));
  StepTo(At(2009, 10, 20, 12, 0), 2);
  StepTo(At(2009, 10, 20, 15, 0), 2);
  StepTo(At(2009, 10, 20, 17, 0), 3);
  StepTo(At(2009, 10, 20, 20, 0), 4);
  StepTo(At(2009, 10, 21, 0, 0), 4);
  StepTo(At(2009, 10, 21, 9, 0), 5);
  StepTo(At(2009, 10, 21, 12, 0), 6);
  StepTo(At(2009, 10, 21, 15, 0), 7);
  StepTo(At(2009, 10, 21, 17, 0), 8);
  StepTo(At(2009, 10, 21, 18, 0), 8);  // auto-end, while waiting for G at 20:00
  EXPECT_EQ(Finish(), TimedPollingResult::kStopped);

  auto p = [](const char* name, core::DateTime t) { return PollRecord{name, t, t}; };
  EXPECT_EQ(
      poller_.Polls(),
      (std::vector<PollRecord>{p("B", At(2009, 10, 20, 9, 0)), p("C", At(2009, 10, 20, 12, 0)),
                               p("A", At(2009, 10, 20, 17, 0)), p("G", At(2009, 10, 20, 20, 0)),
                               p("B", At(2009, 10, 21, 9, 0)), p("C", At(2009, 10, 21, 12, 0)),
                               p("H", At(2009, 10, 21, 15, 0)), p("A", At(2009, 10, 21, 17, 0))}));
  EXPECT_FALSE(stop_.Requested()) << "EndCommLoop is cleared on leaving";
  EXPECT_EQ(list_->Reads(), 3);

  // Three passes: the first without the rows added during the day, the other two with them.
  EXPECT_EQ(log_.Matching("debug: ClockList.Count: "),
            (std::vector<std::string>{"debug: ClockList.Count: 3", "debug: ClockList.Count: 5",
                                      "debug: ClockList.Count: 5"}));
  EXPECT_TRUE(log_.Has("debug: Ignoring DialTime \"25:99\" of F: not a time of day"));
  auto waits = log_.Matching("screen: Waiting for Connect Time");
  ASSERT_EQ(waits.size(), 9u);
  EXPECT_EQ(waits.front(), "screen: Waiting for Connect Time (09:00)");
  EXPECT_EQ(waits.back(), "screen: Waiting for Connect Time (20:00)");
  EXPECT_EQ(log_.Lines().back(), "screen: EndCommLoop set while waiting for Call Time");
}

TEST_F(TimedPollingRun, CallTimesAcrossMidnightAndOneDueAtTheStartMinute) {
  Start(At(2009, 12, 31, 21, 30, 40), {Row(1, "Early", Hm(0, 15)), Row(2, "Late", Hm(23, 45)),
                                       Row(3, "Morning", Hm(6, 0)), Row(4, "Evening", Hm(21, 30))});
  ASSERT_TRUE(poller_.WaitForPolls(1));  // Evening's minute is the base minute: called at once
  StepTo(At(2009, 12, 31, 23, 45), 2);
  StepTo(At(2010, 1, 1, 0, 15), 3);
  StepTo(At(2010, 1, 1, 6, 0), 4);
  ASSERT_TRUE(clock_.WaitForWaiters(1, 5s));
  stop_.Request();
  EXPECT_EQ(Finish(), TimedPollingResult::kStopped);

  EXPECT_EQ(
      poller_.Polls(),
      (std::vector<PollRecord>{{"Evening", At(2009, 12, 31, 21, 30), At(2009, 12, 31, 21, 30, 40)},
                               {"Late", At(2009, 12, 31, 23, 45), At(2009, 12, 31, 23, 45)},
                               {"Early", At(2010, 1, 1, 0, 15), At(2010, 1, 1, 0, 15)},
                               {"Morning", At(2010, 1, 1, 6, 0), At(2010, 1, 1, 6, 0)}}));
  // The next pass starts a minute after Morning: Evening is next, tonight.
  EXPECT_EQ(log_.Matching("screen: Waiting").back(), "screen: Waiting for Connect Time (21:30)");
  EXPECT_EQ(log_.Lines().back(), "screen: EndCommLoop set while waiting for Call Time");
}

TEST_F(TimedPollingRun, CallTimeInTheSkippedHourIsCalledWhenTheClockJumpsPastIt) {
  Start(At(2024, 3, 10, 1, 0), {Row(1, "Skipped", Hm(2, 30)), Row(2, "After", Hm(4, 0))});
  StepTo(At(2024, 3, 10, 1, 59, 59), 0);
  StepTo(At(2024, 3, 10, 3, 0, 0), 1);  // spring forward: 02:00 becomes 03:00
  StepTo(At(2024, 3, 10, 4, 0), 2);
  EXPECT_EQ(poller_.Polls(),
            (std::vector<PollRecord>{{"Skipped", At(2024, 3, 10, 2, 30), At(2024, 3, 10, 3, 0)},
                                     {"After", At(2024, 3, 10, 4, 0), At(2024, 3, 10, 4, 0)}}));
}

TEST_F(TimedPollingRun, CallTimeInTheRepeatedHourIsCalledOnce) {
  Start(At(2024, 11, 3, 0, 0), {Row(1, "Once", Hm(1, 30)), Row(2, "Later", Hm(5, 0))});
  StepTo(At(2024, 11, 3, 1, 30), 1);
  StepTo(At(2024, 11, 3, 1, 59, 59), 1);
  StepTo(At(2024, 11, 3, 1, 0, 0), 1);  // fall back: 02:00 becomes 01:00 again
  StepTo(At(2024, 11, 3, 1, 30), 1);
  StepTo(At(2024, 11, 3, 2, 0), 1);
  StepTo(At(2024, 11, 3, 5, 0), 2);
  StepTo(At(2024, 11, 4, 1, 30), 3);  // and again the next day
  EXPECT_EQ(poller_.Polls(),
            (std::vector<PollRecord>{{"Once", At(2024, 11, 3, 1, 30), At(2024, 11, 3, 1, 30)},
                                     {"Later", At(2024, 11, 3, 5, 0), At(2024, 11, 3, 5, 0)},
                                     {"Once", At(2024, 11, 4, 1, 30), At(2024, 11, 4, 1, 30)}}));
}

TEST_F(TimedPollingRun, AFailedPollOrListReadIsLoggedAndTheCycleGoesOn) {
  poller_.throw_for = "Dead";
  Start(At(2009, 10, 20, 8, 0), {Row(1, "Dead", Hm(9, 0)), Row(2, "Alive", Hm(9, 0))}, std::nullopt,
        /*fail_first_read=*/true);
  StepTo(At(2009, 10, 20, 8, 1), 0);  // the read is tried again a minute later
  StepTo(At(2009, 10, 20, 9, 0), 2);
  EXPECT_EQ(poller_.Polls()[0].name, "Dead");
  EXPECT_EQ(poller_.Polls()[1].name, "Alive");
  EXPECT_TRUE(log_.Has("event: Error / Timed poll of Dead failed: line is dead"));
  EXPECT_TRUE(
      log_.Has("event: System error / Timed Polling could not read PollT: "
               "database is locked"));
}

}  // namespace
}  // namespace clockcomm::shell
