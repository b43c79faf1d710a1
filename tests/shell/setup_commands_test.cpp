// Runs the built clockcomm binary against a temporary program folder.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "core/durable_file.h"
#include "shell/event_log.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {

using Result = test::CommandResult;

Result RunClockcomm(const test::TempDir& tmp, const std::string& args,
                    const std::string& input = "") {
  return test::RunClockcomm(tmp.path() / "home", args, input);
}

TEST(SetupCommandsTest, InitThenShowThenSetWithValidation) {
  test::TempDir tmp;
  const auto home = tmp.path() / "home";
  Result r = RunClockcomm(tmp, "init");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  for (const char* file : {"registry.ini", "clockcomm.dta", "data/TCLOG.db", "data/COMPANY3.db",
                           "data/Clockwyn.db", "data/Debug Logs"}) {
    EXPECT_TRUE(std::filesystem::exists(home / file)) << file;
  }
  r = RunClockcomm(tmp, "init");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("--force"), std::string::npos) << r.err;
  EXPECT_EQ(RunClockcomm(tmp, "init --force").exit_code, 0);

  r = RunClockcomm(tmp, "settings show");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_NE(r.out.find("terminal_count=1\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("DataDir=" + home.string() + "/data/\n"), std::string::npos) << r.out;

  const std::string before = core::ReadWholeFile(home / "clockcomm.dta");
  r = RunClockcomm(tmp, "settings set comm_port=3 terminal_count=97");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_EQ(r.err, "Please enter a value between 1 and 96 for Terminal Count\n");
  EXPECT_EQ(core::ReadWholeFile(home / "clockcomm.dta"), before);

  r = RunClockcomm(tmp,
                   "settings set comm_port=3 connection_type=LAN begin_time=7:00am end_time=18:00");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out,
            "Communications set for: Comm Port 3, LAN, starting at 07:00, ending at 18:00.\n");
  r = RunClockcomm(tmp, "settings set bogus");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("bogus"), std::string::npos);
}

TEST(SetupCommandsTest, LogPurgeAsksUnlessYesAndPrintPaginates) {
  test::TempDir tmp;
  ASSERT_EQ(RunClockcomm(tmp, "init").exit_code, 0);
  {
    auto log = EventLog::Open(tmp.path() / "home/data/TCLOG.db");
    log->Write(*core::DateTime::FromParts(2009, 10, 20, 8), "Dock", 2, "Start of call", "one");
    log->Write(*core::DateTime::FromParts(2009, 10, 21, 8), "Dock", 2, "End of call", "two");
  }
  Result r = RunClockcomm(tmp, "log show --from 2009-10-20 --to 2009-10-20");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_NE(r.out.find("2009-10-20 08:00:00\tDock\t2\tStart of call\tone"), std::string::npos);
  EXPECT_EQ(r.out.find("two"), std::string::npos);

  r = RunClockcomm(tmp, "log purge --from 2009-10-20 --to 2009-10-20", "n\n");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.out.find("Confirm Deletion\nPurge From 2009/10/20 to 2009/10/20. Are you sure?"),
            std::string::npos)
      << r.out;
  r = RunClockcomm(tmp, "log purge --from 2009-10-20 --to 2009-10-20 --yes");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  r = RunClockcomm(tmp, "log print --from 2009-10-01 --to 2009-10-31");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out.rfind("For Period 2009/10/01 to 2009/10/31\nPage 1\n", 0), 0u) << r.out;
  EXPECT_EQ(r.out.find("one"), std::string::npos);
  EXPECT_NE(r.out.find(" two\n"), std::string::npos);

  EXPECT_NE(RunClockcomm(tmp, "log show --from 2009-02-30 --to 2009-03-01").exit_code, 0);
  EXPECT_NE(RunClockcomm(tmp, "log show --from 2009-03-02 --to 2009-03-01").exit_code, 0);
  EXPECT_NE(RunClockcomm(tmp, "log show --to 2009-03-01").exit_code, 0);
}

}  // namespace
}  // namespace clockcomm::shell
