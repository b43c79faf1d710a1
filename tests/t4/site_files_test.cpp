// The site files that steer the T4 writer: the clocks' assignments and the punch type rules.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>

#include "core/text.h"
#include "records/transfer_fixture.h"
#include "t4/clock_assignments.h"
#include "t4/punch_type_rules.h"

namespace clockcomm::t4 {
namespace {

using records::test_support::D;
using records::test_support::RecordingLog;
using records::test_support::T;

// Every option of an assignment in one line, department and job as for work code 123456.
std::string Summary(const ClockAssignment& a) {
  const char* modes[] = {"history", "inout", "switch"};
  const auto dept = a.GetEffectiveDepartment(123456);
  return fmt::format(
      "{} dept={} job={} digits={} rules={} {} offset={} sec={} tmpl={} dbg={} "
      "lock={} verify={}",
      a.ClockName(), dept ? std::to_string(*dept) : "-", a.GetEffectiveJob(123456),
      a.WorkCodeDigits(), a.UsePunchType(), modes[static_cast<int>(a.InOut())],
      a.TimeOffset().count(), a.IncludeSeconds(), a.DisableTemplateManagement(), a.DebugLog(),
      a.UseScheduleLockouts(), a.UseVerifyType() ? std::to_string(a.VerifyType()) : "-");
}

constexpr const char* kDefaults =
    "dept=- job= digits=0 rules=true history offset=0 sec=false tmpl=false dbg=false lock=false "
    "verify=-";

TEST(ClockAssignmentTest, TryParseReadsKeysAliasesAndFlags) {
  auto parsed = [](const std::string& line) {
    ClockAssignment a;
    std::string error;
    EXPECT_TRUE(a.TryParse(line, error)) << line << ": " << error;
    return Summary(a);
  };
  EXPECT_EQ(parsed("Front"), std::string("Front ") + kDefaults);
  EXPECT_EQ(parsed("Back Door , dept=12, job=WELD, workcode=6, usepunchtype=false, in/out=true, "
                   "timeoffset=-1.5, precision=-1, disabletemplatemanagement=true, debuglog=TRUE, "
                   "schedulelockout=-1, verifytype=3,"),
            "Back Door dept=12 job=WELD digits=6 rules=false inout offset=-5400 sec=true "
            "tmpl=true dbg=true lock=true verify=3");
  // Each alias, and the comma inside "in/out,switch", stand for their key; the switch includes
  // in/out, given in either order.
  const std::pair<const char*, const char*> same[] = {
      {"department=wc:1-2, time=2, punchtype=0, second=true, disabletemplate=true, lockout=true, "
       "ios=true",
       "dept=wc:1-2, timeoffset=2, usepunchtype=false, precision=true, "
       "disabletemplatemanagement=true, schedulelockout=true, in/out,switch=true"},
      {"offset=0.5, disabletemplates=true, schedule=true, inoutswitch=true",
       "timeoffset=0.5, disabletemplatemanagement=true, schedulelockout=true, in/out,switch=true"},
      {"template=-1, schedules=true, inout_switch=true",
       "disabletemplatemanagement=true, schedulelockout=true, in/out,switch=true"},
      {"templates=-1, in/out , switch = -1", "disabletemplatemanagement=true, ios=true"},
      {"inout=true", "in/out=true"},
      {"io=true", "in/out=true"},
      {"in/out,switch=true, in/out=false", "ios=true"},
      {"io=true, ios=false", "in/out=true"},
  };
  for (const auto& [line, canonical] : same) {
    EXPECT_EQ(parsed(std::string("A, ") + line), parsed(std::string("A, ") + canonical)) << line;
  }
}

TEST(ClockAssignmentTest, TryParseRefusesBadLinesAndKeepsWhatItHad) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "must begin with the clock name"},
      {"dept=5", "must begin with the clock name"},
      {"A, colour=red", "unknown key 'colour'"},
      {"A, in/out", "'in/out' is not key=value"},
      {"A, switch, in/out=true", "unknown key 'switch,in/out'"},
      {"A, dept=1, department=2", "'department' sets an option given before"},
      {"A, precision=yes", "precision: 'yes' is not a flag"},
      {"A, dept=1000000000", "dept: '1000000000' is not a whole number from 0 to 999999999"},
      {"A, dept=wc:3-1", "is not a work code position"},
      {"A, dept=wc:1-10", "is not a work code position"},  // ten digits: too big a department
      {"A, job=ABCDEFGHIJKLMN", "is not a job"},
      {"A, timeoffset=25", "is not a number of hours"},
      {"A, workcode=11", "is not a whole number from 0 to 10"},
  };
  for (const auto& [line, why] : cases) {
    ClockAssignment a;
    std::string error;
    ASSERT_TRUE(a.TryParse("Kept, dept=4", error));
    EXPECT_FALSE(a.TryParse(line, error)) << line;
    EXPECT_NE(error.find(why), std::string::npos) << line << ": " << error;
    EXPECT_EQ(Summary(a).substr(0, 11), "Kept dept=4") << line;
  }
}

