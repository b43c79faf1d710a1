#include "db/sqlite/sqlite_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "core/errors.h"
#include "db/schema.h"
#include "db/sqlite/sqlite_backup.h"
#include "test_support/temp_dir.h"

namespace clockcomm::db {
namespace {
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

TEST(SqliteDatabase, MissingOrCorruptFilesAreRefusedWithTheirName) {
  test::TempDir dir;
  const auto missing = dir.path() / "nothere.db";
  EXPECT_THAT([&] { SqliteDatabase::Open(missing); },
              ThrowsMessage<DatabaseError>(HasSubstr("nothere.db")));
  EXPECT_FALSE(std::filesystem::exists(missing));  // and did not create it
  const auto corrupt = dir.path() / "corrupt.db";
  std::ofstream(corrupt) << std::string(4096, 'x');
  EXPECT_THAT([&] { SqliteDatabase::Open(corrupt); },
              ThrowsMessage<DatabaseError>(HasSubstr("corrupt.db")));
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

// A prepared statement run again with new values: each run takes only its own values, text is
// stored as bound, and a failing run names the file and leaves the statement usable.
TEST(SqliteDatabase, PreparedStatementsRunAgainWithEachRunsValues) {
  test::TempDir dir;
  auto db = SqliteDatabase::Open(dir.path() / "p.db", SqliteDatabase::Mode::kCreate);
  db->Execute("CREATE TABLE t (k INTEGER PRIMARY KEY, v TEXT, r REAL)");
  auto insert = db->Prepare("INSERT INTO t (k, v, r) VALUES (?, ?, ?)");
  const std::string hostile = "x'); DROP TABLE t; --";
  insert->BindInt(1, 1);
  insert->BindText(2, hostile);
  insert->BindReal(3, 2.5);
  EXPECT_EQ(insert->Execute(), 1);
  insert->BindInt(1, 2);
  insert->BindNull(2);
  insert->BindNull(3);
  EXPECT_EQ(insert->Execute(), 1);
  insert->BindInt(1, 2);  // the key again
  EXPECT_THAT([&] { insert->Execute(); }, ThrowsMessage<DatabaseError>(HasSubstr("p.db")));
  auto find = db->Prepare("SELECT 1 FROM t WHERE k = ? AND v IS ?");
  find->BindInt(1, 1);
  find->BindText(2, hostile);
  EXPECT_TRUE(find->HasRow());
  find->BindInt(1, 2);
  find->BindNull(2);
  EXPECT_TRUE(find->HasRow());
  find->BindText(2, hostile);
  EXPECT_FALSE(find->HasRow());
  EXPECT_THROW(db->Prepare("SELECT FROM nowhere"), DatabaseError);
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

// A backup taken while another connection writes holds what was committed, stands alone (no
// WAL beside it) and is whole; a source that is not there fails naming it.
TEST(SqliteBackup, CopiesWhatIsCommittedWhileAWriterWorks) {
  test::TempDir dir;
  auto live = SqliteDatabase::Open(dir.path() / "live.db", SqliteDatabase::Mode::kCreate);
  live->Execute("CREATE TABLE t (v INTEGER)");
  for (int i = 0; i < 100; ++i) live->Execute("INSERT INTO t (v) VALUES (?)", {i});
  live->BeginTransaction();
  live->Execute("INSERT INTO t (v) VALUES (1000)");
  const auto copy = dir.path() / "copy" / "live.db";
  std::filesystem::create_directory(copy.parent_path());
  EXPECT_GT(BackupSqliteFile(dir.path() / "live.db", copy), 0);
  live->Commit();
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(copy.parent_path()), {}), 1)
      << "nothing but the copy";

  auto copied = SqliteDatabase::Open(copy);
  EXPECT_EQ(copied->Query("SELECT COUNT(*), MAX(v) FROM t").Field(0).AsInt(), 100);
  EXPECT_EQ(copied->Query("PRAGMA integrity_check").Field(0).AsText(), "ok");
  EXPECT_THAT([&] { BackupSqliteFile(dir.path() / "gone.db", dir.path() / "gone-copy.db"); },
              ThrowsMessage<core::SystemError>(HasSubstr("gone.db")));
}

}  // namespace
}  // namespace clockcomm::db
