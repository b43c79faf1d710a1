#include "t4/punch_type_rules.h"

#include <gtest/gtest.h>

#include <fstream>

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
// earlier punches; the punch is badge 1234's at 2009-10-21 12:00.
TEST(PunchTypeRulesTest, FinalTypeFromRuleInOutKeyOrTheDaysEarlierPunches) {
  struct Row {
    long badge;
    const char* type;
    const char* date_in;  // day of October 2009; null for none
    const char* time_in;
    const char* date_out = nullptr;
    const char* time_out = nullptr;
  };
  struct Case {
    const char* legend;
    const char* assignment;
    long in_out, work_code;
    std::vector<Row> history;
    const char* expected;
  };
  const Row in_at_8{1234, "I", "21", "08:00:00"};
  const Case cases[] = {
      {"no punch yet", "Front", 0, 0, {}, "I"},
      {"in earlier", "Front", 0, 0, {in_at_8}, "O"},
      {"out last, kept in the out columns",
       "Front",
       0,
       0,
       {in_at_8, {1234, "O", nullptr, nullptr, "21", "11:00:00"}},
       "I"},
      {"lunch out", "Front", 0, 0, {{1234, "LO", "21", "11:30:00"}}, "LI"},
      {"break out", "Front", 0, 0, {{1234, "BO", "21", "10:00:00"}}, "BI"},
      {"a switch", "Front", 0, 0, {{1234, "SW", "21", "09:00:00", "21", "09:00:00"}}, "O"},
      {"its own moment", "Front", 0, 0, {{1234, "I", "21", "12:00:00"}}, "I"},
      {"another badge", "Front", 0, 0, {{99, "I", "21", "08:00:00"}}, "I"},
      {"an amount after the in", "Front", 0, 0, {in_at_8, {1234, "T", "21", "09:00:00"}}, "O"},
      // Rows of one moment count in the order written.
      {"an out, then an in",
       "Front",
       0,
       0,
       {{1234, "O", nullptr, nullptr, "21", "11:00:00"}, {1234, "I", "21", "11:00:00"}},
       "O"},
      {"an in, then an out",
       "Front",
       0,
       0,
       {{1234, "I", "21", "11:00:00"}, {1234, "O", nullptr, nullptr, "21", "11:00:00"}},
       "I"},
      {"a valid rule wins", "Front", 1, 3, {in_at_8}, "LR"},
      {"an invalid rule", "Front", 0, 4, {in_at_8}, "O"},
      {"rules off for the clock", "Front, usepunchtype=false", 0, 3, {in_at_8}, "O"},
      {"in/out key: out", "Front, in/out=true", 1, 0, {}, "O"},
      {"in/out key: in, even when in", "Front, in/out=true", 0, 0, {in_at_8}, "I"},
      {"in/out key: break out", "Front, in/out=true", 2, 0, {}, "BO"},
      {"in/out key without meaning", "Front, in/out=true", 9, 0, {in_at_8}, "O"},
      {"switch: an in while in", "Front, in/out,switch=true", 0, 0, {in_at_8}, "SW"},
      {"switch: an in while out", "Front, in/out,switch=true", 0, 0, {}, "I"},
  };
  records::test_support::TransferFixture site;
  std::ofstream(site.dir.path() / kPunchTypeRulesFile) << "3=LR\n4=XX\n5=to\n";
  const PunchTypeRules rules(site.dir.path(), site.log);
  auto text = [](const char* s, const char* prefix) {
    return s ? db::Value(std::string(prefix) + s) : db::Value();
  };
  for (const auto& c : cases) {
    auto db = site.OpenCompanyDb();
    db->Execute("DELETE FROM [Clock Data Table]");
    for (const Row& r : c.history) {
      db->Execute(
          "INSERT INTO [Clock Data Table] ([Card ID], [Punch Type], [Date In], [Time In], "
          "[Date Out], [Time Out]) VALUES (?, ?, ?, ?, ?, ?)",
          {static_cast<int64_t>(r.badge), r.type, text(r.date_in, "2009-10-"), text(r.time_in, ""),
           text(r.date_out, "2009-10-"), text(r.time_out, "")});
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
