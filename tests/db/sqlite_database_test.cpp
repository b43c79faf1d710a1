#include "db/sqlite/sqlite_database.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "db/schema.h"
#include "test_support/temp_dir.h"

namespace clockcomm::db {
namespace {

TEST(SqliteDatabase, MissingOrCorruptFilesAreRefusedWithTheirName) {
  test::TempDir dir;
  const auto missing = dir.path() / "nothere.db";
  try {
    SqliteDatabase::Open(missing);
    FAIL() << "opened a missing file";
  } catch (const DatabaseError& e) {
    EXPECT_NE(std::string(e.what()).find("nothere.db"), std::string::npos) << e.what();
  }
  EXPECT_FALSE(std::filesystem::exists(missing));  // and did not create it

  const auto corrupt = dir.path() / "corrupt.db";
  std::ofstream(corrupt) << std::string(4096, 'x');
  try {
    SqliteDatabase::Open(corrupt);
    FAIL() << "opened a corrupt file";
  } catch (const DatabaseError& e) {
    EXPECT_NE(std::string(e.what()).find("corrupt.db"), std::string::npos) << e.what();
  }
}

TEST(SqliteDatabase, BoundValuesRoundTripIncludingNullAndHostileText) {
  test::TempDir dir;
  auto db = SqliteDatabase::Open(dir.path() / "c.db", SqliteDatabase::Mode::kCreate);
  CreateCompanySchema(*db);
  const std::string hostile = "x'); DROP TABLE [Clock Data Table]; --";
  db->Execute(
      "INSERT INTO [Clock Data Table] (Punch, [Card ID], Department, JobNumber, [Date In], "
      "[Time In], Tips) VALUES (?, ?, ?, ?, ?, ?, ?)",
      {5, 1234, Value(), hostile, core::Date::FromYmdOrThrow(2009, 10, 20),
       *core::TimeOfDay::FromHms(12, 24), 12.5});
  auto rs = db->Query("SELECT * FROM [Clock Data Table]");
  ASSERT_FALSE(rs.Eof());
  EXPECT_EQ(rs.Field("Punch").AsInt(), 5);
  EXPECT_EQ(rs.Field("[Card ID]").AsInt(), 1234);
  EXPECT_TRUE(rs.Field("department").IsNull());
  EXPECT_EQ(rs.Field("JobNumber").AsText(), hostile);
  EXPECT_EQ(rs.Field("Date In").AsDate()->ToString(), "2009-10-20");
  EXPECT_EQ(rs.Field("Time In").AsTime()->ToString(), "12:24:00");
  EXPECT_EQ(rs.Field("Tips").AsDouble(), 12.5);
  EXPECT_THROW(rs.Field("NoSuchColumn"), core::ItemNotFoundException);
  rs.MoveNext();
  EXPECT_TRUE(rs.Eof());
  EXPECT_THROW(rs.Field("Punch"), core::InvalidOperationException);
}

TEST(SqliteDatabase, TransactionsCommitOrRollBack) {
  test::TempDir dir;
  const auto path = dir.path() / "t.db";
  {
    auto db = SqliteDatabase::Open(path, SqliteDatabase::Mode::kCreate);
    CreateEventLogSchema(*db);
    {
      Transaction tx(*db);
      db->Execute("INSERT INTO LogTable ([DateTime], EventType) VALUES ('x', 'kept')");
      tx.Commit();
    }
    {
      Transaction tx(*db);
      db->Execute("INSERT INTO LogTable ([DateTime], EventType) VALUES ('x', 'dropped')");
    }  // no commit: rolled back
    EXPECT_THROW(db->Execute("INSERT INTO NoTable VALUES (1)"), DatabaseError);
  }
  auto reopened = SqliteDatabase::Open(path);
  auto rs = reopened->Query("SELECT EventType FROM LogTable");
  ASSERT_EQ(rs.RecordCount(), 1u);
  EXPECT_EQ(rs.Field(0).AsText(), "kept");
}

TEST(SqliteDatabase, ALockedDatabaseIsReportedAsBusy) {
  test::TempDir dir;
  const auto path = dir.path() / "l.db";
  auto first = SqliteDatabase::Open(path, SqliteDatabase::Mode::kCreate);
  CreateEventLogSchema(*first);
  first->BeginTransaction();
  first->Execute("INSERT INTO LogTable ([DateTime]) VALUES ('x')");
  // The busy wait given at open is how long the second connection waits for the lock.
  auto second =
      SqliteDatabase::Open(path, SqliteDatabase::Mode::kExisting, std::chrono::milliseconds(50));
  const auto start = std::chrono::steady_clock::now();
  try {
    second->BeginTransaction();
    FAIL() << "took a lock that another connection holds";
  } catch (const DatabaseError& e) {
    EXPECT_TRUE(e.Busy()) << e.what();
  }
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(50));
  EXPECT_LT(waited, kDefaultBusyWait);
  first->Commit();
}

TEST(Schema, CreatingTwiceKeepsTheData) {
  test::TempDir dir;
  auto db = SqliteDatabase::Open(dir.path() / "s.db", SqliteDatabase::Mode::kCreate);
  CreateCompanySchema(*db);
  db->Execute("INSERT INTO [Employee Table] ([Card ID], [Home Department]) VALUES (1, 7)");
  CreateCompanySchema(*db);
  EXPECT_EQ(db->Query("SELECT COUNT(*) FROM [Employee Table]").Field(0).AsInt(), 1);
  EXPECT_EQ(db->Query("SELECT COUNT(*) FROM CompanyInfoT").Field(0).AsInt(), 1);
  for (const char* t :
       {"Clock Data Table", "Employee Table", "CompanyInfoT", "LEVEL1", "LEVEL2", "LEVEL3"}) {
    EXPECT_TRUE(db->TableExists(t)) << t;
  }
}

}  // namespace
}  // namespace clockcomm::db
