// When lines run: the poll list, auto-start and auto-end, the host's poll schedule, timed polling.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <thread>

#include "db/open.h"
#include "db/schema.h"
#include "schedule_test_support.h"
#include "shell/schedule/auto_end_watcher.h"
#include "shell/schedule/auto_start.h"
#include "shell/schedule/host_poll_schedule.h"
#include "shell/schedule/poll_list.h"
#include "shell/schedule/timed_polling.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {

using namespace std::chrono_literals;
using testing::At;
using testing::Hm;
using testing::Row;

TEST(AutoStartWindow, StartMomentAndEndDeadline) {
  core::ManualClock clock;
  core::StopSignal stop;
  core::NullLogSink log;
  const core::Date day = *core::Date::FromYmd(2009, 10, 20);
  auto at = [&](int h, int m, int add_days = 0) {
    return core::DateTime(day.AddDays(add_days), Hm(h, m));
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

// A cancelled auto-end watcher leaves the stop signal alone; auto-start runs its mode at once or
// at the begin time, and not at all without a mode or after a stop.
TEST(AutoStartRunning, RunsTheModeAtOnceOrAtTheBeginTimeAndNotAtAllWithoutModeOrAfterAStop) {
  core::ManualClock clock(At(2009, 10, 20, 6, 30));
  core::StopSignal stop;
  {
    core::NullLogSink quiet;
    AutoEndWatcher watcher(clock, At(2009, 10, 20, 7, 0), stop, quiet);
    ASSERT_TRUE(clock.WaitForWaiters(1, 5s));
    clock.Set(At(2009, 10, 20, 6, 59, 59));
    EXPECT_FALSE(watcher.Fired());
  }
  clock.Set(At(2009, 10, 20, 7, 0));
  EXPECT_FALSE(stop.Requested());

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

// A call time at the base minute is this pass's, an earlier one tomorrow's; at one call time the
// entries of one line come together, then the poll list's order decides.
TEST(TimedPollingCallList, SortedByCallTimeThenLineThenLocationId) {
  const auto entries = TimedPolling::CallList(
      {Row(4, "D", Hm(9, 0), true, "line2"), Row(3, "C", Hm(9, 0), true, "line1"),
       Row(2, "B", Hm(9, 0), true, "line2"), Row(1, "A", Hm(9, 1), true, "line1"),
       Row(5, "E", Hm(8, 29), true, "line3"), Row(6, "F", Hm(8, 30), true, "line3")},
      At(2009, 10, 20, 8, 30));
  std::vector<std::string> order;
  for (const ClockEntry& e : entries) order.push_back(e.Name());
  EXPECT_EQ(order, (std::vector<std::string>{"F", "C", "B", "D", "A", "E"}));
  EXPECT_EQ(entries.back().CallTime(), At(2009, 10, 21, 8, 29));
  EXPECT_EQ(entries[1].Address(), "line1");  // what a modem dials
}

// Records who was called and when, as "name yyyy-mm-dd HH:nn:ss"; throws "line is dead" for the
// entry named in throw_for.
class RecordingPoller : public OutboundPoller {
 public:
  explicit RecordingPoller(core::Clock& clock) : clock_(clock) {}
  void Poll(const ClockEntry& entry) override {
    {
      std::lock_guard lock(mutex_);
      polls_.push_back(entry.Name() + " " + clock_.Now().ToString());
    }
    cv_.notify_all();
    if (entry.Name() == throw_for) throw core::Error("line is dead");
  }
  std::vector<std::string> Polls() const {
    std::lock_guard lock(mutex_);
    return polls_;
  }
  // Blocks (in real time, bounded) until n polls have been made.
  bool WaitForPolls(size_t n) const {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, 5s, [&] { return polls_.size() >= n; });
  }
  std::string throw_for;

 private:
  core::Clock& clock_;
  mutable std::mutex mutex_;
  mutable std::condition_variable cv_;
  std::vector<std::string> polls_;
};

// Runs the cycle on its own thread against a manual clock. Each step moves the clock once the
// loop (and the auto-end watcher) wait, then waits until the expected number of polls is made.
class TimedPollingRun : public ::testing::Test {
 protected:
  void Start(core::DateTime start, std::vector<PollRow> rows,
             std::optional<core::DateTime> auto_end = std::nullopt, bool fail_first_read = false) {
    clock_.Set(start);
    for (PollRow& row : rows) list_.Add(std::move(row));
    if (fail_first_read) list_.FailNextRead();
    waiters_ = auto_end ? 2 : 1;
    thread_ = std::thread([this, auto_end] {
      result_ = TimedPolling(list_, poller_, log_, clock_, stop_, auto_end).Run();
    });
  }
  void StepTo(core::DateTime t, size_t polls_after) {
    ASSERT_TRUE(clock_.WaitForWaiters(waiters_, 5s)) << "loop not waiting before " << t.ToString();
    clock_.Set(t);
    ASSERT_TRUE(poller_.WaitForPolls(polls_after)) << "no poll by " << t.ToString();
    EXPECT_EQ(poller_.Polls().size(), polls_after) << "at " << t.ToString();
  }
  void TearDown() override {
    stop_.Request();
    if (thread_.joinable()) thread_.join();
  }

  core::ManualClock clock_;
  core::StopSignal stop_;
  testing::RecordingLog log_;
  RecordingPoller poller_{clock_};
  testing::MemoryPollList list_;
  std::thread thread_;
  int waiters_ = 1;
  TimedPollingResult result_ = TimedPollingResult::kNoEntries;
};

// Two days of calls with the rows not called; Z's call time is the starting minute: called at
// once. Each later pass starts a minute after the last call time.
TEST_F(TimedPollingRun, TwoDaysOfScheduleWithListReReadAndAutoEnd) {
  PollRow unreadable = Row(6, "F", std::nullopt);
  unreadable.dial_time_text = "25:99";
  Start(At(2009, 10, 20, 8, 0, 20),
        {Row(1, "A", Hm(17, 0)), Row(2, "B", Hm(9, 0)), Row(4, "D", std::nullopt),
         Row(5, "E", Hm(10, 0), false), unreadable, Row(9, "Z", Hm(8, 0))},
        At(2009, 10, 21, 16, 0));
  StepTo(At(2009, 10, 20, 8, 59, 59), 1);
  StepTo(At(2009, 10, 20, 9, 0), 2);
  StepTo(At(2009, 10, 20, 10, 0), 2);  // E is not selected
  // Added during the day: G after the pass's last call time is called tonight; H, before it,
  // waits for the next pass.
  list_.Add(Row(7, "G", Hm(20, 0)));
  list_.Add(Row(8, "H", Hm(15, 0)));
  StepTo(At(2009, 10, 20, 15, 0), 2);
  StepTo(At(2009, 10, 20, 17, 0), 3);
  StepTo(At(2009, 10, 20, 20, 0), 4);
  // The clock jumps over Z's call time and is set back over it again (daylight saving): Z is
  // called late, and once.
  StepTo(At(2009, 10, 21, 8, 30), 5);
  StepTo(At(2009, 10, 21, 7, 59), 5);
  StepTo(At(2009, 10, 21, 9, 0), 6);
  StepTo(At(2009, 10, 21, 15, 0), 7);
  StepTo(At(2009, 10, 21, 16, 0), 7);  // auto-end, while waiting for A at 17:00
  thread_.join();
  EXPECT_EQ(result_, TimedPollingResult::kStopped);
  EXPECT_EQ(poller_.Polls(),
            (std::vector<std::string>{"Z 2009-10-20 08:00:20", "B 2009-10-20 09:00:00",
                                      "A 2009-10-20 17:00:00", "G 2009-10-20 20:00:00",
                                      "Z 2009-10-21 08:30:00", "B 2009-10-21 09:00:00",
                                      "H 2009-10-21 15:00:00"}));
  EXPECT_FALSE(stop_.Requested()) << "EndCommLoop is cleared on leaving";
  EXPECT_TRUE(log_.Has("debug: Ignoring DialTime \"25:99\" of F: not a time of day"));
  EXPECT_EQ(log_.Lines().back(), "screen: EndCommLoop set while waiting for Call Time");
}

TEST_F(TimedPollingRun, AFailedPollOrListReadIsLoggedAndTheCycleGoesOn) {
  poller_.throw_for = "Dead";
  Start(At(2009, 10, 20, 8, 0), {Row(1, "Dead", Hm(9, 0)), Row(2, "Alive", Hm(9, 0))}, std::nullopt,
        /*fail_first_read=*/true);
  StepTo(At(2009, 10, 20, 8, 1), 0);  // the read is tried again a minute later
  StepTo(At(2009, 10, 20, 9, 0), 2);
  EXPECT_EQ(poller_.Polls(),
            (std::vector<std::string>{"Dead 2009-10-20 09:00:00", "Alive 2009-10-20 09:00:00"}));
  EXPECT_TRUE(log_.Has("event: Error / Timed poll of Dead failed: line is dead"));
  EXPECT_TRUE(
      log_.Has("event: System error / Timed Polling could not read PollT: "
               "database is locked"));
}

class PollListTest : public ::testing::Test {
 protected:
  PollListTest() : db_(db::Open(dir_.path() / db::kProductDatabaseFile, db::OpenMode::kCreate)) {
    db::CreateProductSchema(*db_);
  }

  test::TempDir dir_;
  std::unique_ptr<db::Database> db_;
  PollList list_{*db_};
};

// A location's terminal type reads back; a number no type has reads as none (the settings'
// type). The older poll list gaining the column is the schema's test.
TEST_F(PollListTest, TheTerminalTypeReadsBackAndAnUnknownNumberAsNone) {
  PollRow ats = testing::Row(0, "Gate", std::nullopt);
  ats.terminal_type = terminal::TerminalType::kAtsCyberSeries;
  list_.Add(ats);
  db_->Execute("INSERT INTO PollT (LocationID, LocationName, TerminalType) VALUES (9, 'Odd', 42)");
  const auto rows = list_.ReadPollRows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].terminal_type, terminal::TerminalType::kAtsCyberSeries);
  EXPECT_EQ(rows[1].terminal_type, std::nullopt);
}

