// Employees from a CSV file: card, home department, default job, name (the fields after the card
// may be left out). A first line whose card field is not a number is a header.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "db/database.h"

namespace clockcomm::records {

struct RefusedLine {
  int line = 0;
  std::string reason;
};

struct EmployeeImportResult {
  int imported = 0;  // employees added or updated
  bool header = false;
  std::vector<RefusedLine> refused;
};

// Adds or updates (EmployeeTable::Put) the employee of every good line, all in one transaction;
// bad lines are left out and listed with their line numbers.
EmployeeImportResult ImportEmployees(db::Database& company_db, std::string_view csv_text);

}  // namespace clockcomm::records
