// The tables of the databases the system keeps, with the names the time-card application knows.
// Each function brings a database to the newest shape of its kind (see schema_version.h): it
// creates what is missing, runs the migration steps a database made by an older program lacks,
// and leaves rows alone. A database written by a newer program is refused (SchemaTooNewError).
#pragma once

#include <string>

#include "db/database.h"

namespace clockcomm::db {

// File names of the SQLite databases under the data directory.
inline constexpr const char* kEventLogFile = "TCLOG.db";
inline constexpr const char* kCompanyRegistryFile = "COMPANY3.db";
inline constexpr const char* kProductDatabaseFile = "Clockwyn.db";
// The database of one company, in that company's directory.
inline constexpr const char* kCompanyDatabaseFile = "Company.db";

// The kinds of database, as named in [Schema Version] and in messages.
enum class SchemaKind { kEventLog, kCompanyRegistry, kProduct, kCompany };
std::string SchemaKindName(SchemaKind kind);
// The version this program makes and reads.
int NewestSchemaVersion(SchemaKind kind);
// Brings db to the newest version of kind.
void MigrateSchema(Database& db, SchemaKind kind);

// TCLOG: table LogTable.
void CreateEventLogSchema(Database& db);
// COMPANY3: table Company.
void CreateCompanyRegistrySchema(Database& db);
// The product database: table PollT, the T4 clocks and their tasks.
void CreateProductSchema(Database& db);
// A company database: [Clock Data Table], [Employee Table], CompanyInfoT, LEVEL1-LEVEL3.
void CreateCompanySchema(Database& db);

}  // namespace clockcomm::db