// An hour and minute read back, removing and removing again are the poll-list command's.
TEST_F(PollListTest, AddStoresDialTimeAsTextAndRefusesABlankNameOrAnIdInUse) {
  list_.Add(testing::Row(0, "Office", Hm(6, 5, 9)));
  EXPECT_EQ(list_.Add(testing::Row(40, "Gate", std::nullopt, false)), 40);
  auto rows = list_.ReadPollRows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].dial_time_text, "06:05:09");  // as stored
  EXPECT_EQ(rows[0].dial_time, Hm(6, 5, 9));
  EXPECT_FALSE(rows[1].select_to_dial);
  EXPECT_TRUE(db_->Query("SELECT DialTime FROM PollT WHERE LocationID = 40").Field(0).IsNull());
  EXPECT_THROW(list_.Add(testing::Row(40, "Gate again", Hm(9, 0))), core::ArgumentException);
  EXPECT_THROW(list_.Add(testing::Row(0, "  ", Hm(9, 0))), core::ArgumentException);
}

TEST_F(PollListTest, DialTimesWrittenByOtherProgramsAreReadLeniently) {
  struct Case {
    db::Value stored;
    std::optional<core::TimeOfDay> time;
    bool unreadable;
  } cases[] = {
      {db::Value(), std::nullopt, false},
      {db::Value("   "), std::nullopt, false},
      {db::Value("1899-12-30 08:30:00"), Hm(8, 30), false},  // a date/time column's zero date
      {db::Value("8:30 PM"), Hm(20, 30), false},
      {db::Value("25:99"), std::nullopt, true},
      {db::Value("later"), std::nullopt, true},
  };
  int64_t id = 100;
  for (const Case& c : cases) {
    db_->Execute("INSERT INTO PollT (LocationID, LocationName, DialTime) VALUES (?, 'x', ?)",
                 {++id, c.stored});
    auto row = list_.Find(id);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->dial_time, c.time) << c.stored.AsText();
    EXPECT_EQ(row->DialTimeUnreadable(), c.unreadable) << c.stored.AsText();
  }
}

