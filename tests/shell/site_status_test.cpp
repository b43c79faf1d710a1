// What the console shows of a site: its status, and the event log and punches page by page (the
// same SQL text must mean the same rows on SQLite and on PostgreSQL).
#include "shell/site_status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "db/schema.h"
#include "records/intake/call_state.h"
#include "records/stored_punches.h"
#include "test_support/backends.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {
using ::testing::ElementsAre;
using ::testing::HasSubstr;

core::DateTime At(int d, int hh, int nn = 0) {
  return *core::DateTime::FromParts(2009, 10, d, hh, nn, 0);
}

// 2009-10-21 at noon: DOCK called in, GATE's poll failed, YARD (called daily) was last reached two
// days ago, STRAY is only in the event log, a call file waits for its transfer.
class SiteStatusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* command :
         {"init", "company add Acme --clock DOCK --dir acme",
          "poll-list add GATE --dial-time 06:00", "poll-list add YARD --dial-time 07:00",
          "poll-list add SPARE --dial-time 08:00 --not-selected"}) {
      ASSERT_EQ(test::RunClockcomm(dir_.path(), command).exit_code, 0) << command;
    }
    config_ = MyStatic::Load(dir_.path());
    auto log = EventLog::Open(config_->Paths().EventLogDatabase());
    log->Write(At(19, 7), "YARD", 4, "End of call", "");
    log->Write(At(20, 9), "", 0, "System error", "disk full");
    log->Write(At(21, 6, 1), "GATE", 2, "Outbound Call Failed", "no answer");
    log->Write(At(21, 8), "dock", 1, "Start of call", "Upload type F");
    log->Write(At(21, 8, 1), "DOCK", 1, "End of call", "2 punches");
    log->Write(At(21, 9), "STRAY", 9, "Open Comm", "");
    const auto call_file = config_->Paths().DataDirectory() / "10210001.TCD";
    std::ofstream(call_file) << "1,12,,,,,I,091021,0800\r\n";
    records::WriteCallState(call_file, {.state = records::CallState::kPending});
  }
  test::TempDir dir_;
  std::unique_ptr<MyStatic> config_;
  core::ManualClock clock_{At(21, 12)};
};

TEST_F(SiteStatusTest, EachTerminalsLastContactAndWhatNeedsAttention) {
  const SiteStatus status = GatherSiteStatus(*config_, clock_, ServiceState{});
  std::vector<std::string> terminals;
  for (const TerminalStatus& t : status.terminals) {
    terminals.push_back(t.name + " " + t.known_as + " " +
                        (t.last_contact ? t.last_contact->ToString() : "-") + " " + t.last_event +
                        (t.last_failed ? " failed" : "") + (t.overdue ? " overdue" : ""));
  }
  EXPECT_THAT(
      terminals,
      ElementsAre("DOCK clock of Acme 2009-10-21 08:01:00 End of call: 2 punches",
                  "GATE poll list 2009-10-21 06:01:00 Outbound Call Failed: no answer failed",
                  "YARD poll list 2009-10-19 07:00:00 End of call overdue", "SPARE poll list - ",
                  "STRAY event log 2009-10-21 09:00:00 Open Comm"));
  ASSERT_EQ(status.punches.size(), 1u);
  EXPECT_EQ(status.punches[0].today, 0);
  ASSERT_EQ(status.errors.size(), 2u);
  EXPECT_EQ(status.errors[0].event_type, "Outbound Call Failed") << "newest first";
  EXPECT_EQ(status.errors[1].description, "disk full");
  EXPECT_THAT(status.attention,
              ElementsAre("GATE: Outbound Call Failed: no answer",
                          "YARD was due at 07:00 and not reached since 2009-10-19 07:00:00",
                          "1 call file(s) wait for their transfer (clockcomm pending)"));

  const std::string text = FormatStatusText(status);
  EXPECT_THAT(text, HasSubstr("Service:   unknown"));
  EXPECT_THAT(text, HasSubstr("  YARD (poll list, called at 07:00): last contact 2009-10-19 "
                              "07:00:00, End of call  [overdue]\n"));
  EXPECT_THAT(text, HasSubstr("Needs attention:\n  - GATE"));
  const std::string json = FormatStatusJson(status);
  EXPECT_THAT(json, HasSubstr("\"service\": null"));
  EXPECT_THAT(json, HasSubstr("{\"name\": \"SPARE\", \"known_as\": \"poll list\", \"call_time\": "
                              "null, \"last_contact\": null, \"last_event\": null, "
                              "\"last_failed\": false, \"overdue\": false}"));
  EXPECT_THAT(json, HasSubstr("\"punches_today\": {\"Acme\": 0}"));
}

