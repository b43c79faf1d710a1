// The two database backends for tests that run on both: a SQLite file in a temporary folder, and
// an emptied database on the test program's own PostgreSQL server.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>

#include "db/open.h"
#include "test_support/postgres_test_server.h"
#include "test_support/temp_dir.h"

namespace clockcomm::test {

struct Backend {
  std::string name;
  // The location of an empty database (made in dir for a file).
  std::function<std::string(const TempDir& dir)> empty;
};
inline void PrintTo(const Backend& backend, std::ostream* os) { *os << backend.name; }

inline const Backend kSqlite{"SQLite",
                             [](const TempDir& dir) { return (dir.path() / "t.db").string(); }};
inline const Backend kPostgres{"PostgreSQL", [](const TempDir&) {
                                 const std::string url = PostgresTestServer::Get().Url();
                                 auto db = db::Open(url);
                                 db->Execute("DROP SCHEMA public CASCADE");
                                 db->Execute("CREATE SCHEMA public");
                                 return url;
                               }};

// For INSTANTIATE_TEST_SUITE_P: the backend's name as the test's.
inline std::string BackendName(const ::testing::TestParamInfo<Backend>& info) {
  return info.param.name;
}

}  // namespace clockcomm::test
