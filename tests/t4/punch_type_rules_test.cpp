#include "t4/punch_type_rules.h"

#include <gtest/gtest.h>

#include <fstream>

#include "core/text.h"
#include "records/transfer_fixture.h"

namespace clockcomm::t4 {
namespace {

using records::test_support::D;
using records::test_support::RecordingLog;
using records::test_support::T;

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
  EXPECT_EQ(log.events, (std::vector<std::string>{
                            "Configuration error: PunchTypeRules.txt line 14: 'lunch' is not work "
                            "code = punch type",
                            "Configuration error: PunchTypeRules.txt line 15: 'x9' is not a work "
                            "code (a whole number)"}));

  std::filesystem::remove(dir.path() / kPunchTypeRulesFile);
  EXPECT_EQ(PunchTypeRules(dir.path(), log).Count(), 0);  // missing: quietly none
  EXPECT_EQ(log.events.size(), 2u);
  std::filesystem::create_directory(dir.path() / kPunchTypeRulesFile);
  EXPECT_EQ(PunchTypeRules(dir.path(), log).Count(), 0);  // unreadable: none, and said
  ASSERT_EQ(log.events.size(), 3u);
  EXPECT_EQ(log.events[2].rfind("System error: Couldn't read ", 0), 0u);
  EXPECT_NE(log.events[2].find("; no punch type rules are in effect"), std::string::npos);
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
