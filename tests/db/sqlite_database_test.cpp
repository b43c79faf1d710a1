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
