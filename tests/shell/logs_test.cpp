// The logs: the event log in its database, the daily text logs, and the journal.
#include "shell/logs.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "core/durable_file.h"
#include "db/open.h"
#include "shell/console_screen.h"
#include "shell/event_log.h"
#include "shell/event_log_report.h"
#include "shell/journal_log.h"
#include "shell/text_logs.h"
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

void Touch(const fs::path& file) { std::ofstream(file) << "old\r\n"; }

TEST(TextLogsTest, SafeNameReplacesEveryReservedCharacter) {
  EXPECT_EQ(SafeLogName(R"(a\b/c:d*e?f"g<h>i|j)"), "a_b_c_d_e_f_g_h_i_j");
  EXPECT_EQ(SafeLogName("Plant #2 - Dock (east)"), "Plant #2 - Dock (east)");
  EXPECT_EQ(SafeLogName(std::string("Dock\r\n\0\x7f", 8)), "Dock____");
  EXPECT_EQ(TextLogs::NamedDebugLogName("COM1/Dock:East", *core::Date::FromYmd(2009, 10, 20)),
            "COM1_Dock_East Debug Log - 2009-10-20.log");
}

TEST(TextLogsTest, ANewDaysFilePurgesOnlyThatLogsFilesOlderThanSixtyDays) {
  test::TempDir dir;
  const fs::path folder = dir.path();
  // Today is 2010-01-10: 60 days before is 2009-11-11, which is kept. Each file, and whether the
  // general debug log's purge keeps it.
  const std::pair<const char*, bool> files[] = {
      {"Debug Log - 2009-11-10.log", false},         // 61 days
      {"Debug Log - 2009-11-11.log", true},          // 60 days
      {"Debug Log - 2008-12-31.log", false},         // a year back
      {"Screen Log - 2009-01-01.log", true},         // another log: left for its own purge
      {"Clock 7 Debug Log - 2009-01-01.log", true},  // likewise
      {"Debug Log - notes.log", true},               // no date after the prefix: not ours
  };
  for (const auto& [name, kept] : files) Touch(folder / name);
  core::ManualClock clock(At(2010, 1, 10, 23, 59, 59));
  TextLogs logs(folder, clock);
  logs.WriteDebug({"x"});
  for (const auto& [name, kept] : files) EXPECT_EQ(fs::exists(folder / name), kept) << name;

  // The per-name log purges its own files when its day's file is created.
  logs.WriteNamedDebug("Clock 7", {"y"});
  EXPECT_FALSE(fs::exists(folder / "Clock 7 Debug Log - 2009-01-01.log"));
  EXPECT_TRUE(fs::exists(folder / "Screen Log - 2009-01-01.log"));

  // Appending to the day's file purges nothing; the next day's first write does.
  Touch(folder / "Debug Log - 2009-01-01.log");
  logs.WriteDebug({"appends"});
  EXPECT_TRUE(fs::exists(folder / "Debug Log - 2009-01-01.log"));
  clock.Advance(std::chrono::seconds(1));
  logs.WriteDebug({"new day", "second part"});  // an entry of several parts: a line each
  EXPECT_FALSE(fs::exists(folder / "Debug Log - 2009-01-01.log"));
  logs.Flush();
  EXPECT_EQ(core::ReadWholeFile(folder / "Debug Log - 2010-01-11.log"),
            "00:00:00 - new day\r\nsecond part\r\n");
  EXPECT_EQ(core::ReadWholeFile(folder / "Debug Log - 2010-01-10.log"),
            "23:59:59 - x\r\n23:59:59 - appends\r\n")
      << "the old day's lines stay in the old day's file";
}

// Blocks until the file is written to or the deadline passes; true when it was.
bool WaitForWrite(const fs::path& file, std::chrono::milliseconds deadline) {
  const int fd = inotify_init1(IN_CLOEXEC);
  const int watch = inotify_add_watch(fd, file.c_str(), IN_MODIFY);
  pollfd p{fd, POLLIN, 0};
  const bool written = watch >= 0 && poll(&p, 1, static_cast<int>(deadline.count())) == 1;
  close(fd);
  return written;
}

// Lines wait in the buffer until the end of a call (Flush), the flush timer or the close; a file
// deleted or renamed (rotated) meanwhile is made again and the moved file gets no more lines.
TEST(TextLogsTest, BufferedLinesReachTheFileOnFlushTimerAndCloseAndADeletedFileIsRemade) {
  test::TempDir dir;
  const fs::path folder = dir.path() / "Debug Logs";
  const fs::path file = folder / "Screen Log - 2010-01-10.log";
  core::ManualClock clock(At(2010, 1, 10, 8));
  {
    TextLogs logs(folder, clock);
    logs.WriteScreen({"one"});
    EXPECT_EQ(core::ReadWholeFile(file), "") << "the folder and file are made at the first line";
    logs.Flush();
    EXPECT_EQ(core::ReadWholeFile(file), "08:00:00 - one\r\n");

    logs.WriteScreen({"two"});
    ASSERT_TRUE(WaitForWrite(file, 5 * TextLogs::kFlushDelay)) << "the timer flushes";
    EXPECT_EQ(core::ReadWholeFile(file), "08:00:00 - one\r\n08:00:00 - two\r\n");

    const fs::path rotated = folder / "rotated.log";
    fs::rename(file, rotated);
    logs.WriteScreen({"three"});
    logs.Flush();
    EXPECT_EQ(core::ReadWholeFile(file), "08:00:00 - three\r\n");
    EXPECT_EQ(core::ReadWholeFile(rotated), "08:00:00 - one\r\n08:00:00 - two\r\n");

    fs::remove(file);
    logs.WriteScreen({"four"});
    logs.Flush();
    EXPECT_EQ(core::ReadWholeFile(file), "08:00:00 - four\r\n");
    logs.WriteScreen({"five"});
  }
  EXPECT_EQ(core::ReadWholeFile(file), "08:00:00 - four\r\n08:00:00 - five\r\n");
}

// The priority by the first rule whose word the type holds; the fields with the text as UTF-8.
TEST(JournalLogTest, PriorityFollowsTheEventTypeAndTheFieldsNameTheClock) {
  const std::pair<const char*, int> cases[] = {
      {"System error", LOG_ERR},
      {"Poll Failed, No Response to ENQ", LOG_ERR},
      {"Couldn't open ", LOG_ERR},
      {"Configuration warning", LOG_WARNING},
      {"T4 Clock Offline", LOG_WARNING},
      {"2009-10-20 08:00:00 Time out waiting for packet", LOG_WARNING},
      {"Punches waiting", LOG_WARNING},
      {"T4 Clock Online", LOG_NOTICE},
      {"Duplicate Punch", LOG_NOTICE},
  };
  for (const auto& [type, priority] : cases) {
    EXPECT_EQ(JournalPriority(type), priority) << type;
  }
  EXPECT_EQ(
      JournalFields("Start of call", "Upload type \x80 5\xe9\x81", "Dock", 3),
      (std::vector<std::string>{"MESSAGE=Dock (3): Start of call: Upload type \u20ac 5\u00e9\ufffd",
                                "PRIORITY=5", "SYSLOG_IDENTIFIER=clockcomm",
                                "EVENT_TYPE=Start of call", "CLOCK_NAME=Dock", "CLOCK_NUMBER=3"}));
  // No clock: no clock fields.
  EXPECT_EQ(JournalFields("Open Comm", "", "", 0),
            (std::vector<std::string>{"MESSAGE=Open Comm", "PRIORITY=6",
                                      "SYSLOG_IDENTIFIER=clockcomm", "EVENT_TYPE=Open Comm"}));
}

// JOURNAL_STREAM names the device and inode of the stream the journal gave the service.
TEST(JournalLogTest, OutputGoesToJournalOnlyWhenStderrIsTheNamedStream) {
  test::TempDir dir;
  const int file = open((dir.path() / "stream").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  ASSERT_GE(file, 0);
  struct stat st {};
  ASSERT_EQ(fstat(file, &st), 0);
  const std::string device = std::to_string(st.st_dev);
  const std::pair<std::string, std::string> cases[] = {
      {"unset", ""},
      {"stderr", device + ":" + std::to_string(st.st_ino)},
      {"another inode", device + ":1"},
      {"unreadable", "garbage"}};
  const int saved = dup(2);
  dup2(file, 2);
  std::string heard;  // told while stderr is the file, checked once it is back
  for (const auto& [name, value] : cases) {
    value.empty() ? unsetenv("JOURNAL_STREAM") : setenv("JOURNAL_STREAM", value.c_str(), 1);
    heard += name + (OutputGoesToJournal() ? ": journal; " : ": not; ");
  }
  unsetenv("JOURNAL_STREAM");
  dup2(saved, 2);
  close(saved);
  close(file);
  EXPECT_EQ(heard, "unset: not; stderr: journal; another inode: not; unreadable: not; ");
}

TEST(JournalLogTest, ScreenLinesLoseTheirTimeWhereTheJournalStampsThem) {
  std::ostringstream out;
  ConsoleScreen screen(out);
  screen.SetLinesWithoutTime(true);
  screen.Line("2009-10-20 08:00:00 Opening Com Port");
  screen.Line("2009-10-20 08:00 not a stamp");
  screen.Line("Ready");
  EXPECT_EQ(out.str(), "Opening Com Port\n2009-10-20 08:00 not a stamp\nReady\n");
}

}  // namespace
}  // namespace clockcomm::shell
