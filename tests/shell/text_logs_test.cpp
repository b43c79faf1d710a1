// The logs outside the database: the daily text logs and the journal.
#include "shell/text_logs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "core/durable_file.h"
#include "shell/console_screen.h"
#include "shell/journal_log.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {
namespace fs = std::filesystem;

core::DateTime At(int y, int m, int d, int hh = 0, int nn = 0, int ss = 0) {
  return *core::DateTime::FromParts(y, m, d, hh, nn, ss);
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
