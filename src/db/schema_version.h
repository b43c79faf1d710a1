// The shape each database has, by version: table [Schema Version] holds one row per kind of
// database it serves, and an ordered list of steps brings an older database up to the newest.
#pragma once

#include <span>
#include <string>

#include "db/database.h"

namespace clockcomm::db {

// One step from version n-1 to n. Every step is idempotent (CREATE ... IF NOT EXISTS, a column
// added only when missing), so a database made before versions were kept, which counts as version
// 0, converges whatever shape it had.
struct MigrationStep {
  const char* what;
  void (*apply)(Database& db);
};

// A database written by a newer program: this one does not know its shape and leaves it alone.
class SchemaTooNewError : public DatabaseError {
 public:
  using DatabaseError::DatabaseError;
};

// The version of kind stored in db; 0 when the database has no [Schema Version] row for it.
int StoredSchemaVersion(Database& db, const std::string& kind);

// Runs the steps after the stored version, in one transaction (the caller's, when one is open),
// and stores the new version. Nothing is written when the database is already at the newest.
// Throws SchemaTooNewError naming the database and both versions when it is newer than steps.
void Migrate(Database& db, const std::string& kind, std::span<const MigrationStep> steps);

}  // namespace clockcomm::db