// A service that is not active needs attention; its status text goes into JSON escaped, as UTF-8.
TEST_F(SiteStatusTest, AStoppedServiceNeedsAttention) {
  const SiteStatus status =
      GatherSiteStatus(*config_, clock_, ServiceState{true, "failed", "failed", "\"no\"\t\x80"});
  EXPECT_EQ(status.attention.front(), "the service is failed");
  EXPECT_THAT(FormatStatusJson(status), HasSubstr("\"status\": \"\\\"no\\\"\\t\u20ac\"}"));
}

core::Date Day(int d) { return At(d, 0).GetDate(); }

class PagedQueriesTest : public ::testing::TestWithParam<test::Backend> {
 protected:
  test::TempDir dir_;
};

TEST_P(PagedQueriesTest, EventLogByPeriodClockTypeAndPage) {
  EventLog log(db::Open(GetParam().empty(dir_), db::OpenMode::kCreate));
  log.Write(At(19, 23), "DOCK", 1, "End of call", "");
  log.Write(At(20, 0), "dock", 1, "Start of call", "");
  log.Write(At(20, 8), "GATE", 2, "Start of call", "");
  log.Write(At(20, 9), "DOCK", 1, "End of call", "");
  log.Write(At(21, 0), "DOCK", 1, "Open Comm", "");
  std::vector<int64_t> found;
  for (const auto& e : log.Find({.from = Day(19), .to = Day(21), .clock_name = "Dock"}, 1, 2)) {
    found.push_back(e.counter);
  }
  EXPECT_EQ(found, (std::vector<int64_t>{2, 4}));
  const EventQuery by_type{
      .from = Day(19), .to = Day(21), .event_type = "Start of call", .after_counter = 2};
  EXPECT_EQ(log.Count(by_type), 1);
  EXPECT_EQ(log.EventTypes({.from = Day(20), .to = Day(20)}),
            (std::vector<std::string>{"End of call", "Start of call"}));
}

TEST_P(PagedQueriesTest, PunchesByBadgeDayAndPage) {
  auto db = db::Open(GetParam().empty(dir_), db::OpenMode::kCreate);
  db::CreateCompanySchema(*db);
  // Badge, in day (else out day), punch type, amount in Tips.
  for (const auto& [badge, in, out, type, tips] :
       std::vector<std::tuple<int, const char*, const char*, const char*, db::Value>>{
           {12, "2009-10-19", nullptr, "I", {}},
           {12, nullptr, "2009-10-20", "O", {}},
           {7, "2009-10-20", nullptr, "I", {}},
           {12, "2009-10-21", nullptr, "T", 12.5}}) {
    db->Execute(
        "INSERT INTO [Clock Data Table] ([Card ID], [Date In], [Date Out], [Punch Type], Tips) "
        "VALUES (?, ?, ?, ?, ?)",
        {badge, in ? db::Value(in) : db::Value(), out ? db::Value(out) : db::Value(), type, tips});
  }
  records::StoredPunches punches(*db);
  std::vector<int64_t> found;
  for (const auto& p : punches.Find({.badge = 12, .after_id = 1}, 1, 1)) found.push_back(p.id);
  EXPECT_EQ(found, (std::vector<int64_t>{4}));
  EXPECT_EQ(punches.Count({.badge = 12, .from = Day(20), .to = Day(21)}), 2);
  const auto tips = punches.Find({.from = Day(21)}, 0, 1).at(0);
  EXPECT_EQ(tips.amount, 12.5);
  EXPECT_EQ(tips.amount_column, "Tips");
}

INSTANTIATE_TEST_SUITE_P(Backends, PagedQueriesTest,
                         ::testing::Values(test::kSqlite, test::kPostgres), test::BackendName);

}  // namespace
}  // namespace clockcomm::shell
