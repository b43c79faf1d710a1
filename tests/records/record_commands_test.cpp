// Runs the built clockcomm binary in a temporary program folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/durable_file.h"
#include "db/open.h"
#include "records/transfer_fixture.h"
#include "test_support/run_clockcomm.h"

namespace clockcomm::records {
namespace {

using test_support::RowsText;
using ::testing::HasSubstr;

class RecordCommandsTest : public ::testing::Test {
 protected:
  // stdout and stderr of a run that must end with the given exit code.
  std::string Clockcomm(const std::string& args, int status = 0) {
    const auto r = test::RunClockcomm(home_.path(), args);
    EXPECT_EQ(r.exit_code, status) << args << "\n" << r.out << r.err;
    return r.out + r.err;
  }
  std::filesystem::path Path(const std::string& rel) const { return home_.path() / rel; }
  std::string Quoted(const std::string& rel) const { return "'" + Path(rel).string() + "'"; }

  test::TempDir home_;
};

TEST_F(RecordCommandsTest, CompanyEmployeesAndTransferEndToEnd) {
  EXPECT_THAT(Clockcomm("company list", 1), HasSubstr("Company3 database was not found."));
  Clockcomm("init");
  Clockcomm(
      "company add Acme --clock Front --dir acme --pay-period semimonthly "
      "--start 2009-10-16 --start-time 06:00");
  EXPECT_TRUE(std::filesystem::exists(Path("data/acme/Company.db")));
  EXPECT_THAT(Clockcomm("company list"),
              HasSubstr("Acme\tFront\tacme\tsemimonthly\t2009-10-16 06:00\t2009-10-31 23:59"));
  for (const char* refused : {"--clock front --dir other", "--clock C2 --dir o --pay-period yearly",
                              "--clock C2 --dir o --pay-period custom",
                              "--clock C2 --dir o --start 2009-02-30", "--clock C2 --dir ../x"}) {
    Clockcomm(std::string("company add Other ") + refused, 1);
  }

  Clockcomm("employee add --company Acme --card 1234 --home-dept 44 --default-job task --name Ann");
  Clockcomm("employee add --company Acme --card 1234", 1);  // a card is added once
  Clockcomm("employee add --company Nobody --card 5", 1);
  Clockcomm("employee add --company Acme --card 6 --default-job 12345678901234", 1);
  core::WriteFileAtomically(Path("emp.csv"),
                            "card,home department,default job\r\n"
                            "20,7,wash\r\n"
                            "x21,7,wash\r\n"
                            "22,1000000000,\r\n"
                            "23,,\r\n");
  std::string out = Clockcomm("employee import --company Acme " + Quoted("emp.csv"), 1);
  EXPECT_THAT(out, HasSubstr(Path("emp.csv").string() + " line 3: card \"x21\""));
  EXPECT_THAT(out, HasSubstr(Path("emp.csv").string() + " line 4: home department"));
  EXPECT_THAT(out,
              HasSubstr("Imported 2 employee(s) into Acme (the first line was taken as a header)"));
  // No header, a quoted comma: every line is an employee.
  core::WriteFileAtomically(Path("more.csv"), "24,,\"A,B\",\"Lee, Dee\"\n25,7\n");
  EXPECT_THAT(Clockcomm("employee import --company Acme " + Quoted("more.csv")),
              HasSubstr("Imported 2 employee(s) into Acme\n"));

  // Departments and jobs (listed from the tables the terminals receive), and the employees' table.
  Clockcomm("department add --company Acme --number 44 --name Kitchen");
  Clockcomm("department add --company Acme --number 4x --name Bad", 1);
  Clockcomm("job add --company Acme --code task --name 'Task work'");
  EXPECT_THAT(Clockcomm("department list --company Acme"), HasSubstr("44\tKitchen\n"));
  EXPECT_THAT(Clockcomm("job list --company Acme"), HasSubstr("task\tTask work\n"));
  EXPECT_EQ(RowsText(*db::Open(Path("data/acme/Company.db")),
                     "SELECT [Card ID], Name FROM LEVEL1 WHERE Active <> 0 ORDER BY [Card ID]"),
            (std::vector<std::string>{"20|", "23|", "24|Lee, Dee", "25|", "1234|Ann"}));

  // The unusable settings line is reported and changes no row.
  core::WriteFileAtomically(Path("SettingsOverride.txt"),
                            "assignhomedept = yes\nassigndefaultjob = yes\neotquantity = 0\n");
  core::WriteFileAtomically(
      Path("data/10210001.TCD"),
      "\"999\",\"1\",\"1234\",\"\",\"\",\"\",\"\",\"I\",\"2009/10/21\",\"08:00\",\"\",\"\","
      "\"\",\"\"\r\n"
      "999,2,20,,,,,O,10/21/2009,17:00,,,,\r\n"
      "999,3,20,,,,,V,10/21/2009,,,,8,\r\n");
  const std::string tcd = Quoted("data/10210001.TCD");
  out = Clockcomm("transfer --clock FRONT " + tcd);
  EXPECT_THAT(out, HasSubstr("3 row(s) went into Acme"));
  EXPECT_THAT(out, HasSubstr("clockcomm: warning: " + Path("SettingsOverride.txt").string() +
                             " line 3: eotquantity = \"0\" is not from 1 to 100; the default 1 "
                             "is used\n"));
  EXPECT_THAT(Clockcomm("transfer --clock front " + tcd), HasSubstr("0 row(s) went into Acme"));
  EXPECT_TRUE(std::filesystem::exists(Path("data/10210001.ARC")));

  // Rows an administrator deleted come back only when asked, and the asking is logged.
  db::Open(Path("data/acme/Company.db"))->Execute("DELETE FROM [Clock Data Table] WHERE Punch = 2");
  EXPECT_THAT(Clockcomm("transfer --clock Front " + tcd),
              HasSubstr("0 row(s) went in, 3 already there"));
  EXPECT_THAT(Clockcomm("transfer --again --clock Front " + tcd),
              HasSubstr("forgot 1 deleted row(s), 1 row(s) went in, 2 already there"));
  // Through the settings file, the added and the imported employee's department and job reached
  // their punches.
  out = Clockcomm("punches --company Acme --from 2009-10-21");
  EXPECT_THAT(out, HasSubstr("\n1\t1234\tI\t2009-10-21\t08:00:00\t\t\t44\ttask\t"));
  EXPECT_THAT(out, HasSubstr("\n3\t20\tV\t2009-10-21\t\t\t\t7\twash\t\t\t8\n"));
  EXPECT_THAT(out, HasSubstr("\n4\t20\tO\t\t\t2009-10-21\t17:00:00\t"));
  EXPECT_THAT(out, HasSubstr("\n3 row(s) of Acme from 2009-10-21 to 2009-10-21\n"));
  EXPECT_THAT(Clockcomm("punches --company Acme --from 2009-10-22"), HasSubstr("\n0 row(s)"));
  EXPECT_EQ(RowsText(*db::Open(Path("data/TCLOG.db")),
                     "SELECT ClockName, instr(EventDes, '10210001.TCD again') > 0 FROM LogTable "
                     "WHERE EventType = 'Transfer again'"),
            (std::vector<std::string>{"Front|1"}));

  EXPECT_THAT(Clockcomm("transfer --clock Nowhere " + tcd, 1),
              HasSubstr("Clock name 'Nowhere' was not found in Company3.mdb"));
  Clockcomm("transfer --clock Front " + Quoted("none.TCD"), 1);
  // Windows-1252 text in the arguments, as bytes: an accented clock name in the other case.
  Clockcomm("company add 'Caf\xE9' --clock 'caf\xE9' --dir cafe");
  core::WriteFileAtomically(Path("data/c.TCD"), "1,1,12,,,,,I,10/21/2009,08:00,,,,\r\n");
  EXPECT_THAT(Clockcomm("transfer --clock 'CAF\xC9' " + Quoted("data/c.TCD")),
              HasSubstr("1 row(s) went into Caf\xE9"));
}

}  // namespace
}  // namespace clockcomm::records
