#include "db/schema_version.h"

#include <cstdint>
#include <optional>

#include "db/location.h"

namespace clockcomm::db {
namespace {

constexpr const char* kVersionTable = "Schema Version";
// The server-wide lock migrations take; any number other programs do not use.
constexpr int64_t kMigrationLock = 0x636c6f636b636f6d;

std::optional<int> ReadVersion(Database& db, const std::string& kind) {
  if (!db.TableExists(kVersionTable)) return std::nullopt;
  auto rs = db.Query("SELECT Version FROM [Schema Version] WHERE [Schema] = ?", {kind});
  if (rs.Eof()) return std::nullopt;
  return static_cast<int>(rs.Field(0).AsInt());
}

void RefuseNewer(Database& db, const std::string& kind, int stored, int newest) {
  if (stored <= newest) return;
  throw SchemaTooNewError(0, "The " + kind + " database " + db.Name() + " has schema version " +
                                 std::to_string(stored) + ", newer than this program knows (" +
                                 std::to_string(newest) +
                                 "): it was written by a newer clockcomm, which must be used");
}

}  // namespace

int StoredSchemaVersion(Database& db, const std::string& kind) {
  return ReadVersion(db, kind).value_or(0);
}

void Migrate(Database& db, const std::string& kind, std::span<const MigrationStep> steps) {
  const int newest = static_cast<int>(steps.size());
  // The usual case reads one row and writes nothing.
  const std::optional<int> seen = ReadVersion(db, kind);
  if (seen == newest) return;
  RefuseNewer(db, kind, seen.value_or(0), newest);

  std::optional<Transaction> own;
  if (!db.InTransaction()) own.emplace(db);
  // SQLite's write transaction already keeps other writers out; a server needs a lock of its own,
  // or two programs making the same tables at once collide. Held until the commit.
  if (IsServerLocation(db.Name())) db.Query("SELECT pg_advisory_xact_lock(?)", {kMigrationLock});
  // Read again under the transaction: another process may have migrated meanwhile.
  db.Execute(
      "CREATE TABLE IF NOT EXISTS [Schema Version] ("
      "[Schema] TEXT PRIMARY KEY NOT NULL, Version INTEGER NOT NULL)");
  const std::optional<int> stored = ReadVersion(db, kind);
  RefuseNewer(db, kind, stored.value_or(0), newest);
  for (int v = stored.value_or(0); v < newest; ++v) {
    try {
      steps[v].apply(db);
    } catch (const DatabaseError& e) {
      throw DatabaseError(e.Number(),
                          "Cannot bring the " + kind + " database " + db.Name() +
                              " to schema version " + std::to_string(v + 1) + " (" + steps[v].what +
                              "): " + e.Description(),
                          e.GetCause());
    }
  }
  if (stored) {
    db.Execute("UPDATE [Schema Version] SET Version = ? WHERE [Schema] = ?", {newest, kind});
  } else {
    db.Execute("INSERT INTO [Schema Version] ([Schema], Version) VALUES (?, ?)", {kind, newest});
  }
  if (own) own->Commit();
}

}  // namespace clockcomm::db
