#include "t4/t4_packet_writer.h"

#include <gtest/gtest.h>

#include <fstream>

#include "core/durable_file.h"
#include "core/text.h"
#include "records/clock_file_transfer.h"
#include "records/parameter_override.h"
#include "records/transfer_fixture.h"

namespace clockcomm::t4 {
namespace {

namespace fs = std::filesystem;
using records::test_support::D;
using records::test_support::RowsText;
using records::test_support::T;
using Outcome = T4PacketWriter::Outcome;

// The registry's company "Acme" with clock "Front", its database and folder, an installation
// folder for the site files; the present is 2009-10-21 09:00.
class T4PacketWriterTest : public ::testing::Test {
 protected:
  T4PacketWriterTest() {
    fs::create_directory(program_);
    companies_.Initialize(site_.registry_path);
  }

  void SiteFile(const char* name, const std::string& text) {
    std::ofstream(program_ / name, std::ios::binary) << text;
  }

  // A writer made afresh for each punch, as after a restart: nothing is remembered in memory.
  Outcome Write(long work_code, core::TimeOfDay time, long in_out = 0, int day = 21,
                const char* clock = "Front") {
    PunchTypeRules rules(program_, site_.log);
    ClockAssignments assignments(program_, site_.log);
    T4PacketWriter writer(companies_, rules, assignments, program_, site_.log, site_.clock);
    return writer.WritePacket(
        {clock, 7, 1234, core::DateTime(D(2009, 10, day), time), in_out, work_code});
  }

  fs::path DailyFile(const char* mmdd = "1021") const {
    return site_.dir.path() / "acme" / (std::string(mmdd) + "000A.TCD");
  }
  // The daily file's lines without their quotes.
  std::vector<std::string> Lines(const char* mmdd = "1021") const {
    std::vector<std::string> lines;
    if (!fs::exists(DailyFile(mmdd))) return lines;
    for (auto line : core::Split(core::ReadWholeFile(DailyFile(mmdd)), '\n')) {
      if (line.empty()) continue;
      EXPECT_EQ(line.back(), '\r');
      std::erase(line, '\r');
      std::erase(line, '"');
      lines.push_back(line);
    }
    return lines;
  }
  std::vector<std::string> Rows(const std::string& columns) {
    return RowsText(*site_.OpenCompanyDb(),
                    "SELECT " + columns + " FROM [Clock Data Table] ORDER BY ID");
  }
  // Empties the table, the key list and the daily file between a table's rows.
  void Clear() {
    site_.OpenCompanyDb()->Execute("DELETE FROM [Clock Data Table]");
    site_.OpenCompanyDb()->Execute("DELETE FROM [Punch Keys]");
    fs::remove(DailyFile());
  }
  static constexpr const char* kMoments =
      "[Punch Type], [Date In], [Time In], [Date Out], [Time Out]";

