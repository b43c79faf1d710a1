#include "shell/event_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "core/durable_file.h"
#include "db/open.h"
#include "shell/event_log_report.h"
#include "shell/logs.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

core::DateTime At(int y, int m, int d, int hh = 0, int nn = 0, int ss = 0) {
  return *core::DateTime::FromParts(y, m, d, hh, nn, ss);
}
core::Date Day(int y, int m, int d) { return *core::Date::FromYmd(y, m, d); }

TEST(EventLogTest, TextsAreCutTo255CharactersAndAPeriodRunsFromFirstToLastDayInclusive) {
  test::TempDir dir;
  auto log = EventLog::Open(dir.path() / "TCLOG.db");
  const std::string nasty = "it's #2009/10/20#'); DROP TABLE LogTable; --";
  log->Write(At(2009, 10, 24), "Dock", 3, std::string(300, 'x'), std::string(300, 'y'));
  log->Write(At(2009, 10, 24), "Dock", 3, "Tick", nasty);
  const core::DateTime times[] = {
      At(2009, 10, 19, 23, 59, 59),                                // before
      At(2009, 10, 20, 0, 0, 0),                                   // first second of the period
      At(2009, 10, 21, 12, 0, 0),   At(2009, 10, 22, 23, 59, 59),  // last second of the period
      At(2009, 10, 23, 0, 0, 0),                                   // after
  };
  for (const auto& t : times) log->Write(t, "", 0, "Tick", t.ToString());
  auto rows = log->Entries(Day(2009, 10, 20), Day(2009, 10, 22));
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows.front().date_time, times[1]);
  EXPECT_EQ(rows.back().date_time, times[3]);

  EXPECT_EQ(log->Purge(Day(2009, 10, 20), Day(2009, 10, 22)), 3);
  rows = log->Entries(Day(2009, 1, 1), Day(2009, 12, 31));
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ(rows[0].event_type, std::string(255, 'x'));
  EXPECT_EQ(rows[0].description, std::string(255, 'y'));
  EXPECT_EQ(rows[1].description, nasty);
  EXPECT_EQ(rows[2].date_time, times[0]);
  EXPECT_EQ(rows[3].date_time, times[4]);
}

// A program folder with its data folder, and a manual clock at 08:00.
struct LogsRig {
  LogsRig() { fs::create_directories(paths.DataDirectory()); }
  test::TempDir dir;
  const MyPaths paths{dir.path(), dir.path() / "data"};
  core::ManualClock clock{At(2009, 10, 20, 8)};
  std::string DebugLog(const std::string& name = "Debug Log") {
    return core::ReadWholeFile(paths.DebugLogDirectory() / (name + " - 2009-10-20.log"));
  }
};

// Keeps what it hears as "clock number description".
struct HeardEvents : EventListener {
  void OnEvent(std::string_view, std::string_view description, std::string_view clock_name,
               int clock_number) override {
    std::lock_guard lock(mutex);
    heard.insert(std::string(clock_name) + " " + std::to_string(clock_number) + " " +
                 std::string(description));
  }
  std::mutex mutex;
  std::set<std::string> heard;
};