TEST(ClockAssignmentTest, DepartmentAndJobFromWorkCodeDigits) {
  struct Case {
    const char* line;
    long work_code;
    std::optional<int64_t> department;
    const char* job;
  };
  const Case cases[] = {
      {"A, dept=wc:1-2, job=wc:3-5", 12345, 12, "345"},
      {"A, dept=wc:1-2, job=wc:3-5", 1234, 12, "34"},       // the digits there are
      {"A, dept=wc:1-2, job=wc:3-5", 12, 12, ""},           // none left for the job
      {"A, dept=wc:1-2, job=wc:3-5", 0, std::nullopt, ""},  // no work code keyed
      {"A, dept=wc:1-2, job=wc:3-5", -5, std::nullopt, ""},
      {"A, dept=wc:1-2, job=wc:3-5, workcode=5", 7, 0, "007"},  // zeros in front, kept in a job
      {"A, dept=wc:4, job=wc:1-3, workcode=4", 5129, 9, "512"},
      {"A, dept=wc:1-9", 1234567890, 123456789, ""},
      {"A, dept=30, job=W-1", 555, 30, "W-1"},  // given directly: the work code plays no part
  };
  for (const auto& c : cases) {
    ClockAssignment a;
    std::string error;
    ASSERT_TRUE(a.TryParse(c.line, error)) << c.line << ": " << error;
    EXPECT_EQ(a.GetEffectiveDepartment(c.work_code), c.department) << c.line << " " << c.work_code;
    EXPECT_EQ(a.GetEffectiveJob(c.work_code), c.job) << c.line << " " << c.work_code;
  }
}

TEST(ClockAssignmentsTest, FileWithCommentsBlanksBadAndRepeatedLines) {
  test::TempDir dir;
  std::ofstream(dir.path() / kClockAssignmentsFile, std::ios::binary)
      << "; T4 clocks of the site\r\n\r\n"
         "  Front, dept=wc:1-2, precision=true ; the lobby\r\n"
         "Back, job=wc:1-3;\r\n"
         "   ;   \r\n"
         "Dock, dept=x\r\n"
         "back, job=PACK\r\n";
  RecordingLog log;
  ClockAssignments assignments(dir.path(), log);

  EXPECT_EQ(assignments.Count(), 2);
  EXPECT_TRUE(assignments.IncludeSeconds("FRONT"));
  EXPECT_EQ(assignments.GetDepartmentFromWorkCode("front", 4321), 43);
  EXPECT_EQ(assignments.GetJobFromWorkCode("Back", 4321), "PACK");  // the later line
  EXPECT_FALSE(assignments.IncludeSeconds("Dock"));                 // its line was refused
  EXPECT_EQ(Summary(assignments.Get("Nowhere")), std::string(" ") + kDefaults);
  EXPECT_EQ(log.events, (std::vector<std::string>{
                            "Configuration error: ClockAssignments.txt line 6: dept: 'x' is not a "
                            "whole number from 0 to 999999999; the line is ignored",
                            "Configuration error: ClockAssignments.txt line 7: clock back again; "
                            "this line replaces the earlier"}));
}

TEST(PunchTypeRulesTest, RuleFileLinesGiveTheTypeOfEachWorkCode) {
  test::TempDir dir;
  std::ofstream(dir.path() / kPunchTypeRulesFile, std::ios::binary)
      << "1=I\r\n2 = li \n3=Lunch In\n4=to\n5=TO\n6=today\n7=O\n7=BO\n007=SW\n8=\n=I\n\n   \n"
         "lunch\nx9=I\n-2=O\n";
  RecordingLog log;
  PunchTypeRules rules(dir.path(), log);
  // Trimmed, cut to two characters and upper-cased; "to" in any case and the later line for a
  // work code (007 is 7) win; empty sides are no rule.
  const std::pair<long, const char*> expected[] = {{1, "I"}, {2, "LI"}, {3, "LU"}, {4, ""},
                                                   {5, ""},  {6, ""},   {7, "SW"}, {8, ""},
                                                   {0, ""},  {-2, "O"}, {99, ""}};
  for (const auto& [work_code, type] : expected) {
    EXPECT_EQ(rules.GetPunchType(work_code), type) << "work code " << work_code;
  }
  EXPECT_EQ(rules.Count(), 8);
  // A rule whose type is none of the list is kept (the computed type serves) but said.
  EXPECT_EQ(log.events, (std::vector<std::string>{
                            "Configuration error: PunchTypeRules.txt line 3: 'Lunch In' gives LU, "
                            "which is not a punch type (I O LI LO LL LR BI BO BL BR SW TO); the "
                            "computed type is used",
                            "Configuration error: PunchTypeRules.txt line 14: 'lunch' is not work "
                            "code = punch type",
                            "Configuration error: PunchTypeRules.txt line 15: 'x9' is not a work "
                            "code (a whole number)"}));

  std::filesystem::remove(dir.path() / kPunchTypeRulesFile);
  EXPECT_EQ(PunchTypeRules(dir.path(), log).Count(), 0);  // missing: quietly none
  EXPECT_EQ(log.events.size(), 3u);
  std::filesystem::create_directory(dir.path() / kPunchTypeRulesFile);
  EXPECT_EQ(PunchTypeRules(dir.path(), log).Count(), 0);  // unreadable: none, and said
  ASSERT_EQ(log.events.size(), 4u);
  EXPECT_EQ(log.events[3].rfind("System error: Couldn't read ", 0), 0u);
  EXPECT_NE(log.events[3].find("; no punch type rules are in effect"), std::string::npos);
}

