#include "app/command_support.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <optional>

#include "db/location.h"
#include "db/open.h"

namespace clockcomm::app {

void Fail(const std::string& message) {
  std::cerr << message << "\n";
  throw CLI::RuntimeError(1);
}

core::Date ParseDayOption(const std::string& option, const std::string& text) {
  const auto day = core::ParseIsoDate(text);
  if (!day) Fail("clockcomm: invalid " + option + " date \"" + text + "\": expected YYYY-MM-DD");
  return *day;
}

records::CompanyFactory LoadFactory(const shell::MyPaths& paths, core::LogSink& log) {
  records::CompanyFactory factory(log, paths.DataDirectory());
  try {
    factory.Initialize(paths.CompanyRegistryDatabase());
  } catch (const records::CompanyRegistryNotFound& e) {
    Fail(std::string("clockcomm: ") + e.what() + " Run clockcomm init first.");
  }
  return factory;
}

std::unique_ptr<db::Database> OpenCompanyDatabase(const Context& ctx,
                                                  const std::string& company_name) {
  core::NullLogSink quiet;
  records::CompanyFactory factory = LoadFactory(ctx.paths, quiet);
  const records::Company company = factory.GetCompany(company_name);
  if (company.IsEmpty()) Fail("clockcomm: company \"" + company_name + "\" was not found");
  const std::filesystem::path file = company.ClockwynDatabaseFilename();
  if (!db::IsServerLocation(file.native()) && !std::filesystem::exists(file)) {
    Fail("clockcomm: the database of company \"" + company_name +
         "\" was not found: " + file.string());
  }
  return db::Open(file);
}

}  // namespace clockcomm::app