TEST(LogsTest, ConcurrentEventsFromSeveralLinesAreAllStoredWithTheirOwnClock) {
  LogsRig rig;
  Logs logs(rig.paths, rig.clock);
  ASSERT_NE(logs.GetEventLog(), nullptr);
  HeardEvents listener;  // the journal's place
  logs.SetEventListener(&listener);

  constexpr int kThreads = 6;
  constexpr int kEach = 40;
  std::vector<std::thread> lines;
  for (int t = 0; t < kThreads; ++t) {
    lines.emplace_back([&logs, t] {
      logs.SetCurrentClock("Clock " + std::to_string(t), t);
      for (int i = 0; i < kEach; ++i) {
        logs.Event("Tick", std::to_string(t) + "/" + std::to_string(i));
        logs.Debug("Line " + std::to_string(t), "tick");
      }
    });
  }
  for (auto& line : lines) line.join();

  const auto rows = logs.GetEventLog()->Entries(Day(2009, 10, 20), Day(2009, 10, 20));
  ASSERT_EQ(rows.size(), size_t{kThreads * kEach});
  std::set<std::string> seen;
  for (size_t i = 0; i < rows.size(); ++i) {
    const int t = std::stoi(rows[i].description);
    EXPECT_EQ(rows[i].clock_name, "Clock " + std::to_string(t));
    EXPECT_EQ(rows[i].clock_number, t);
    seen.insert(rows[i].description);
  }
  EXPECT_EQ(seen.size(), size_t{kThreads * kEach});
  EXPECT_EQ(listener.heard.size(), size_t{kThreads * kEach});
  EXPECT_EQ(listener.heard.count("Clock 5 5 5/39"), 1u);
  logs.Flush();
  EXPECT_EQ(rig.DebugLog("Line 0 Debug Log").size(),
            kEach * std::string("08:00:00 - tick\r\n").size());
}

size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// Short waits so that the tests of a failing event log take milliseconds.
const EventLogRetry kQuickRetry{.tries = 3, .busy_wait = 20ms, .backoff = 10ms};

// The lost events in the debug log are the fault call's; here the retries, stderr once per outage
// and the events written once the lock is gone.
TEST(LogsTest, ALockedEventLogNeverHoldsUpTheCallLongAndTakesEventsOnceFree) {
  LogsRig rig;
  const MyPaths& paths = rig.paths;
  Logs logs(paths, rig.clock, nullptr, kQuickRetry);
  ASSERT_NE(logs.GetEventLog(), nullptr);
  logs.SetCurrentClock("Dock", 7);

  // Another program holds the write lock, as a stuck viewer or a copy tool would.
  auto other = db::Open(paths.EventLogDatabase());
  other->Execute("BEGIN EXCLUSIVE");
  testing::internal::CaptureStderr();
  const auto start = std::chrono::steady_clock::now();
  logs.Event("Start of call", "Terminal Upload Type = C");
  const auto took = std::chrono::steady_clock::now() - start;
  logs.Event("End of call", "");  // the same outage: one try, and stderr has it already
  std::string err = testing::internal::GetCapturedStderr();

  // Three tries of 20 ms, 10 ms and 20 ms apart: retried, and well within the budget.
  EXPECT_GE(took, 3 * 20ms + 10ms + 20ms);
  EXPECT_LT(took, 2s);
  const std::string report = "Event log unavailable: " + paths.EventLogDatabase().string() + ": ";
  EXPECT_EQ(Count(err, report), 1u) << err;
  EXPECT_THAT(err, AllOf(HasSubstr("database is locked"), HasSubstr("(clock Dock 7)")));

  other->Execute("ROLLBACK");
  testing::internal::CaptureStderr();
  logs.Event("Open Comm", "Port = 1");
  err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "Event log available again: " + paths.EventLogDatabase().string() + "\n");
  const auto rows = logs.GetEventLog()->Entries(Day(2009, 10, 20), Day(2009, 10, 20));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].clock_name, "Dock");
}

// A folder in its place, and the lost events, are the fault call's; here a file that is no
// database, reported once, and opened again once mended and the reopen interval has passed.
TEST(LogsTest, AnEventLogThatCannotBeOpenedIsReportedAndOpenedLaterWhenMended) {
  LogsRig rig;
  const fs::path file = rig.paths.EventLogDatabase();
  std::ofstream(file) << "this is not a database, it is a text file";
  testing::internal::CaptureStderr();
  Logs logs(rig.paths, rig.clock, nullptr, kQuickRetry);
  logs.Event("Open Comm", "Port = 1");  // reported once at the start; the event goes on below
  EXPECT_EQ(testing::internal::GetCapturedStderr(), " Could Not Access TCLOG.MDB Log File.\n");
  logs.Flush();
  EXPECT_EQ(rig.DebugLog("Screen Log"), "08:00:00 -  Could Not Access TCLOG.MDB Log File.\r\n");

  fs::remove_all(file);
  rig.clock.Advance(59s);
  logs.Event("Too soon", "");
  EXPECT_EQ(logs.GetEventLog(), nullptr);
  rig.clock.Advance(1s);
  testing::internal::CaptureStderr();
  logs.Event("Close Comm", "Port = 1");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Event log available again: " + file.string() + "\n");
  ASSERT_NE(logs.GetEventLog(), nullptr);
  EXPECT_EQ(logs.GetEventLog()->Entries(Day(2009, 10, 20), Day(2009, 10, 20)).size(), 1u);
}

