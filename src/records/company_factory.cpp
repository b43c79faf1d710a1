#include "records/company_factory.h"

#include "core/text.h"
#include "db/location.h"
#include "db/open.h"
#include "db/schema.h"

namespace clockcomm::records {

CompanyRegistryNotFound::CompanyRegistryNotFound(const std::string& file)
    : core::Error("Company3 database was not found. (" + db::ShownLocation(file) + ")") {}

void CompanyFactory::Initialize(const std::filesystem::path& database_file) {
  database_name_ = database_file.string();
  log_.Debug("CompanyFactory.Initialize", "Filename = " + db::ShownLocation(database_name_));
  Refresh();
}

void CompanyFactory::Refresh() {
  std::vector<Company> loaded;
  std::error_code ec;
  if (!db::IsServerLocation(database_name_) && !std::filesystem::exists(database_name_, ec)) {
    throw CompanyRegistryNotFound(database_name_);
  }
  auto db = db::Open(database_name_, db::OpenMode::kExisting);
  db::CreateCompanyRegistrySchema(*db);  // a registry of an older program gains [Database]
  auto rs = db->Query(kLoadQuery);
  for (; !rs.Eof(); rs.MoveNext()) {
    Company company;
    company.Initialize(rs.Field("Company").AsText(), rs.Field("[Clock Table Updated]").AsDateTime(),
                       rs.Field("[Clock Name]").AsText(), rs.Field("Directory").AsText(),
                       rs.Field("Current Start Date").AsDate(),
                       rs.Field("Pay Period Type").AsText(),
                       rs.Field("Current Start Time").AsTime(),
                       static_cast<int>(rs.Field("CustomDays").AsInt()), data_directory_);
    company.SetDatabaseLocation(rs.Field("Database").AsText());
    loaded.push_back(std::move(company));
  }
  companies_ = std::move(loaded);
}

Company CompanyFactory::GetCompany(std::string_view name) const {
  for (const auto& c : companies_) {
    if (core::EqualsIgnoreCase(c.Name(), name)) return c;
  }
  return Company();
}

std::optional<Company> CompanyFactory::GetCompanyByClockName(std::string_view clock_name) const {
  for (const auto& c : companies_) {
    if (core::EqualsIgnoreCase(c.ClockName(), clock_name)) return c;
  }
  return std::nullopt;
}

}  // namespace clockcomm::records
