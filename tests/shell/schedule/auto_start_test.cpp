#include "shell/schedule/auto_start.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "schedule_test_support.h"
#include "shell/schedule/auto_end_watcher.h"

namespace clockcomm::shell {
namespace {

using namespace std::chrono_literals;
using testing::At;

TEST(AutoStartWindow, StartMomentAndEndDeadline) {
  core::ManualClock clock;
  core::StopSignal stop;
  core::NullLogSink log;
  const core::Date day = *core::Date::FromYmd(2009, 10, 20);
  auto at = [&](int h, int m, int add_days = 0) {
    return core::DateTime(day.AddDays(add_days), testing::Hm(h, m));
  };
  struct Case {
    const char* begin;
    const char* end;
    core::DateTime now;
    core::DateTime start;
    std::optional<core::DateTime> deadline;
    const char* legend;
  } cases[] = {
      {"NONE", "NONE", at(3, 0), at(3, 0), std::nullopt, "no times: now, no end"},
      {"NONE", "17:00", at(18, 0), at(18, 0), at(17, 0, 1), "no begin: end tomorrow"},
      {"08:00", "NONE", at(7, 0), at(8, 0), std::nullopt, "begin not yet come"},
      {"08:00", "NONE", at(8, 0), at(8, 0), std::nullopt, "begin just come"},
      {"08:00", "NONE", at(20, 0), at(20, 0), std::nullopt, "begin has come"},
      {"08:00", "17:00", at(12, 0), at(12, 0), at(17, 0), "inside the window"},
      {"08:00", "17:00", at(17, 0), at(8, 0, 1), at(17, 0, 1), "window over: tomorrow"},
      {"08:00", "17:00", at(6, 0), at(8, 0), at(17, 0), "before the window"},
      {"22:00", "06:00", at(23, 0), at(23, 0), at(6, 0, 1), "night window, evening"},
      {"22:00", "06:00", at(2, 0), at(2, 0), at(6, 0), "night window, after midnight"},
      {"22:00", "06:00", at(12, 0), at(22, 0), at(6, 0, 1), "night window, daytime"},
  };
  for (const Case& c : cases) {
    AutoStart auto_start(3, c.begin, c.end, log, clock, stop);
    const core::DateTime start = auto_start.StartMoment(c.now);
    EXPECT_EQ(start, c.start) << c.legend;
    EXPECT_EQ(auto_start.EndDeadline(start), c.deadline) << c.legend;
  }
}

TEST(AutoStartRunning, RunsTheModeAtOnceOrAtTheBeginTimeAndNotAtAllWithoutModeOrAfterAStop) {
  core::ManualClock clock(At(2009, 10, 20, 6, 30));
  core::StopSignal stop;
  testing::RecordingLog log;
  int runs = 0;
  EXPECT_FALSE(AutoStart(1, "NONE", "NONE", log, clock, stop).Run([&](auto&) { ++runs; }));
  EXPECT_TRUE(AutoStart(2, "NONE", "17:00", log, clock, stop).Run([&](const AutoStartRun& run) {
    ++runs;
    EXPECT_EQ(run.prefix, "(Autostart Host) ");
    EXPECT_EQ(run.end_time, "17:00");
    EXPECT_EQ(run.end_deadline, At(2009, 10, 20, 17, 0));
  }));
  EXPECT_EQ(runs, 1);

  std::optional<core::DateTime> started_at;
  std::thread waiting([&] {
    AutoStart(3, "08:00", "NONE", log, clock, stop).Run([&](auto&) { started_at = clock.Now(); });
  });
  ASSERT_TRUE(clock.WaitForWaiters(1, 5s));
  clock.Set(At(2009, 10, 20, 8, 0));
  waiting.join();
  EXPECT_EQ(started_at, At(2009, 10, 20, 8, 0));

  bool result = true;
  std::thread stopped([&] {
    result = AutoStart(2, "09:00", "NONE", log, clock, stop).Run([&](auto&) { ++runs; });
  });
  ASSERT_TRUE(clock.WaitForWaiters(1, 5s));
  stop.Request();
  stopped.join();
  EXPECT_FALSE(result);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                             "screen: Auto-starting Host Mode.",
                             "screen: Waiting for Begin Time of 08:00 to Auto-start Poll",
                             "screen: Auto-starting Poll Mode.",
                             "screen: Waiting for Begin Time of 09:00 to Auto-start Host"}));
}

TEST(AutoEndWatcherTest, CancelledWatcherLeavesTheSignalAlone) {
  core::ManualClock clock(At(2009, 10, 20, 6, 30));
  core::StopSignal stop;
  core::NullLogSink log;
  {
    AutoEndWatcher watcher(clock, At(2009, 10, 20, 7, 0), stop, log);
    ASSERT_TRUE(clock.WaitForWaiters(1, 5s));
    clock.Set(At(2009, 10, 20, 6, 59, 59));
    EXPECT_FALSE(watcher.Fired());
  }
  clock.Set(At(2009, 10, 20, 7, 0));
  EXPECT_FALSE(stop.Requested());
}

}  // namespace
}  // namespace clockcomm::shell
