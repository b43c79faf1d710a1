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

// Where a new company goes.
struct CompanyLocations {
  std::filesystem::path registry;     // the company registry: a file or a server URL
  std::filesystem::path data_folder;  // company folders must lie below it
  std::filesystem::path directory;    // the company's folder
  // Its database: <directory>/Company.db, or a postgresql:// URL, which the registry's
  // [Database] then holds.
  std::filesystem::path database;
};

// Validates the company (names, pay period type and its custom days, a name, clock or server
// database already in the registry, a directory that is not below the data folder), creates the
// directory and the company's database with its tables, and adds the row to the registry.
// Throws core::ArgumentException naming what is wrong.
void RegisterCompany(const CompanyLocations& where, NewCompany company);

}  // namespace clockcomm::records
