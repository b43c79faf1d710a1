#include "records/database_writer.h"

namespace clockcomm::records {

std::string DatabaseWriter::CompanyStampText(const core::Date& today) {
  return "UPDATE CompanyInfoT SET CompanyInfoT.[Clock Table Updated] = #" +
         today.Format(core::kFormatSqlDate) + "#;";
}

std::string DatabaseWriter::RegistryStampText(std::string_view clock_name,
                                              const core::Date& today) {
  return "UPDATE COMPANY SET COMPANY.[Clock Table Updated] = #" +
         today.Format(core::kFormatSqlDate) + "# WHERE (((COMPANY.[Clock Name])=\"" +
         std::string(clock_name) + "\"));";
}

void DatabaseWriter::StampCompanyDatabase(db::Database& company_db, const core::Date& today) {
  company_db.Execute("UPDATE CompanyInfoT SET [Clock Table Updated] = ?", {today});
}

int64_t DatabaseWriter::StampRegistry(db::Database& registry_db, std::string_view clock_name,
                                      const core::Date& today) {
  return registry_db.Execute(
      "UPDATE COMPANY SET [Clock Table Updated] = ? WHERE [Clock Name] = ? COLLATE NOCASE",
      {today, clock_name});
}

}  // namespace clockcomm::records
