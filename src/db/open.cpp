#include "db/open.h"

#include "db/postgres/postgres_database.h"
#include "db/sqlite/sqlite_database.h"

namespace clockcomm::db {

std::unique_ptr<Database> Open(const std::filesystem::path& location, OpenMode mode,
                               std::chrono::milliseconds busy_wait) {
  // A server's database is made by its administrator, so kCreate does not apply there.
  if (IsPostgresLocation(location.native())) {
    return PostgresDatabase::Open(location.native(), busy_wait);
  }
  return SqliteDatabase::Open(
      location,
      mode == OpenMode::kCreate ? SqliteDatabase::Mode::kCreate : SqliteDatabase::Mode::kExisting,
      busy_wait);
}

}  // namespace clockcomm::db
