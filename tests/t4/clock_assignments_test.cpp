#include "t4/clock_assignments.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>

#include "records/transfer_fixture.h"

namespace clockcomm::t4 {
namespace {

using records::test_support::RecordingLog;

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

}  // namespace
}  // namespace clockcomm::t4
