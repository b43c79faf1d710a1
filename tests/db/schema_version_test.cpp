// Schema versions and forward migrations, on SQLite and on a real PostgreSQL server.
#include "db/schema_version.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "db/open.h"
#include "db/schema.h"
#include "test_support/postgres_schema.h"
#include "test_support/postgres_test_server.h"
#include "test_support/temp_dir.h"

namespace clockcomm::db {
namespace {
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

struct Backend {
  std::string name;
  std::function<std::string(const test::TempDir& dir)> empty;  // an empty database's location
};
void PrintTo(const Backend& backend, std::ostream* os) { *os << backend.name; }

const Backend kBackends[] = {
    {"SQLite", [](const test::TempDir& dir) { return (dir.path() / "v.db").string(); }},
    {"PostgreSQL", [](const test::TempDir&) {
       const std::string url = test::PostgresTestServer::Get().Url();
       auto db = Open(url);
       db->Execute("DROP SCHEMA public CASCADE");
       db->Execute("CREATE SCHEMA public");
       return url;
     }}};

constexpr SchemaKind kKinds[] = {SchemaKind::kEventLog, SchemaKind::kCompanyRegistry,
                                 SchemaKind::kProduct, SchemaKind::kCompany};

class SchemaVersionTest : public ::testing::TestWithParam<Backend> {
 protected:
  void SetUp() override { db_ = Open(GetParam().empty(dir_), OpenMode::kCreate); }
  int Stored(SchemaKind kind) { return StoredSchemaVersion(*db_, SchemaKindName(kind)); }
  // table as written in SQL: [Bracketed] or a plain name.
  int64_t Count(const std::string& table) {
    return db_->Query("SELECT COUNT(*) FROM " + table).Field(0).AsInt();
  }

  test::TempDir dir_;
  std::unique_ptr<Database> db_;
};

// Every kind reaches its newest version in one database (each kind keeps its own row), and a
// second run writes nothing.
TEST_P(SchemaVersionTest, FreshDatabasesReachTheNewestVersionOnce) {
  for (SchemaKind kind : kKinds) {
    EXPECT_EQ(Stored(kind), 0);
    MigrateSchema(*db_, kind);
    EXPECT_EQ(Stored(kind), NewestSchemaVersion(kind)) << SchemaKindName(kind);
  }
  EXPECT_EQ(Count("[Schema Version]"), 4);
  db_->Execute("INSERT INTO PollT (LocationName, TerminalType) VALUES ('Dock', 1)");
  for (SchemaKind kind : kKinds) MigrateSchema(*db_, kind);
  EXPECT_EQ(Count("[Schema Version]"), 4);
  EXPECT_EQ(Count("PollT"), 1);
  EXPECT_EQ(Count("CompanyInfoT"), 1);
}

// A poll list made before versions were kept, in its old shape and with a row, gains the new
// column and tables and keeps the row; so does one whose stored version is behind tables that an
// interrupted older run had already made.
TEST_P(SchemaVersionTest, OlderDatabasesAreMigratedAndKeepTheirRows) {
  db_->Execute(
      "CREATE TABLE PollT (LocationID INTEGER PRIMARY KEY, LocationName TEXT NOT NULL, "
      "LocationPhone TEXT NOT NULL DEFAULT '', DialTime TEXT, "
      "SelectToDial INTEGER NOT NULL DEFAULT 1, TerminalID TEXT NOT NULL DEFAULT '')");
  db_->Execute("INSERT INTO PollT (LocationID, LocationName) VALUES (7, 'Dock')");
  db_->Execute("CREATE TABLE [Clock Data Table] (ID INTEGER PRIMARY KEY, [Card ID] INTEGER)");
  db_->Execute("INSERT INTO [Clock Data Table] (ID, [Card ID]) VALUES (1, 42)");
  ASSERT_FALSE(db_->HasColumn("PollT", "TerminalType"));

  CreateProductSchema(*db_);
  CreateCompanySchema(*db_);
  EXPECT_TRUE(db_->HasColumn("PollT", "TerminalType"));
  EXPECT_TRUE(db_->TableExists("T4Clocks"));
  EXPECT_TRUE(db_->TableExists("LEVEL3"));
  auto rs = db_->Query("SELECT LocationID, LocationName, TerminalType FROM PollT");
  EXPECT_EQ(rs.Field(0).AsInt(), 7);
  EXPECT_EQ(rs.Field(1).AsText(), "Dock");
  EXPECT_TRUE(rs.Field(2).IsNull());
  EXPECT_EQ(Count("[Clock Data Table]"), 1);
  EXPECT_EQ(Stored(SchemaKind::kProduct), NewestSchemaVersion(SchemaKind::kProduct));

  db_->Execute("UPDATE [Schema Version] SET Version = 1 WHERE [Schema] = 'poll list'");
  CreateProductSchema(*db_);
  EXPECT_EQ(Stored(SchemaKind::kProduct), NewestSchemaVersion(SchemaKind::kProduct));
  EXPECT_EQ(Count("PollT"), 1);
}

// A database a newer program wrote is refused, naming it and both versions, and left as it is.
TEST_P(SchemaVersionTest, NewerDatabasesAreRefused) {
  CreateEventLogSchema(*db_);
  const int newer = NewestSchemaVersion(SchemaKind::kEventLog) + 1;
  db_->Execute("UPDATE [Schema Version] SET Version = ?", {newer});
  EXPECT_THAT(
      [&] { CreateEventLogSchema(*db_); },
      ThrowsMessage<SchemaTooNewError>(AllOf(HasSubstr("event log database " + db_->Name()),
                                             HasSubstr("schema version " + std::to_string(newer)),
                                             HasSubstr("(" + std::to_string(newer - 1) + ")"))));
  EXPECT_EQ(Stored(SchemaKind::kEventLog), newer);
}

// A step that fails leaves the database at its old version, with nothing of the run kept.
TEST_P(SchemaVersionTest, AFailedStepKeepsNothing) {
  static constexpr MigrationStep kSteps[] = {
      {"table A", [](Database& db) { db.Execute("CREATE TABLE A (x INTEGER)"); }},
      {"broken", [](Database& db) { db.Execute("ALTER TABLE [No Table] ADD COLUMN y INTEGER"); }}};
  EXPECT_THAT([&] { Migrate(*db_, "test", kSteps); },
              ThrowsMessage<DatabaseError>(HasSubstr("to schema version 2 (broken)")));
  EXPECT_FALSE(db_->InTransaction());
  EXPECT_FALSE(db_->TableExists("A"));
  EXPECT_EQ(StoredSchemaVersion(*db_, "test"), 0);
}

INSTANTIATE_TEST_SUITE_P(Backends, SchemaVersionTest, ::testing::ValuesIn(kBackends),
                         [](const auto& param_info) { return param_info.param.name; });

// Programs that open the same new server database at once each make its tables; none fails.
TEST(SchemaVersion, ProgramsMigratingAtOnceOnAServerWaitForEachOther) {
  for (int round = 0; round < 3; ++round) {
    const std::string url = test::FreshPostgresSchema("migrate_at_once");
    std::vector<std::unique_ptr<Database>> programs;
    for (int i = 0; i < 4; ++i) programs.push_back(Open(url));
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (auto& db : programs) {
      threads.emplace_back([&failures, &db] {
        try {
          CreateCompanySchema(*db);
        } catch (const DatabaseError&) {
          ++failures;
        }
      });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Open(url)->Query("SELECT COUNT(*) FROM CompanyInfoT").Field(0).AsInt(), 1);
  }
}

}  // namespace
}  // namespace clockcomm::db
