#include "records/company_factory.h"

#include "core/text.h"
#include "db/open.h"

namespace clockcomm::records {

void CompanyFactory::Initialize(const std::filesystem::path& database_file) {
  database_name_ = database_file.string();
  log_.Debug("CompanyFactory.Initialize", "Filename = " + database_name_);
  Refresh();
}

void CompanyFactory::Refresh() {
  std::vector<Company> loaded;
  std::error_code ec;
  if (!std::filesystem::exists(database_name_, ec)) throw CompanyRegistryNotFound(database_name_);
  auto db = db::Open(database_name_, db::OpenMode::kExisting);
  auto rs = db->Query(kLoadQuery);
  for (; !rs.Eof(); rs.MoveNext()) {
    Company company;
    company.Initialize(rs.Field("Company").AsText(), rs.Field("[Clock Table Updated]").AsDateTime(),
                       rs.Field("[Clock Name]").AsText(), rs.Field("Directory").AsText(),
                       rs.Field("Current Start Date").AsDate(),
                       rs.Field("Pay Period Type").AsText(),
                       rs.Field("Current Start Time").AsTime(),
                       static_cast<int>(rs.Field("CustomDays").AsInt()), data_directory_);
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
