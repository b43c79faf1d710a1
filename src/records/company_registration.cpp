#include "records/company_registration.h"

#include "core/errors.h"
#include "core/safe_path.h"
#include "core/text.h"
#include "db/location.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/company.h"

namespace clockcomm::records {

void RegisterCompany(const CompanyLocations& where, NewCompany company) {
  const std::filesystem::path& company_directory = where.directory;
  const std::string server_database =
      db::IsServerLocation(where.database.native()) ? where.database.native() : "";
  company.name = core::Trim(company.name);
  company.clock_name = core::Trim(company.clock_name);
  company.pay_period_type = core::ToLower(core::Trim(company.pay_period_type));
  if (company.name.empty()) throw core::ArgumentException("The company name is empty.", "name");
  if (company.clock_name.empty())
    throw core::ArgumentException("The clock name is empty.", "clock");
  if (core::Trim(company.directory).empty()) {
    throw core::ArgumentException("The company directory is empty.", "dir");
  }
  // The registry lives in the data folder; a company gets a folder of its own below it, never
  // one that "..", an absolute path or a link takes elsewhere.
  const std::filesystem::path& data_folder = where.data_folder;
  if (!core::IsInside(data_folder, company_directory) ||
      core::IsInside(company_directory, data_folder)) {
    throw core::ArgumentException("The company directory \"" + company.directory +
                                      "\" is not a folder below the data folder " +
                                      data_folder.string() + ".",
                                  "dir");
  }
  if (!Company::IsKnownPayPeriodType(company.pay_period_type)) {
    throw core::ArgumentException(
        "Unknown pay period type \"" + company.pay_period_type +
            "\" (weekly, biweekly, semimonthly, monthly, custom, \"accrued custom\").",
        "pay-period");
  }
  const bool custom =
      company.pay_period_type == "custom" || company.pay_period_type == "accrued custom";
  if (company.custom_days < 0 || (custom && company.custom_days < 1)) {
    throw core::ArgumentException(
        "A " + company.pay_period_type + " pay period needs custom days of 1 or more.",
        "custom-days");
  }
  auto registry = db::Open(where.registry);
  db::CreateCompanyRegistrySchema(*registry);
  // Names match ignoring case for the Windows-1252 letters too, which SQL's NOCASE does not.
  for (auto rows = registry->Query("SELECT [Company], [Clock Name], [Database] FROM Company");
       !rows.Eof(); rows.MoveNext()) {
    const std::string existing = rows.Field(0).AsText();
    if (core::EqualsIgnoreCase(existing, company.name)) {
      throw core::ArgumentException("Company \"" + company.name + "\" already exists.", "name");
    }
    if (core::EqualsIgnoreCase(rows.Field(1).AsText(), company.clock_name)) {
      throw core::ArgumentException(
          "Clock \"" + company.clock_name + "\" already belongs to company \"" + existing + "\".",
          "clock");
    }
    // Two companies in one database would mix their punches.
    if (!server_database.empty() && rows.Field(2).AsText() == server_database) {
      throw core::ArgumentException("The database " + db::ShownLocation(server_database) +
                                        " already belongs to company \"" + existing + "\".",
                                    "database");
    }
  }
  std::filesystem::create_directories(company_directory);
  db::CreateCompanySchema(*db::Open(where.database, db::OpenMode::kCreate));
  registry->Execute(
      "INSERT INTO Company ([Company], [Clock Name], [Clock Table Updated], [Directory], "
      "[Current Start Date], [Pay Period Type], [Current Start Time], CustomDays, [Database]) "
      "VALUES (?, ?, NULL, ?, ?, ?, ?, ?, ?)",
      {company.name, company.clock_name, company.directory, company.start, company.pay_period_type,
       company.start_time, company.custom_days, server_database});
}

}  // namespace clockcomm::records