  records::test_support::TransferFixture site_;
  fs::path program_ = site_.dir.path() / "program";
  records::CompanyFactory companies_{site_.log, site_.dir.path()};
};

TEST_F(T4PacketWriterTest, EachPunchTypeWritesItsRecordsToFileAndTable) {
  SiteFile(kPunchTypeRulesFile,
           "1=I\n2=O\n3=LI\n4=LO\n5=BI\n6=BO\n7=SW\n8=LR\n9=BR\n10=LL\n11=BL\n");
  // The records of each punch: "X" has the moment as its in date and time, "X+" as both its in
  // and its out date and time. The table keeps an "O" in its out columns, the line in the in
  // fields.
  const std::pair<long, std::vector<std::string>> cases[] = {
      {1, {"I"}},        {2, {"O"}},         {5, {"BI"}},         {6, {"BO"}},
      {3, {"LI", "I"}},  {8, {"LI", "I"}},   {9, {"BI"}},         {11, {"BO"}},
      {7, {"SW+", "I"}}, {4, {"LO+", "LO"}}, {10, {"LO+", "LO"}},
  };
  for (const auto& [work_code, records] : cases) {
    // Seconds are dropped: the clock's assignment does not keep them.
    EXPECT_EQ(Write(work_code, T(8, 30, 15)), Outcome::kWritten) << work_code;
    std::vector<std::string> lines, rows;
    for (std::string type : records) {
      const bool both = type.back() == '+';
      if (both) type.pop_back();
      lines.push_back("7,0,1234,,,,," + type + ",2009/10/21,08:30," +
                      (both ? "2009/10/21,08:30" : ",") + ",,");
      rows.push_back(type + (type == "O" ? "|-|-|2009-10-21|08:30:00"
                             : both      ? "|2009-10-21|08:30:00|2009-10-21|08:30:00"
                                         : "|2009-10-21|08:30:00|-|-"));
    }
    EXPECT_EQ(Lines(), lines) << "work code " << work_code;
    EXPECT_EQ(Rows(kMoments), rows) << "work code " << work_code;
    Clear();
  }
}

TEST_F(T4PacketWriterTest, DepartmentAndJobFromWorkCodeThenTheSettingsOverride) {
  SiteFile(kClockAssignmentsFile, "Front, dept=wc:1-2, job=wc:3-4, workcode=4\n");
  SiteFile(records::kSettingsOverrideFile, "assignhomedept = yes\nassigndefaultjob = yes\n");
  site_.OpenCompanyDb()->Execute(
      "INSERT INTO [Employee Table] ([Card ID], [Home Department], DefaultAssignment) "
      "VALUES (1234, 77, 'TASK')");
  // No rules: the types alternate in and out, from the punches before.
  Write(1205, T(8, 0));  // the work code's digits
  Write(0, T(9, 0));     // an out is not given a home department or default job
  Write(5, T(10, 0));    // "0005": department 0 counts as none and is overridden
  Write(0, T(11, 0));
  Write(0, T(12, 0));  // nothing from the work code: both from the employee
  EXPECT_EQ(Rows("[Punch Type], Department, JobNumber"),
            (std::vector<std::string>{"I|12|05", "O|-|", "I|77|05", "O|-|", "I|77|TASK"}));
  EXPECT_EQ(Lines()[0], "7,0,1234,12,05,,,I,2009/10/21,08:00,,,,");
}

TEST_F(T4PacketWriterTest, DailyFileIsNamedFromTodayNotFromThePunch) {
  SiteFile(kClockAssignmentsFile, "Front, precision=true\n");
  Write(0, T(23, 59, 30), 0, 20, "FRONT");  // yesterday's punch, read today; the name in any case
  EXPECT_EQ(Lines(), std::vector<std::string>{"7,0,1234,,,,,I,2009/10/20,23:59:30,,,,"});
  EXPECT_EQ(Rows(kMoments), std::vector<std::string>{"I|2009-10-20|23:59:30|-|-"});
}

TEST_F(T4PacketWriterTest, SamePunchAgainAfterARestartIsStoredOnce) {
  EXPECT_EQ(Write(0, T(8, 0)), Outcome::kWritten);
  // An earlier punch arrives later: were the 08:00 punch judged again it would now be an out.
  EXPECT_EQ(Write(0, T(7, 0)), Outcome::kWritten);
  EXPECT_EQ(Write(0, T(8, 0)), Outcome::kAlreadyStored);
  EXPECT_EQ(Write(0, T(7, 0)), Outcome::kAlreadyStored);
  EXPECT_EQ(Lines().size(), 2u);
  EXPECT_EQ(Rows(kMoments),
            (std::vector<std::string>{"I|2009-10-21|08:00:00|-|-", "I|2009-10-21|07:00:00|-|-"}));
  // Another state or work code is another punch.
  EXPECT_EQ(Write(0, T(8, 0), 1), Outcome::kWritten);
}

TEST_F(T4PacketWriterTest, TransferOfTheDailyFileFindsEveryPunchIn) {
  // An in and an out: a minute apart, and on a clock that keeps seconds within one minute.
  const std::tuple<const char*, core::TimeOfDay, core::TimeOfDay> cases[] = {
      {"Front", T(8, 0), T(8, 1)}, {"Front, precision=true", T(8, 0, 10), T(8, 0, 40)}};
  for (const auto& [assignment, in, out] : cases) {
    SiteFile(kClockAssignmentsFile, assignment);
    Write(0, in);
    Write(0, out);
    records::ClockFileTransfer transfer({program_, site_.registry_path}, site_.log, site_.clock);
    const auto result = transfer.Transfer(site_.LoadCompany(), DailyFile(), {.mode_letter = "W"});
    EXPECT_EQ(result.inserted, 0) << assignment;
    EXPECT_EQ(result.already_present, 2) << assignment;
    EXPECT_EQ(site_.RowCount(), 2) << assignment;
    Clear();
  }
}

// A punch of no company's clock is refused. A store that fails leaves nothing half done: rows
// that could not be committed are in neither store. A daily file that could not be written gets
// the committed punch's lines with the company's next punch, even a day later: once, and in the
// file they were meant for.
TEST_F(T4PacketWriterTest, AFailedStoreIsFinishedOnceByTheNextPunch) {
  EXPECT_THROW(Write(0, T(8, 0), 0, 21, "Nowhere"), T4WriteError);
  EXPECT_EQ(site_.log.events.back().rfind(
                "System setup error: Clock name 'Nowhere' was not found in Company3.mdb", 0),
            0u);
  SiteFile(kPunchTypeRulesFile, "3=LI\n");
  site_.OpenCompanyDb()->Execute("ALTER TABLE [Clock Data Table] RENAME TO Kept");
  EXPECT_THROW(Write(3, T(12, 0)), T4WriteError);
  EXPECT_NE(site_.log.events.back().find("was not stored; it stays in the terminal"),
            std::string::npos);
  site_.OpenCompanyDb()->Execute("ALTER TABLE Kept RENAME TO [Clock Data Table]");
  EXPECT_FALSE(fs::exists(DailyFile()));
  EXPECT_TRUE(Rows(kMoments).empty());

  fs::create_directory(DailyFile());  // nothing can be appended to it
  EXPECT_THROW(Write(3, T(12, 0)), T4WriteError);
  EXPECT_EQ(Rows("[Punch Type]"), (std::vector<std::string>{"LI", "I"}));
  fs::remove(DailyFile());

  site_.clock.Set(core::DateTime(D(2009, 10, 22), T(6, 0)));
  EXPECT_EQ(Write(3, T(12, 0)), Outcome::kAlreadyStored);
  EXPECT_EQ(Lines("1021").size(), 2u);
  EXPECT_EQ(Write(0, T(5, 0), 0, 22), Outcome::kWritten);
  EXPECT_EQ(Write(3, T(12, 0)), Outcome::kAlreadyStored);
  EXPECT_EQ(Lines("1021").size(), 2u);
  EXPECT_EQ(Lines("1022").size(), 1u);
  EXPECT_EQ(Rows("[Punch Type]"), (std::vector<std::string>{"LI", "I", "I"}));
}

}  // namespace
}  // namespace clockcomm::t4
