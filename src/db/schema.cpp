#include "db/schema.h"

namespace clockcomm::db {

void CreateEventLogSchema(Database& db) {
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

void CreateCompanyRegistrySchema(Database& db) {
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

void CreateProductSchema(Database& db) {
  db.Execute(
      "CREATE TABLE IF NOT EXISTS PollT ("
      "LocationID INTEGER PRIMARY KEY, "
      "LocationName TEXT NOT NULL, "
      "LocationPhone TEXT NOT NULL DEFAULT '', "
      "DialTime TEXT, "
      "SelectToDial INTEGER NOT NULL DEFAULT 1, "
      "TerminalID TEXT NOT NULL DEFAULT '', "
      "TerminalType INTEGER)");
  // Poll lists made before a location could have a terminal type of its own.
  if (!db.HasColumn("PollT", "TerminalType"))
    db.Execute("ALTER TABLE PollT ADD COLUMN TerminalType INTEGER");
  // The fingerprint terminals the T4 host keeps connected, and their waiting user tasks.
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

void CreateCompanySchema(Database& db) {
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
  // Validation tables sent to the terminals: employees, departments, job codes.
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

}  // namespace clockcomm::db
