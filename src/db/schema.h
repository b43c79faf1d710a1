// The tables of the databases the system keeps, with the names the time-card application knows.
// Every function is idempotent: it creates what is missing and leaves existing tables alone.
#pragma once

#include "db/database.h"

namespace clockcomm::db {

// File names of the SQLite databases under the data directory.
inline constexpr const char* kEventLogFile = "TCLOG.db";
inline constexpr const char* kCompanyRegistryFile = "COMPANY3.db";
inline constexpr const char* kProductDatabaseFile = "Clockwyn.db";
// The database of one company, in that company's directory.
inline constexpr const char* kCompanyDatabaseFile = "Company.db";

// TCLOG: table LogTable.
void CreateEventLogSchema(Database& db);
// COMPANY3: table Company.
void CreateCompanyRegistrySchema(Database& db);
// The product database: table PollT.
void CreateProductSchema(Database& db);
// A company database: [Clock Data Table], [Employee Table], CompanyInfoT, LEVEL1-LEVEL3.
void CreateCompanySchema(Database& db);

}  // namespace clockcomm::db
