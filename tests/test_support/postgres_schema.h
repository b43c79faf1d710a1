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

// Drops and makes a database of that name on the test server; gives its URL.
inline std::string FreshPostgresDatabase(const std::string& name) {
  auto db = db::Open(PostgresTestServer::Get().Url());
  db->Execute("DROP DATABASE IF EXISTS " + name);
  db->Execute("CREATE DATABASE " + name);
  return PostgresTestServer::Get().Url(name);
}

}  // namespace clockcomm::test
