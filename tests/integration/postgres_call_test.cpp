// The road of a punch into a company database on a PostgreSQL server: a terminal calls in over a
// pty, and the intake's transfer puts each punch into the server's [Clock Data Table] once.
#include <gtest/gtest.h>

#include "db/table_copy.h"
#include "integration/call_fixture.h"
#include "sim/zon_terminal.h"
#include "test_support/postgres_schema.h"

namespace clockcomm::test {
namespace {

class PostgresCallTest : public CallFixture {
 protected:
  void SetUp() override {
    CallFixture::SetUp();
    // The fixture's company moves to the server with its employees and validation tables.
    const std::string url = FreshPostgresSchema("call_company");
    auto server = db::Open(url);
    db::CreateCompanySchema(*server);
    for (const db::TableSpec& spec : std::vector<db::TableSpec>{{"[Employee Table]", {"[Card ID]"}},
                                                                {"LEVEL1", {"[Card ID]"}},
                                                                {"LEVEL2", {"Code"}},
                                                                {"LEVEL3", {"Code"}}}) {
      ASSERT_TRUE(db::CopyTable(*company_db_, *server, spec, true).Complete()) << spec.table;
    }
    db::Open(paths_->CompanyRegistryDatabase())
        ->Execute("UPDATE Company SET [Database] = ?", {url});
    company_db_ = std::move(server);
    Wire();
  }
};

// A call completes and its punches go into the server; the same batch again adds none.
TEST_F(PostgresCallTest, EachPunchOfACallGoesIntoTheServerOnce) {
  sim::ZonTerminal terminal(sim::TerminalConfig{}, Punches(3));
  EXPECT_EQ(HostOnce(terminal), sim::CallOutcome::kCompleted) << screen_.All();
  EXPECT_TRUE(terminal.PendingPunches().empty());
  ExpectEachPunchOnce(3);
  // The same batch sent again (its EOT lost): nothing doubles.
  sim::ZonTerminal again(sim::TerminalConfig{}, Punches(3));
  EXPECT_EQ(HostOnce(again), sim::CallOutcome::kCompleted) << screen_.All();
  ExpectEachPunchOnce(3);
  EXPECT_EQ(Rows(), 3);
}

}  // namespace
}  // namespace clockcomm::test
