#include "records/employee_import.h"

#include "core/csv_reader.h"
#include "core/text.h"
#include "records/employee_table.h"

namespace clockcomm::records {

constexpr size_t kEmployeeFields = 4;  // card, home department, default job, name

EmployeeImportResult ImportEmployees(db::Database& company_db, std::string_view csv_text) {
  EmployeeImportResult result;
  auto records = core::ReadCsv(csv_text);
  if (!records.empty() && records.front().error.empty() && !records.front().fields.empty() &&
      !core::ParseNumber(records.front().fields.front())) {
    result.header = true;
    records.erase(records.begin());
  }
  EmployeeTable employees(company_db);
  db::Transaction transaction(company_db);
  for (auto& record : records) {
    std::string reason = record.error;
    Employee employee;
    if (reason.empty() && record.fields.size() > kEmployeeFields) {
      reason = "expected card, home department, default job, name; found " +
               std::to_string(record.fields.size()) + " fields";
    }
    if (reason.empty()) {
      record.fields.resize(kEmployeeFields);
      const auto& f = record.fields;
      reason = ReadEmployee(f[0], f[1], f[2], f[3], employee).value_or("");
    }
    if (!reason.empty()) {
      result.refused.push_back({record.line, reason});
      continue;
    }
    employees.Put(employee);
    ++result.imported;
  }
  transaction.Commit();
  return result;
}

}  // namespace clockcomm::records
