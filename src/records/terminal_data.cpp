#include "records/terminal_data.h"

#include <optional>

#include "core/errors.h"
#include "db/open.h"
#include "records/employee_hours.h"

namespace clockcomm::records {
namespace {

struct TableQuery {
  const char* name;
  const char* query;
};

// The fields of each row in the order the terminal reads them; LEVEL1 only where "Active".
constexpr TableQuery kValidationQueries[] = {
    {"LEVEL1", "SELECT [Card ID], Name FROM LEVEL1 WHERE Active <> 0 ORDER BY [Card ID]"},
    {"LEVEL2", "SELECT Code, Description FROM LEVEL2 ORDER BY Code"},
    {"LEVEL3", "SELECT Code, Description FROM LEVEL3 ORDER BY Code"},
};

}  // namespace

HoursAnswer TerminalData::Hours(int badge, const core::DateTime& now) {
  HoursAnswer answer;
  answer.invalid_reason = "Badge " + std::to_string(badge) + " not found";
  for (const auto& company : companies_.GetCompanyList()) {
    try {
      auto db = db::Open(company.ClockwynDatabaseFilename());
      EmployeeHours hours;
      hours.Load(*db, company, badge, now);
      if (!hours.IsValid()) {
        if (hours.InvalidReason().find("not found") == std::string::npos) {
          answer.invalid_reason = hours.InvalidReason();
          return answer;
        }
        continue;
      }
      answer.valid = true;
      answer.name = hours.Name();
      answer.today_hours = hours.TodayHours();
      answer.period_hours = hours.PeriodHours();
      return answer;
    } catch (const core::Error& e) {
      log_.Event("Error", "Hours request: " + std::string(e.what()));
      answer.invalid_reason = "Hours not available";
    }
  }
  return answer;
}

ValidationTables TerminalData::ValidationTablesOf(std::string_view clock_name) {
  ValidationTables result;
  auto company = companies_.GetCompanyByClockName(clock_name);
  if (!company) {
    result.status = ValidationTables::Status::kNoCompany;
    return result;
  }
  std::unique_ptr<db::Database> db;
  try {
    db = db::Open(company->ClockwynDatabaseFilename());
  } catch (const core::SystemError& e) {
    result.status = ValidationTables::Status::kDataError;
    result.error = "System error " + std::to_string(e.Number()) + " " + e.Description();
    return result;
  }
  for (const auto& [name, query] : kValidationQueries) {
    result.table = name;
    std::optional<db::Recordset> rows;
    try {
      rows = db->Query(query);
    } catch (const core::SystemError& e) {
      result.status = ValidationTables::Status::kOpenError;
      result.error = "System error " + std::to_string(e.Number()) + ": " + e.Description();
      return result;
    }
    ValidationTableRows table{name, {}};
    try {
      for (; !rows->Eof(); rows->MoveNext()) {
        std::vector<std::string> fields;
        for (size_t i = 0; i < rows->FieldCount(); ++i) fields.push_back(rows->Field(i).AsText());
        table.rows.push_back(std::move(fields));
      }
    } catch (const core::Error& e) {
      result.status = ValidationTables::Status::kReadError;
      result.error = e.what();
      return result;
    }
    result.tables.push_back(std::move(table));
  }
  result.table.clear();
  return result;
}

}  // namespace clockcomm::records
