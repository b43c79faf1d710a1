#include "db/location.h"

#include <gtest/gtest.h>

#include "db/open.h"
#include "test_support/postgres_schema.h"

namespace clockcomm::db {
namespace {

TEST(Location, PasswordsAreNeverShown) {
  const struct {
    const char* location;
    const char* shown;
  } cases[] = {
      {"/data/acme/Company.db", "/data/acme/Company.db"},
      {"data/user:pw@x.db", "data/user:pw@x.db"},  // a file, however it looks
      {"postgresql://cc:s3cret@db:5432/company3", "postgresql://cc:***@db:5432/company3"},
      {"postgres://cc:p@ss:w@rd@db/x?sslmode=require", "postgres://cc:***@db/x?sslmode=require"},
      {"postgresql://cc@db:5432/x", "postgresql://cc@db:5432/x"},
      {"postgresql://db/x?user=cc&password=s3cret&sslmode=require",
       "postgresql://db/x?user=cc&password=***&sslmode=require"},
      {"postgresql://db/x?passwordless=1", "postgresql://db/x?passwordless=1"},
  };
  for (const auto& c : cases) EXPECT_EQ(ShownLocation(c.location), c.shown) << c.location;
  EXPECT_TRUE(IsServerLocation("postgresql://db/x"));
  EXPECT_FALSE(IsServerLocation("/srv/postgresql://x"));
}

// libpq takes the schema from the URL: tables made through it land in that schema only.
TEST(Location, ASchemaOfItsOwnHoldsTheTables) {
  const std::string url = test::FreshPostgresSchema("location_a");
  EXPECT_EQ(LocationInSchema("postgresql://h/d", "s1"),
            "postgresql://h/d?options=-csearch_path%3Ds1");
  EXPECT_EQ(LocationInSchema("postgresql://h/d?sslmode=disable", "s1"),
            "postgresql://h/d?sslmode=disable&options=-csearch_path%3Ds1");
  auto db = Open(url);
  db->Execute("CREATE TABLE [Only Here] (x INTEGER)");
  EXPECT_TRUE(db->TableExists("Only Here"));
  EXPECT_FALSE(Open(test::FreshPostgresSchema("location_b"))->TableExists("Only Here"));
}

}  // namespace
}  // namespace clockcomm::db
