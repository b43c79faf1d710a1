// The filtered, paged queries the console lists the event log and a company's punches with, on
// both backends: the same SQL text must mean the same rows on SQLite and on PostgreSQL.
#include <gtest/gtest.h>

#include "db/schema.h"
#include "records/stored_punches.h"
#include "shell/event_log.h"
#include "test_support/backends.h"

namespace clockcomm::shell {
namespace {

core::DateTime At(int d, int hh) { return *core::DateTime::FromParts(2009, 10, d, hh, 0, 0); }
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