TEST_F(PollListTest, ControlCharactersInWhatIsSentOrLoggedAreRefusedNamingTheField) {
  struct Row {
    const char* legend;
    std::string PollRow::*field;
    std::string value;
    const char* message;
  };
  const Row rows[] = {
      {"CR ends the dial command", &PollRow::location_phone, "555\rATH",
       "LocationPhone cannot hold control characters (0x0D at position 4)."},
      {"DEL", &PollRow::location_phone, "555\x7f", "LocationPhone cannot hold control"},
      {"ETX ends the header", &PollRow::terminal_id, "1\x03", "TerminalID cannot hold control"},
      {"NUL", &PollRow::terminal_id, std::string("1\0", 2), "TerminalID cannot hold control"},
      {"line feed forges a log line", &PollRow::location_name, "Dock\nGate",
       "LocationName cannot hold control"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.legend);
    PollRow poll = testing::Row(0, "Dock", Hm(9, 0));
    poll.*row.field = row.value;
    EXPECT_THAT([&] { list_.Add(poll); }, ::testing::ThrowsMessage<core::ArgumentException>(
                                              ::testing::StartsWith(row.message)));
  }
  EXPECT_TRUE(list_.ReadPollRows().empty());
  // Printable text of every kind stays storable: dial modifiers, Windows-1252 letters.
  PollRow ok = testing::Row(0, "M\xFCller 2", Hm(9, 0), true, "9,,555-0199#*W");
  ok.terminal_id = "T-7 ~";
  const int64_t id = list_.Add(ok);
  EXPECT_EQ(list_.Find(id)->location_phone, "9,,555-0199#*W");
}

}  // namespace
}  // namespace clockcomm::shell
