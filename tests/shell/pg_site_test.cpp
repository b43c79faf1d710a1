// A site whose databases live on a PostgreSQL server, driven through the built clockcomm binary.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "db/open.h"
#include "shell/install_information.h"
#include "test_support/postgres_schema.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class PostgresSiteTest : public ::testing::Test {
 protected:
  test::CommandResult Run(const std::string& args) {
    return test::RunClockcomm(home_.path(), args);
  }
  int64_t Count(const std::string& url, const std::string& table) {
    return db::Open(url)->Query("SELECT COUNT(*) FROM " + table).Field(0).AsInt();
  }
  void SetDatabases(const std::string& event_log, const std::string& registry) {
    InstallInformation install(home_.path());
    install.Load();
    install.SetValue("Databases", "EventLog", event_log);
    install.SetValue("Databases", "Registry", registry);
    install.Save();
  }

  test::TempDir home_;
  const std::string password_ = test::PostgresTestServer::Get().Password();
};

// [Databases] puts the event log and the registry on the server, `company add --database` a
// company's tables; every command then reads and writes there, and no password is ever printed.
TEST_F(PostgresSiteTest, RegistryEventLogAndCompaniesOnTheServer) {
  const std::string site = test::FreshPostgresSchema("site_main");
  const std::string acme = test::FreshPostgresSchema("site_acme");
  SetDatabases(site, site);  // init keeps them
  auto r = Run("init --force");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_TRUE(db::Open(site)->TableExists("LogTable"));

  r = Run("company add Acme --clock Front --dir acme --database '" + acme + "'");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_THAT(r.out,
              AllOf(HasSubstr("database postgresql://clockcomm:***@"), Not(HasSubstr(password_))));
  EXPECT_TRUE(std::filesystem::is_directory(home_.path() / "data/acme"));
  EXPECT_FALSE(std::filesystem::exists(home_.path() / "data/acme/Company.db"));
  EXPECT_EQ(Run("company add Bolt --clock Back --dir bolt --database '" + acme + "'").exit_code, 1)
      << "one database per company";
  EXPECT_EQ(Run("company add Bolt --clock Back --dir bolt --database /tmp/x.db").exit_code, 1);
  EXPECT_EQ(Count(site, "Company"), 1);

  r = Run("company list");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_THAT(r.out, AllOf(HasSubstr("Acme\tFront\tacme\t"), HasSubstr(":***@"),
                           Not(HasSubstr(password_))));
  ASSERT_EQ(Run("employee add --company Acme --card 1234 --name Ann").exit_code, 0);
  EXPECT_EQ(Count(acme, "[Employee Table]"), 1);

  // An event goes to the event log on the server.
  r = Run("transfer --clock NOSUCH nothing.tcd");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(
      db::Open(site)
          ->Query("SELECT COUNT(*) FROM LogTable WHERE EventDes LIKE ?", {"Clock name 'NOSUCH'%"})
          .Field(0)
          .AsInt(),
      1);
  for (const char* file : {"COMPANY3.db", "TCLOG.db"}) {
    EXPECT_FALSE(std::filesystem::exists(home_.path() / "data" / file)) << file;
  }
}

}  // namespace
}  // namespace clockcomm::shell
