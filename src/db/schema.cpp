#include "db/schema.h"

#include <span>

#include "db/schema_version.h"

namespace clockcomm::db {
namespace {

// ---- event log ----

void EventLogTable(Database& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS LogTable ("
      "Counter INTEGER PRIMARY KEY AUTOINCREMENT, "
      "[DateTime] TEXT NOT NULL, "
      "ClockName TEXT NOT NULL DEFAULT '', "
      "ClockNumber INTEGER NOT NULL DEFAULT 0, "
      "EventType TEXT NOT NULL DEFAULT '', "
      "EventDes TEXT NOT NULL DEFAULT '')");
  db.Execute("CREATE INDEX IF NOT EXISTS LogTable_DateTime ON LogTable([DateTime])");
}

constexpr MigrationStep kEventLogSteps[] = {{"table LogTable", EventLogTable}};

// ---- company registry ----

void RegistryTable(Database& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS Company ("
      "[Company] TEXT PRIMARY KEY NOT NULL, "
      "[Clock Name] TEXT NOT NULL DEFAULT '', "
      "[Clock Table Updated] TEXT, "
      "[Directory] TEXT NOT NULL DEFAULT '', "
      "[Current Start Date] TEXT, "
      "[Pay Period Type] TEXT NOT NULL DEFAULT 'weekly', "
      "[Current Start Time] TEXT, "
      "CustomDays INTEGER NOT NULL DEFAULT 0)");
}

// A company's database may live elsewhere than <directory>/Company.db: empty keeps the file.
void RegistryDatabaseColumn(Database& db) {
  if (!db.HasColumn("Company", "Database"))
    db.Execute("ALTER TABLE Company ADD COLUMN [Database] TEXT NOT NULL DEFAULT ''");
}

constexpr MigrationStep kRegistrySteps[] = {{"table Company", RegistryTable},
                                            {"column Company.[Database]", RegistryDatabaseColumn}};

// ---- product database (poll list) ----

void PollTable(Database& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS PollT ("
      "LocationID INTEGER PRIMARY KEY, "
      "LocationName TEXT NOT NULL, "
      "LocationPhone TEXT NOT NULL DEFAULT '', "
      "DialTime TEXT, "
      "SelectToDial INTEGER NOT NULL DEFAULT 1, "
      "TerminalID TEXT NOT NULL DEFAULT '')");
}

// A location can have a terminal type of its own.
void PollTerminalType(Database& db) {
  if (!db.HasColumn("PollT", "TerminalType"))
    db.Execute("ALTER TABLE PollT ADD COLUMN TerminalType INTEGER");
}

// The fingerprint terminals the T4 host keeps connected, and their waiting user tasks.
void T4Tables(Database& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS T4Clocks ("
      "ClockID INTEGER PRIMARY KEY, "
      "ClockName TEXT NOT NULL, "
      "Address TEXT NOT NULL, "
      "DeviceNumber INTEGER NOT NULL DEFAULT 1, "
      "Transport TEXT NOT NULL DEFAULT 'tcp', "
      "CommKey INTEGER NOT NULL DEFAULT 0)");
  db.Execute(
      "CREATE TABLE IF NOT EXISTS ClockTasks ("
      "TaskID INTEGER PRIMARY KEY, "
      "ClockID INTEGER NOT NULL, "
      "Task TEXT NOT NULL, "
      "UserID TEXT NOT NULL DEFAULT '')");
}

// The operators of the web console: a name, a role and a password hash (never the password).
void OperatorsTable(Database& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS [Operators] ("
      "[Name] TEXT PRIMARY KEY NOT NULL, "
      "[Role] TEXT NOT NULL, "
      "[Password Hash] TEXT NOT NULL, "
      "[Changed] TEXT)");
}

constexpr MigrationStep kProductSteps[] = {{"table PollT", PollTable},
                                           {"column PollT.TerminalType", PollTerminalType},
                                           {"tables T4Clocks and ClockTasks", T4Tables},
                                           {"table Operators", OperatorsTable}};

// ---- a company's database ----

void CompanyTables(Database& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS [Clock Data Table] ("
      "ID INTEGER PRIMARY KEY AUTOINCREMENT, "
      "Punch INTEGER, [Card ID] INTEGER, Department INTEGER, "
      "JobNumber TEXT, Level4 TEXT, Level5 TEXT, [Punch Type] TEXT, "
      "[Date In] TEXT, [Time In] TEXT, [Date Out] TEXT, [Time Out] TEXT, "
      "Tips REAL, Advances REAL, Other REAL, Sick REAL, Vacation REAL, Personal REAL, "
      "Bonus REAL, Holiday REAL, Quantity REAL)");
  db.Execute(
      "CREATE TABLE IF NOT EXISTS [Employee Table] ("
      "[Card ID] INTEGER PRIMARY KEY, "
      "[Employee Name] TEXT NOT NULL DEFAULT '', "
      "[Home Department] INTEGER, "
      "DefaultAssignment TEXT NOT NULL DEFAULT '', "
      "Active INTEGER NOT NULL DEFAULT 1)");
  db.Execute("CREATE TABLE IF NOT EXISTS CompanyInfoT ([Clock Table Updated] TEXT)");
  if (db.Query("SELECT COUNT(*) FROM CompanyInfoT").Field(0).AsInt() == 0) {
    db.Execute("INSERT INTO CompanyInfoT ([Clock Table Updated]) VALUES (NULL)");
  }
}

// Validation tables sent to the terminals: employees, departments, job codes.
void ValidationTables(Database& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS LEVEL1 ("
      "[Card ID] INTEGER PRIMARY KEY, Name TEXT NOT NULL DEFAULT '', "
      "Active INTEGER NOT NULL DEFAULT 1)");
  db.Execute(
      "CREATE TABLE IF NOT EXISTS LEVEL2 ("
      "Code TEXT PRIMARY KEY, Description TEXT NOT NULL DEFAULT '')");
  db.Execute(
      "CREATE TABLE IF NOT EXISTS LEVEL3 ("
      "Code TEXT PRIMARY KEY, Description TEXT NOT NULL DEFAULT '')");
}

constexpr MigrationStep kCompanySteps[] = {
    {"tables [Clock Data Table], [Employee Table], CompanyInfoT", CompanyTables},
    {"validation tables LEVEL1-LEVEL3", ValidationTables}};

std::span<const MigrationStep> StepsOf(SchemaKind kind) {
  switch (kind) {
    case SchemaKind::kEventLog:
      return kEventLogSteps;
    case SchemaKind::kCompanyRegistry:
      return kRegistrySteps;
    case SchemaKind::kProduct:
      return kProductSteps;
    case SchemaKind::kCompany:
      break;
  }
  return kCompanySteps;
}

}  // namespace

std::string SchemaKindName(SchemaKind kind) {
  switch (kind) {
    case SchemaKind::kEventLog:
      return "event log";
    case SchemaKind::kCompanyRegistry:
      return "company registry";
    case SchemaKind::kProduct:
      return "poll list";
    case SchemaKind::kCompany:
      break;
  }
  return "company";
}

int NewestSchemaVersion(SchemaKind kind) { return static_cast<int>(StepsOf(kind).size()); }

void MigrateSchema(Database& db, SchemaKind kind) {
  Migrate(db, SchemaKindName(kind), StepsOf(kind));
}

void CreateEventLogSchema(Database& db) { MigrateSchema(db, SchemaKind::kEventLog); }
void CreateCompanyRegistrySchema(Database& db) { MigrateSchema(db, SchemaKind::kCompanyRegistry); }
void CreateProductSchema(Database& db) { MigrateSchema(db, SchemaKind::kProduct); }
void CreateCompanySchema(Database& db) { MigrateSchema(db, SchemaKind::kCompany); }

}  // namespace clockcomm::db
