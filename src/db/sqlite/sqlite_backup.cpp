#include "db/sqlite/sqlite_backup.h"

#include <sqlite3.h>

#include <memory>
#include <string>

#include "core/durable_file.h"
#include "core/errors.h"

namespace clockcomm::db {
namespace {

using Connection = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;

Connection OpenFile(const std::filesystem::path& path, int flags) {
  sqlite3* handle = nullptr;
  const int rc = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
  Connection connection(handle, &sqlite3_close);
  if (rc != SQLITE_OK) {
    throw core::SystemError(rc, std::string(handle ? sqlite3_errmsg(handle) : sqlite3_errstr(rc)) +
                                    " (" + path.string() + ")");
  }
  return connection;
}

}  // namespace

int64_t BackupSqliteFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  std::filesystem::path partial = to;
  partial += ".partial";
  std::filesystem::remove(partial);
  {
    Connection source = OpenFile(from, SQLITE_OPEN_READONLY);
    // A writer's commit in progress holds the source for a moment: SQLite waits on it, bounded.
    sqlite3_busy_timeout(source.get(), 10'000);
    Connection copy = OpenFile(partial, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    sqlite3_backup* backup = sqlite3_backup_init(copy.get(), "main", source.get(), "main");
    if (backup == nullptr) {
      throw core::SystemError(sqlite3_errcode(copy.get()), std::string(sqlite3_errmsg(copy.get())) +
                                                               " (" + partial.string() + ")");
    }
    // All pages in one step: the copy is of one moment, whatever the writers do meanwhile.
    const int step = sqlite3_backup_step(backup, -1);
    const int finish = sqlite3_backup_finish(backup);
    if (step != SQLITE_DONE || finish != SQLITE_OK) {
      const int rc = step != SQLITE_DONE ? step : finish;
      throw core::SystemError(rc, std::string(sqlite3_errstr(rc)) + " (" + from.string() + ")");
    }
    // The copy stands alone: no WAL beside it.
    sqlite3_exec(copy.get(), "PRAGMA journal_mode=DELETE", nullptr, nullptr, nullptr);
  }
  core::SyncFile(partial);
  std::filesystem::rename(partial, to);
  core::SyncDirectory(to.parent_path());
  return static_cast<int64_t>(std::filesystem::file_size(to));
}

}  // namespace clockcomm::db
