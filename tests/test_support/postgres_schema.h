// A schema of its own on the test server, for a test that needs several databases or a site.
#pragma once

#include <string>

#include "db/location.h"
#include "db/open.h"
#include "test_support/postgres_test_server.h"

namespace clockcomm::test {

// Drops and makes schema on the test server; gives the URL whose tables live in it.
inline std::string FreshPostgresSchema(const std::string& schema) {
  auto db = db::Open(PostgresTestServer::Get().Url());
  db->Execute("DROP SCHEMA IF EXISTS " + schema + " CASCADE");
  db->Execute("CREATE SCHEMA " + schema);
  return db::LocationInSchema(PostgresTestServer::Get().Url(), schema);
}

}  // namespace clockcomm::test
