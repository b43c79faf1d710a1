#include "records/database_writer.h"

#include <vector>

#include "core/text.h"

namespace clockcomm::records {

void DatabaseWriter::StampCompanyDatabase(db::Database& company_db, const core::Date& today) {
  company_db.Execute("UPDATE CompanyInfoT SET [Clock Table Updated] = ?", {today});
}

int64_t DatabaseWriter::StampRegistry(db::Database& registry_db, std::string_view clock_name,
                                      const core::Date& today) {
  // The clock name is matched here rather than in SQL: the engines fold case for ASCII only,
  // and clock names are Windows-1252 text.
  std::vector<std::string> companies;
  const auto rows = registry_db.Query("SELECT [Company], [Clock Name] FROM Company");
  for (const auto& row : rows.Rows()) {
    if (core::EqualsIgnoreCase(row[1].AsText(), clock_name)) companies.push_back(row[0].AsText());
  }
  int64_t stamped = 0;
  for (const auto& company : companies) {
    stamped += registry_db.Execute(
        "UPDATE Company SET [Clock Table Updated] = ? WHERE [Company] = ?", {today, company});
  }
  return stamped;
}

}  // namespace clockcomm::records
