// The companies, their employees and punches: GET /api/v1/companies (the registry), GET
// /api/v1/employees (a company's [Employee Table], a page at a time), GET /api/v1/punches (a
// company's [Clock Data Table] by badge and day, a page as JSON or every row as CSV) and GET
// /api/v1/employee-hours (the hours answer a terminal gets for a badge).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "core/clock.h"
#include "core/log_sink.h"
#include "db/database.h"
#include "records/company.h"
#include "shell/my_static.h"
#include "web/api_gate.h"

namespace clockcomm::web {

class PunchesApi : public ApiArea {
 public:
  // Rows read from the database at a time for the CSV export.
  static constexpr int64_t kCsvBatchRows = 1000;

  PunchesApi(shell::MyPaths paths, core::Clock& clock, core::LogSink& log)
      : paths_(std::move(paths)), clock_(clock), log_(log) {}
  void Register(httplib::Server& server, ApiGate& gate) override;

 private:
  struct OpenCompany {
    records::Company company;
    std::unique_ptr<db::Database> db;
  };

  void Companies(httplib::Response& res);
  void Employees(const httplib::Request& req, httplib::Response& res);
  void Punches(const httplib::Request& req, httplib::Response& res);
  void EmployeeHours(const httplib::Request& req, httplib::Response& res);
  // The named company and its database; nothing, with the 404 in res, for an unknown company or a
  // database file that is not there.
  std::optional<OpenCompany> Open(const std::string& name, httplib::Response& res);

  shell::MyPaths paths_;
  core::Clock& clock_;
  core::LogSink& log_;
};

}  // namespace clockcomm::web
