#include "shell/journal_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "shell/console_screen.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {

TEST(JournalLogTest, PriorityFollowsTheEventType) {
  const std::pair<const char*, int> cases[] = {
      {"System error", LOG_ERR},
      {"Poll Failed, No Response to ENQ", LOG_ERR},
      {"Couldn't open ", LOG_ERR},
      {"Configuration warning", LOG_WARNING},
      {"T4 Clock Offline", LOG_WARNING},
      {"2009-10-20 08:00:00 Time out waiting for packet", LOG_WARNING},
      {"Punches waiting", LOG_WARNING},
      {"Start of call", LOG_NOTICE},
      {"T4 Clock Online", LOG_NOTICE},
      {"Duplicate Punch", LOG_NOTICE},
      {"Data transferred to the archive file.", LOG_INFO},
  };
  for (const auto& [type, priority] : cases) {
    EXPECT_EQ(JournalPriority(type), priority) << type;
  }
}

TEST(JournalLogTest, FieldsNameTheClockAndCarryTheTextAsUtf8) {
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
  const std::string named = std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
  const int saved = dup(2);
  dup2(file, 2);
  bool results[4];
  unsetenv("JOURNAL_STREAM");
  results[0] = OutputGoesToJournal();
  setenv("JOURNAL_STREAM", named.c_str(), 1);
  results[1] = OutputGoesToJournal();
  setenv("JOURNAL_STREAM", (std::to_string(st.st_dev) + ":1").c_str(), 1);
  results[2] = OutputGoesToJournal();
  setenv("JOURNAL_STREAM", "garbage", 1);
  results[3] = OutputGoesToJournal();
  unsetenv("JOURNAL_STREAM");
  dup2(saved, 2);
  close(saved);
  close(file);
  EXPECT_FALSE(results[0]) << "no JOURNAL_STREAM";
  EXPECT_TRUE(results[1]) << "stderr is the stream";
  EXPECT_FALSE(results[2]) << "another inode";
  EXPECT_FALSE(results[3]) << "unreadable";
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
