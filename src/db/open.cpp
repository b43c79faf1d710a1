#include "db/open.h"

#include "db/sqlite/sqlite_database.h"

namespace clockcomm::db {

std::unique_ptr<Database> Open(const std::filesystem::path& location, OpenMode mode) {
  return SqliteDatabase::Open(location, mode == OpenMode::kCreate
                                            ? SqliteDatabase::Mode::kCreate
                                            : SqliteDatabase::Mode::kExisting);
}

}  // namespace clockcomm::db