TEST(LogsTest, ATextLogThatCannotBeWrittenIsReportedOncePerLogAndKindAndNothingThrows) {
  LogsRig rig;
  const fs::path folder = rig.paths.DebugLogDirectory();
  std::ofstream(folder) << "a file where the folder should be";
  testing::internal::CaptureStderr();
  Logs logs(rig.paths, rig.clock);
  for (int i = 0; i < 3; ++i) {
    logs.Debug("", "general");
    logs.Debug("Dock", "named");
    logs.Screen("screen");
  }
  std::string err = testing::internal::GetCapturedStderr();
  // One report for each of the three logs, naming the folder and the error.
  EXPECT_EQ(Count(err, "Text log unavailable: System error "), 3u) << err;
  EXPECT_EQ(Count(err, folder.string()), 3u) << err;

  fs::remove(folder);
  testing::internal::CaptureStderr();
  logs.Debug("", "back");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  logs.Flush();
  EXPECT_EQ(rig.DebugLog(), "08:00:00 - back\r\n");

  // Failing again is news for the general debug log, which worked meanwhile, and not for the
  // screen log, which never did. The open file's failure shows when its lines are written out.
  fs::remove_all(folder);
  std::ofstream(folder) << "in the way again";
  testing::internal::CaptureStderr();
  logs.Debug("", "lost");
  logs.Flush();
  logs.Debug("", "lost");
  logs.Screen("lost");
  err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(Count(err, "Text log unavailable: "), 1u) << err;
}

// The heading of the first page and a short event are the log print command's.
TEST(EventLogReportTest, PagesCarryTheHeadingAndNeverSplitAnEvent) {
  std::vector<EventLogEntry> entries;
  for (int i = 0; i < 30; ++i) {
    const std::string description = i == 0 ? std::string(100, 'd') : "Terminal Upload Type = 1";
    entries.push_back({i + 1, At(2009, 10, 20, 8, i), "Dock", 12, "Start of call", description});
  }
  const std::string report = FormatEventLogReport(entries, Day(2009, 10, 1), Day(2009, 10, 20), 20);
  std::vector<std::string> pages;
  std::stringstream ss(report);
  for (std::string page; std::getline(ss, page, '\f');) pages.push_back(page);
  // 6 heading lines leave 14 per page: entry 1 takes 3 lines, the others 2.
  // Page 1: 3 + 5*2 = 13 lines (6 events); pages 2.. hold 7 events each: 6 + 7 + 7 + 7 + 3.
  ASSERT_EQ(pages.size(), 5u);
  for (size_t p = 0; p < pages.size(); ++p) {
    EXPECT_THAT(pages[p],
                StartsWith("For Period 2009/10/01 to 2009/10/20\nPage " + std::to_string(p + 1) +
                           "\n\nDate & Time          Clock Name  CLK#  Event Type\n"
                           " Description\n\n"));
    EXPECT_LE(std::count(pages[p].begin(), pages[p].end(), '\n'), 20);
  }
  EXPECT_THAT(pages[0], HasSubstr("2009/10/20 08:00:00  Dock        12    Start of call\n " +
                                  std::string(78, 'd') + "\n " + std::string(22, 'd') + "\n"));
}

}  // namespace
}  // namespace clockcomm::shell
