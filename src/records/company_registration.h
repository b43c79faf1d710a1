// Adding a company to the registry: its directory and database are made first, so that a registry
// row never points at a company that is not there.
#pragma once

#include <filesystem>
#include <string>

#include "core/date_time.h"

namespace clockcomm::records {

struct NewCompany {
  std::string name;
  std::string clock_name;
  std::string directory;  // as stored in the registry; relative ones lie under the data directory
  std::string pay_period_type = "weekly";
  core::Date start;
  core::TimeOfDay start_time;
  int custom_days = 0;
};

// Validates the company (names, pay period type and its custom days, a name or clock already in
// the registry, a company_directory that is not below the data folder, which is the folder of
// registry_database), creates company_directory and the company's database with its tables, and
// adds the row to the registry database. Throws core::ArgumentException naming what is wrong.
void RegisterCompany(const std::filesystem::path& registry_database,
                     const std::filesystem::path& company_directory,
                     const std::filesystem::path& company_database, NewCompany company);

}  // namespace clockcomm::records
