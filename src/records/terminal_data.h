// What a terminal may ask of the company data during a call: an employee's hours (the hours
// request) and the validation tables (employees, departments, job codes) of its clock's company.
// The drivers ask here and never open a database themselves.
#pragma once

#include <string>
#include <vector>

#include "core/date_time.h"
#include "core/log_sink.h"
#include "records/company_factory.h"

namespace clockcomm::records {

struct HoursAnswer {
  bool valid = false;
  std::string invalid_reason;  // when not valid: "Badge 12 not found", ...
  std::string name;
  double today_hours = 0;
  double period_hours = 0;
};

// One validation table as a terminal receives it: its name and the fields of each row.
struct ValidationTableRows {
  std::string name;
  std::vector<std::vector<std::string>> rows;
};

struct ValidationTables {
  enum class Status {
    kOk,
    kNoCompany,  // the clock is in no company
    kDataError,  // the company database could not be opened (error: "System error n d")
    kOpenError,  // a table could not be queried (table, error)
    kReadError,  // a row could not be read (table, error)
  };
  Status status = Status::kOk;
  std::string table;
  std::string error;
  std::vector<ValidationTableRows> tables;  // LEVEL1, LEVEL2, LEVEL3 when kOk
};

class TerminalData {
 public:
  TerminalData(CompanyFactory& companies, core::LogSink& log) : companies_(companies), log_(log) {}

  // The request names no clock: the first company whose employee table has the badge answers.
  HoursAnswer Hours(int badge, const core::DateTime& now);
  // LEVEL1 (active employees), LEVEL2 (departments), LEVEL3 (job codes) of the clock's company.
  ValidationTables ValidationTablesOf(std::string_view clock_name);

 private:
  CompanyFactory& companies_;
  core::LogSink& log_;
};

}  // namespace clockcomm::records
