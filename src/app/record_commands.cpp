// company add|list, employee add|import, department add|list, job add|list: the company
// registry, a company's employees and the validation tables its terminals receive.
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "app/command_support.h"
#include "app/commands.h"
#include "core/clock.h"
#include "core/date_time.h"
#include "core/durable_file.h"
#include "core/errors.h"
#include "core/text.h"
#include "db/location.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/company_factory.h"
#include "records/company_registration.h"
#include "records/employee_import.h"
#include "records/employee_table.h"
#include "records/tcd_record.h"
#include "records/validation_codes.h"
#include "shell/logs.h"
#include "shell/my_static.h"

namespace clockcomm::app {
namespace fs = std::filesystem;
namespace {

std::unique_ptr<db::Database> OpenRegistry(const shell::MyPaths& paths) {
  const fs::path file = paths.CompanyRegistryDatabase();
  if (!db::IsServerLocation(file.native()) && !fs::exists(file)) {
    Fail("clockcomm: Company3 database was not found. (" + file.string() +
         "; run clockcomm init first)");
  }
  return db::Open(file);
}

// ---- company ----

struct CompanyOptions {
  std::string name;
  std::string clock;
  std::string dir;
  std::string database;  // a postgresql:// URL; empty: <dir>/Company.db
  std::string pay_period = "weekly";
  std::string start;
  std::string start_time = "00:00";
  int custom_days = 0;
};

core::TimeOfDay ParseHourMinute(const std::string& text) {
  const auto parts = core::Split(text, ':');
  std::optional<core::TimeOfDay> t;
  if (parts.size() == 2 && !parts[0].empty() && parts[1].size() == 2) {
    auto h = core::ParseInt(parts[0]);
    auto m = core::ParseInt(parts[1]);
    if (h && m) t = core::TimeOfDay::FromHms(*h, *m, 0);
  }
  if (!t) Fail("clockcomm: invalid --start-time \"" + text + "\": expected HH:MM");
  return *t;
}

void RunCompanyAdd(const GlobalOptions& options, const CompanyOptions& o) {
  Context ctx(options);
  OpenRegistry(ctx.paths);  // a clear message when the folder was never set up
  records::NewCompany company;
  company.name = o.name;
  company.clock_name = o.clock;
  company.directory = o.dir;
  company.pay_period_type = o.pay_period;
  company.custom_days = o.custom_days;
  core::SystemClock system_clock;
  company.start =
      o.start.empty() ? system_clock.Now().GetDate() : ParseDayOption("--start", o.start);
  company.start_time = ParseHourMinute(o.start_time);
  if (!o.database.empty() && !db::IsServerLocation(o.database)) {
    Fail(
        "clockcomm company add: --database takes a postgresql:// URL; without it the company's "
        "database is the file Company.db in its directory");
  }
  const fs::path db_file =
      o.database.empty() ? ctx.paths.CompanyDatabase(o.dir) : fs::path(o.database);
  try {
    records::RegisterCompany({ctx.paths.CompanyRegistryDatabase(), ctx.paths.DataDirectory(),
                              ctx.paths.CompanyDirectory(o.dir), db_file},
                             company);
  } catch (const core::ArgumentException& e) {
    Fail(std::string("clockcomm company add: ") + e.what());
  }
  std::cout << "Added company " << core::Trim(o.name) << " (clock " << core::Trim(o.clock) << ", "
            << core::ToLower(core::Trim(o.pay_period)) << " pay period from "
            << company.start.ToString() << ")\n"
            << "  database " << db::ShownLocation(db_file.native()) << "\n";
}

void RunCompanyList(const GlobalOptions& options) {
  Context ctx(options);
  core::NullLogSink quiet;
  records::CompanyFactory factory = LoadFactory(ctx.paths, quiet);
  std::cout << "Company\tClock Name\tDirectory\tPay Period Type\tPeriod Start\tPeriod End\t"
               "Clock Table Updated\tDatabase\n";
  for (const auto& c : factory.GetCompanyList()) {
    std::string end;
    try {
      end = c.PayPeriodEnd().Format("yyyy-mm-dd HH:nn");
    } catch (const core::ArgumentException&) {
      end = "(unknown pay period type)";
    }
    const bool stamped = c.ClockDataTableLastUpdated() != core::DateTime();
    std::cout << c.Name() << "\t" << c.ClockName() << "\t" << c.DatabaseDirectory() << "\t"
              << c.PayPeriodType() << "\t" << c.PayPeriodStartDateTime().Format("yyyy-mm-dd HH:nn")
              << "\t" << end << "\t"
              << (stamped ? c.ClockDataTableLastUpdated().GetDate().ToString() : "") << "\t"
              << db::ShownLocation(c.ClockwynDatabaseFilename()) << "\n";
  }
}

// ---- employee ----

struct EmployeeOptions {
  std::string company;
  std::string card;
  std::string home_dept;
  std::string default_job;
  std::string name;
  std::string file;
};

void RunEmployeeAdd(const GlobalOptions& options, const EmployeeOptions& o) {
  Context ctx(options);
  records::Employee e;
  if (auto reason = records::ReadEmployee(o.card, o.home_dept, o.default_job, o.name, e)) {
    Fail("clockcomm employee add: " + *reason);
  }
  auto db = OpenCompanyDatabase(ctx, o.company);
  if (!records::EmployeeTable(*db).Add(e)) {
    Fail("clockcomm employee add: card " + std::to_string(e.card) + " already exists in " +
         o.company);
  }
  std::cout << "Added card " << e.card << " to " << o.company << "\n";
}

void RunEmployeeImport(const GlobalOptions& options, const EmployeeOptions& o) {
  Context ctx(options);
  std::string content;
  try {
    content = core::ReadWholeFile(o.file);
  } catch (const core::SystemError& e) {
    Fail("clockcomm employee import: cannot read " + o.file + ": " + e.what());
  }
  auto db = OpenCompanyDatabase(ctx, o.company);
  const auto result = records::ImportEmployees(*db, content);
  for (const auto& refused : result.refused) {
    std::cerr << o.file << " line " << refused.line << ": " << refused.reason << "\n";
  }
  std::cout << "Imported " << result.imported << " employee(s) into " << o.company;
  // Said aloud, so that a first employee mistyped into a header does not pass unnoticed.
  if (result.header) std::cout << " (the first line was taken as a header)";
  if (!result.refused.empty()) {
    std::cout << "; " << result.refused.size() << " bad line(s) left out";
  }
  std::cout << "\n";
  if (!result.refused.empty()) throw CLI::RuntimeError(1);
}

// ---- department, job ----

struct CodeOptions {
  std::string company;
  std::string number;  // a department's
  std::string code;    // a job's
  std::string name;
};

void RunDepartmentAdd(const GlobalOptions& options, const CodeOptions& o) {
  Context ctx(options);
  const auto number = core::ParseInt(o.number);
  if (!number) Fail("clockcomm department add: \"" + o.number + "\" is not a whole number");
  auto db = OpenCompanyDatabase(ctx, o.company);
  try {
    if (!records::ValidationCodes(*db).AddDepartment(*number, o.name)) {
      Fail("clockcomm department add: department " + std::to_string(*number) +
           " already exists in " + o.company);
    }
  } catch (const core::ArgumentException& e) {
    Fail(std::string("clockcomm department add: ") + e.what());
  }
  std::cout << "Added department " << *number << " to " << o.company << "\n";
}

void RunJobAdd(const GlobalOptions& options, const CodeOptions& o) {
  Context ctx(options);
  auto db = OpenCompanyDatabase(ctx, o.company);
  try {
    if (!records::ValidationCodes(*db).AddJob(o.code, o.name)) {
      Fail("clockcomm job add: job " + core::Trim(o.code) + " already exists in " + o.company);
    }
  } catch (const core::ArgumentException& e) {
    Fail(std::string("clockcomm job add: ") + e.what());
  }
  std::cout << "Added job " << core::Trim(o.code) << " to " << o.company << "\n";
}

void PrintCodes(const char* heading, const std::vector<records::ValidationCode>& codes) {
  std::cout << heading << "\tName\n";
  for (const auto& c : codes) std::cout << c.code << "\t" << c.description << "\n";
}

}  // namespace

void RegisterRecordCommands(CLI::App& app, const GlobalOptions& options) {
  CLI::App* company = app.add_subcommand("company", "Add or list the companies of the registry");
  company->require_subcommand(1);
  auto co = std::make_shared<CompanyOptions>();
  CLI::App* add = company->add_subcommand(
      "add", "Add a company with its clock; creates its directory and database");
  add->add_option("name", co->name, "Company name")->required();
  add->add_option("--clock", co->clock, "Name of the company's clock")->required();
  add->add_option("--dir", co->dir, "Company directory (relative: under the data directory)")
      ->required();
  add->add_option("--database", co->database,
                  "The company's database on a server (postgresql://...); default: Company.db in "
                  "its directory");
  add->add_option("--pay-period", co->pay_period,
                  "weekly, biweekly, semimonthly, monthly, custom, \"accrued custom\"");
  add->add_option("--start", co->start, "Start of the current pay period, YYYY-MM-DD (today)");
  add->add_option("--start-time", co->start_time, "Time of day the pay period starts, HH:MM");
  add->add_option("--custom-days", co->custom_days, "Length of a custom pay period in days");
  add->callback([&options, co] { RunCompanyAdd(options, *co); });
  company->add_subcommand("list", "List the companies, their clocks and pay periods")
      ->callback([&options] { RunCompanyList(options); });

  CLI::App* employee = app.add_subcommand("employee", "Add or import employees of a company");
  employee->require_subcommand(1);
  auto eo = std::make_shared<EmployeeOptions>();
  CLI::App* eadd = employee->add_subcommand("add", "Add one employee");
  eadd->add_option("--company", eo->company, "Company name")->required();
  eadd->add_option("--card", eo->card, "Card (badge) number")->required();
  eadd->add_option("--home-dept", eo->home_dept, "Home department, 0-999999999");
  eadd->add_option("--default-job", eo->default_job, "Default job, at most 13 characters");
  eadd->add_option("--name", eo->name, "Employee name");
  eadd->callback([&options, eo] { RunEmployeeAdd(options, *eo); });
  CLI::App* eimport = employee->add_subcommand(
      "import",
      "Add or update employees from a CSV file: card, home department, default job, name "
      "(all but the card may be left out; a first line whose card is not a number is a header)");
  eimport->add_option("--company", eo->company, "Company name")->required();
  eimport->add_option("file", eo->file, "CSV file")->required()->check(CLI::ExistingFile);
  eimport->callback([&options, eo] { RunEmployeeImport(options, *eo); });

  CLI::App* department =
      app.add_subcommand("department", "Add or list the departments the terminals receive");
  department->require_subcommand(1);
  auto dop = std::make_shared<CodeOptions>();
  CLI::App* dadd = department->add_subcommand("add", "Add a department");
  dadd->add_option("--company", dop->company, "Company name")->required();
  dadd->add_option("--number", dop->number, "Department number, 0-999999999")->required();
  dadd->add_option("--name", dop->name, "Department name")->required();
  dadd->callback([&options, dop] { RunDepartmentAdd(options, *dop); });
  CLI::App* dlist = department->add_subcommand("list", "List the departments of a company");
  dlist->add_option("--company", dop->company, "Company name")->required();
  dlist->callback([&options, dop] {
    Context ctx(options);
    auto db = OpenCompanyDatabase(ctx, dop->company);
    PrintCodes("Department", records::ValidationCodes(*db).Departments());
  });

  CLI::App* job = app.add_subcommand("job", "Add or list the job codes the terminals receive");
  job->require_subcommand(1);
  auto jo = std::make_shared<CodeOptions>();
  CLI::App* jadd = job->add_subcommand("add", "Add a job code");
  jadd->add_option("--company", jo->company, "Company name")->required();
  jadd->add_option("--code", jo->code, "Job code, at most 13 characters")->required();
  jadd->add_option("--name", jo->name, "Job name")->required();
  jadd->callback([&options, jo] { RunJobAdd(options, *jo); });
  CLI::App* jlist = job->add_subcommand("list", "List the job codes of a company");
  jlist->add_option("--company", jo->company, "Company name")->required();
  jlist->callback([&options, jo] {
    Context ctx(options);
    auto db = OpenCompanyDatabase(ctx, jo->company);
    PrintCodes("Job", records::ValidationCodes(*db).Jobs());
  });
}

}  // namespace clockcomm::app