TEST(PunchTypeRulesTest, ValidTypesAreTheWordsOfTheList) {
  for (const char* type :
       {"I", "O", "LI", "LO", "LL", "LR", "BI", "BO", "BL", "BR", "SW", "TO", " i ", "Lo"}) {
    EXPECT_TRUE(PunchTypeRules::IsValidPunchType(type)) << type;
  }
  for (const char* type : {"", " ", "L", "B", "I O", "O LI", "C", "PI", "T", "IN"}) {
    EXPECT_FALSE(PunchTypeRules::IsValidPunchType(type)) << "'" << type << "'";
  }
}

// The final type with rules 3=LR, 4=XX, 5=to and a real company database holding the employee's
// earlier punches; the punch is badge 1234's at 2009-10-21 12:00. The history is written as
// "[badge]TYPE" then "@HH:MM" (in columns), ">HH:MM" (out columns) or "=HH:MM" (both), that day.
TEST(PunchTypeRulesTest, FinalTypeFromRuleInOutKeyOrTheDaysEarlierPunches) {
  struct Case {
    const char* legend;
    const char* assignment;
    long in_out, work_code;
    const char* history;
    const char* expected;
  };
  const Case cases[] = {
      {"no punch yet", "Front", 0, 0, "", "I"},
      {"in earlier", "Front", 0, 0, "I@08:00", "O"},
      {"out last, kept in the out columns", "Front", 0, 0, "I@08:00 O>11:00", "I"},
      {"lunch out", "Front", 0, 0, "LO@11:30", "LI"},
      {"break out", "Front", 0, 0, "BO@10:00", "BI"},
      {"a switch", "Front", 0, 0, "SW=09:00", "O"},
      {"its own moment", "Front", 0, 0, "I@12:00", "I"},
      {"another badge", "Front", 0, 0, "99I@08:00", "I"},
      {"an amount after the in", "Front", 0, 0, "I@08:00 T@09:00", "O"},
      // Rows of one moment count in the order written.
      {"an out, then an in", "Front", 0, 0, "O>11:00 I@11:00", "O"},
      {"an in, then an out", "Front", 0, 0, "I@11:00 O>11:00", "I"},
      {"a valid rule wins", "Front", 1, 3, "I@08:00", "LR"},
      {"an invalid rule", "Front", 0, 4, "I@08:00", "O"},
      {"rules off for the clock", "Front, usepunchtype=false", 0, 3, "I@08:00", "O"},
      {"in/out key: out", "Front, in/out=true", 1, 0, "", "O"},
      {"in/out key: in, even when in", "Front, in/out=true", 0, 0, "I@08:00", "I"},
      {"in/out key: break out", "Front, in/out=true", 2, 0, "", "BO"},
      {"in/out key without meaning", "Front, in/out=true", 9, 0, "I@08:00", "O"},
      {"switch: an in while in", "Front, in/out,switch=true", 0, 0, "I@08:00", "SW"},
      {"switch: an in while out", "Front, in/out,switch=true", 0, 0, "", "I"},
  };
  records::test_support::TransferFixture site;
  std::ofstream(site.dir.path() / kPunchTypeRulesFile) << "3=LR\n4=XX\n5=to\n";
  const PunchTypeRules rules(site.dir.path(), site.log);
  for (const auto& c : cases) {
    auto db = site.OpenCompanyDb();
    db->Execute("DELETE FROM [Clock Data Table]");
    for (const std::string& row : core::Split(c.history, ' ')) {
      if (row.empty()) continue;
      const size_t type = row.find_first_not_of("0123456789"), at = row.find_first_of("@>=");
      const db::Value none, date("2009-10-21"), time(row.substr(at + 1) + ":00");
      const bool in = row[at] != '>', out = row[at] != '@';
      db->Execute(
          "INSERT INTO [Clock Data Table] ([Card ID], [Punch Type], [Date In], [Time In], "
          "[Date Out], [Time Out]) VALUES (?, ?, ?, ?, ?, ?)",
          {int64_t{type > 0 ? std::stol(row) : 1234}, row.substr(type, at - type), in ? date : none,
           in ? time : none, out ? date : none, out ? time : none});
    }
    ClockAssignment clock;
    std::string error;
    ASSERT_TRUE(clock.TryParse(c.assignment, error)) << error;
    ClockDataPunchHistory history(*db);
    const T4Punch punch{"Front",  1,          1234, core::DateTime(D(2009, 10, 21), T(12, 0)),
                        c.in_out, c.work_code};
    EXPECT_EQ(rules.GetFinalPunchType(punch, clock, history), c.expected) << c.legend;
  }
}

}  // namespace
}  // namespace clockcomm::t4
