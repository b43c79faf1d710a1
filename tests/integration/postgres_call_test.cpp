// The road of a punch into company databases on a PostgreSQL server. That a punch sent again adds
// no row there is the transfer's backend tests'.
#include <gtest/gtest.h>

#include "db/open.h"
#include "test_support/postgres_schema.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::test {
namespace {

// The demo's calls of every kind and the T4 host with every database on the server (the demo fails
// unless each punch is there), and no password in what it prints.
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
