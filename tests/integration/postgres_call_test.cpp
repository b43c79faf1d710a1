// The road of a punch into a company database on a PostgreSQL server: a terminal calls in over a
// pty, and the intake's transfer puts each punch into the server's [Clock Data Table] once.
#include <gtest/gtest.h>

#include "db/table_copy.h"
#include "integration/call_fixture.h"
#include "sim/zon_terminal.h"
#include "test_support/postgres_schema.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

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
    for (const db::KeyedTable& keyed :
         std::vector<db::KeyedTable>{{"[Employee Table]", {"[Card ID]"}},
                                     {"LEVEL1", {"[Card ID]"}},
                                     {"LEVEL2", {"Code"}},
                                     {"LEVEL3", {"Code"}}}) {
      ASSERT_TRUE(db::CopyTable(*company_db_, *server, keyed, true).Complete()) << keyed.table;
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

// The demo's whole road with every database on the server: hosted, network, modem and ATS calls
// and the T4 host, each punch into the server's company database (the demo fails otherwise), and
// no password in what it prints.
TEST(PostgresDemoTest, TheDemosRoadRunsIntoTheServer) {
  const auto& server = PostgresTestServer::Get();
  TempDir home;
  const CommandResult r =
      RunClockcomm(home.path() / "demo", "demo --database '" + server.Url() + "'");
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  EXPECT_EQ(r.out.find(server.Password()), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(home.path() / "demo/data/demo/Company.db"));
  auto company = db::Open(db::LocationInSchema(server.Url(), "demo_company"));
  const int64_t rows = company->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt();
  EXPECT_NE(r.out.find("Rows in [Clock Data Table]: " + std::to_string(rows) + "\n"),
            std::string::npos)
      << r.out;
  EXPECT_GT(db::Open(db::LocationInSchema(server.Url(), "demo_site"))
                ->Query("SELECT COUNT(*) FROM LogTable")
                .Field(0)
                .AsInt(),
            0);
}

}  // namespace
}  // namespace clockcomm::test
