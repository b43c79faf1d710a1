#include "db/open.h"

#include "db/sqlite/sqlite_database.h"

namespace clockcomm::db {

std::unique_ptr<Database> Open(const std::filesystem::path& location, OpenMode mode,
                               std::chrono::milliseconds busy_wait) {
  return SqliteDatabase::Open(
      location,
      mode == OpenMode::kCreate ? SqliteDatabase::Mode::kCreate : SqliteDatabase::Mode::kExisting,
      busy_wait);
}

}  // namespace clockcomm::db
