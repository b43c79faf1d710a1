// Runs the built clockcomm binary against a temporary program folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "core/durable_file.h"
#include "shell/event_log.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

using Result = test::CommandResult;

Result RunClockcomm(const test::TempDir& tmp, const std::string& args,
                    const std::string& input = "") {
  return test::RunClockcomm(tmp.path() / "home", args, input);
}

TEST(SetupCommandsTest, InitSetAndShowWithValidation) {
  test::TempDir tmp;
  const auto home = tmp.path() / "home";
  Result r = RunClockcomm(tmp, "init");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  r = RunClockcomm(tmp, "init");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_THAT(r.err, HasSubstr("--force"));
  std::ofstream(home / "registry.ini", std::ios::app) << "[Ports]\nCOM1 /dev/ttyUSB0\n";
  r = RunClockcomm(tmp, "init --force");
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_THAT(r.err, HasSubstr("\"COM1 /dev/ttyUSB0\" is neither [section] nor name=value; the "
                               "line is ignored; init --force did not keep it\n"));

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

  // The warning for a terminal type not served yet is the call commands'.
  ASSERT_EQ(RunClockcomm(tmp, "settings set comm_port=2 terminal_type=HandPunch").exit_code, 0);
  const std::string registry = (home / "registry.ini").string();
  const std::string overrides = (home / "SettingsOverride.txt").string();
  const std::string text = core::ReadWholeFile(registry);
  const auto bad_port_line = std::count(text.begin(), text.end(), '\n') + 3;
  std::ofstream(registry, std::ios::app) << "\n[Ports]\nCOM1 /dev/ttyUSB0\nCOM3=/dev/ttyUSB1\n";
  core::WriteFileAtomically(overrides, "eotquantity = 5\r\nassignhomedept = yse\r\n");

  r = RunClockcomm(tmp, "settings show");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  // The texts of the warnings are the files' own tests'; here they reach stderr, naming the line.
  EXPECT_THAT(r.err,
              AllOf(HasSubstr("clockcomm: warning: " + registry + " line " +
                              std::to_string(bad_port_line) + ": \"COM1 /dev/ttyUSB0\""),
                    HasSubstr("clockcomm: warning: " + overrides + " line 2: assignhomedept")));
  for (const std::string& shown : std::vector<std::string>{
           "DataDir=" + home.string() + "/data/\n",
           "auto_shutdown=false  # kept for the time-card application only\n",
           "terminal_type=5  # HandPunch, not served yet\n",
           // the broken COM1 line maps nothing; COM2 is the settings' port
           "\n[Ports]\nCOM2=/dev/ttyS1  # default\n"
           "COM3=/dev/ttyUSB1\n",
           "\n[" + overrides + "]\nserialportrate=9600  # default\n",
           "\neotquantity=5\neotinterval=0.1  # default\nassignhomedept=no  # default\n"}) {
    EXPECT_THAT(r.out, HasSubstr(shown));
  }
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
  EXPECT_THAT(r.out, AllOf(HasSubstr("2009-10-20 08:00:00\tDock\t2\tStart of call\tone"),
                           Not(HasSubstr("two"))));

  r = RunClockcomm(tmp, "log purge --from 2009-10-20 --to 2009-10-20", "n\n");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_THAT(r.out,
              HasSubstr("Confirm Deletion\nPurge From 2009/10/20 to 2009/10/20. Are you sure?"));
  r = RunClockcomm(tmp, "log purge --from 2009-10-20 --to 2009-10-20 --yes");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  r = RunClockcomm(tmp, "log print --from 2009-10-01 --to 2009-10-31");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_THAT(r.out, AllOf(StartsWith("For Period 2009/10/01 to 2009/10/31\nPage 1\n"),
                           Not(HasSubstr("one")), HasSubstr(" two\n")));

  EXPECT_NE(RunClockcomm(tmp, "log show --from 2009-02-30 --to 2009-03-01").exit_code, 0);
  EXPECT_NE(RunClockcomm(tmp, "log show --from 2009-03-02 --to 2009-03-01").exit_code, 0);
  EXPECT_NE(RunClockcomm(tmp, "log show --to 2009-03-01").exit_code, 0);
}

// backup copies every database of the site, outside the data directory only; what the program
// creates is for its user and group only.
TEST(SetupCommandsTest, BackupCopiesEveryDatabaseAndFilesAreNotWorldReadable) {
  test::TempDir tmp;
  ASSERT_EQ(RunClockcomm(tmp, "init").exit_code, 0);
  ASSERT_EQ(RunClockcomm(tmp, "company add Acme --clock FRONT --dir acme").exit_code, 0);
  const auto company_db = tmp.path() / "home" / "data" / "acme" / "Company.db";
  EXPECT_EQ(std::filesystem::status(company_db).permissions() & std::filesystem::perms::others_all,
            std::filesystem::perms::none);

  Result r = RunClockcomm(tmp, "backup --to " + (tmp.path() / "copies").string());
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("4 of 4 database(s) copied"));
  for (const char* file : {"COMPANY3.db", "Clockwyn.db", "TCLOG.db", "acme/Company.db"}) {
    EXPECT_TRUE(std::filesystem::exists(tmp.path() / "copies" / file)) << file;
  }
  r = RunClockcomm(tmp, "backup --to " + (tmp.path() / "home" / "data" / "old").string());
  EXPECT_NE(r.exit_code, 0);
  EXPECT_THAT(r.err, HasSubstr("is inside the data directory"));
}

}  // namespace
}  // namespace clockcomm::shell
