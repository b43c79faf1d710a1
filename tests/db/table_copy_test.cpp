// Copying tables from SQLite into PostgreSQL: batches, keys kept, nothing doubled.
#include "db/table_copy.h"

#include <gtest/gtest.h>

#include "db/open.h"
#include "db/schema.h"
#include "test_support/postgres_schema.h"
#include "test_support/temp_dir.h"

namespace clockcomm::db {
namespace {

int64_t Count(Database& db, const std::string& table) {
  return db.Query("SELECT COUNT(*) FROM " + table).Field(0).AsInt();
}

// More rows than one batch, with gaps in the keys and every kind of value, go over whole; again,
// nothing is copied; rows added afterwards on the server get keys past the copied ones.
TEST(TableCopy, KeyedRowsGoOverOnceInBatches) {
  test::TempDir dir;
  auto from = Open(dir.path() / "c.db", OpenMode::kCreate);
  auto to = Open(test::FreshPostgresSchema("copy_keyed"));
  CreateCompanySchema(*from);
  CreateCompanySchema(*to);
  const int kRows = 12001;
  {
    Transaction t(*from);
    for (int i = 1; i <= kRows; ++i) {
      from->Execute(
          "INSERT INTO [Clock Data Table] (ID, [Card ID], JobNumber, Tips, [Date In]) "
          "VALUES (?, ?, ?, ?, ?)",
          {i * 3, int64_t{1} << 40, i % 2 ? Value() : Value("caf\xE9"), 0.1, "2009-10-21"});
    }
    t.Commit();
  }
  std::vector<int64_t> seen;
  const KeyedTable keyed{"[Clock Data Table]", {"ID"}};
  auto r = CopyTable(*from, *to, keyed, true, [&](int64_t done, int64_t total) {
    EXPECT_EQ(total, kRows);
    seen.push_back(done);
  });
  EXPECT_EQ(seen, (std::vector<int64_t>{5000, 10000, 12001}));
  EXPECT_EQ(r.copied, kRows);
  EXPECT_EQ(r.target_rows, kRows);
  EXPECT_TRUE(r.Complete());
  auto row = to->Query("SELECT [Card ID], JobNumber, Tips FROM [Clock Data Table] WHERE ID = 6");
  EXPECT_EQ(row.Field(0).AsInt(), int64_t{1} << 40);
  EXPECT_EQ(row.Field(1).AsText(), "caf\xE9");
  EXPECT_EQ(row.Field(2).AsDouble(), 0.1);

  r = CopyTable(*from, *to, keyed, true);
  EXPECT_EQ(r.copied, 0);
  EXPECT_EQ(Count(*to, "[Clock Data Table]"), kRows);
  to->Execute("INSERT INTO [Clock Data Table] ([Card ID]) VALUES (1)");
  EXPECT_EQ(to->LastInsertId(), kRows * 3 + 1);
  EXPECT_TRUE(CopyTable(*from, *to, keyed, true).Complete()) << "the server may hold more";
}

// A two-column key pages through rows sharing the first column; a table without a key is
// replaced when allowed and otherwise kept, and reported so.
TEST(TableCopy, CompositeKeysAndTablesWithoutKey) {
  test::TempDir dir;
  auto from = Open(dir.path() / "c.db", OpenMode::kCreate);
  auto to = Open(test::FreshPostgresSchema("copy_composite"));
  for (Database* db : {from.get(), to.get()}) {
    db->Execute("CREATE TABLE K (A INTEGER NOT NULL, B INTEGER NOT NULL, PRIMARY KEY (A, B))");
    CreateCompanySchema(*db);
  }
  {
    Transaction t(*from);
    for (int i = 0; i < 6000; ++i)
      from->Execute("INSERT INTO K (A, B) VALUES (?, ?)", {i / 7000, -i});
    t.Commit();
  }
  EXPECT_EQ(CopyTable(*from, *to, {"K", {"A", "B"}}, true).target_rows, 6000);

  from->Execute("UPDATE CompanyInfoT SET [Clock Table Updated] = '2009-10-21'");
  auto kept = CopyTable(*from, *to, {"CompanyInfoT", {}}, false);
  EXPECT_TRUE(kept.kept_target);
  EXPECT_FALSE(kept.Complete());
  auto replaced = CopyTable(*from, *to, {"CompanyInfoT", {}}, true);
  EXPECT_EQ(replaced.copied, 1);
  EXPECT_TRUE(replaced.Complete());
  EXPECT_EQ(to->Query("SELECT [Clock Table Updated] FROM CompanyInfoT").Field(0).AsText(),
            "2009-10-21");
  EXPECT_EQ(CopyTable(*from, *to, {"CompanyInfoT", {}}, false).copied, 0) << "equal: left alone";
}

}  // namespace
}  // namespace clockcomm::db
