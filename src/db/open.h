// Opening a database by where it lives. Callers name a location, never a backend, so a server
// backend can join without touching them.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "db/database.h"

namespace clockcomm::db {

enum class OpenMode {
  kExisting,  // refuse a database that is not there
  kCreate,    // make it when it is missing
};

// How long a statement waits for another connection's lock before it reports the database busy.
inline constexpr std::chrono::milliseconds kDefaultBusyWait{5000};

// Opens the database at location: a postgresql:// (or postgres://) URL names a PostgreSQL
// database, anything else is a SQLite file path. Throws DatabaseError naming it (never a password).
std::unique_ptr<Database> Open(const std::filesystem::path& location,
                               OpenMode mode = OpenMode::kExisting,
                               std::chrono::milliseconds busy_wait = kDefaultBusyWait);

}  // namespace clockcomm::db
