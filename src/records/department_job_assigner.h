// The department/job assignment of a call's punches as they arrive: the employee's home
// department and default job for the punch types that open a period of work, when the site
// switches that on. Built once per call; the employee lookups reuse one prepared statement.
#pragma once

#include "core/log_sink.h"
#include "db/database.h"
#include "records/parameter_override.h"
#include "records/tcd_record.h"

namespace clockcomm::records {

class DepartmentJobAssigner {
 public:
  // Punch types that receive a home department or default job on this path.
  static constexpr const char* kPunchTypes = " I C PI LC LO BC BO H P V B S T X A ";

  // company_db may be null (a clock without company): then only the keypad's dashes are removed.
  DepartmentJobAssigner(ParameterOverride settings, db::Database* company_db, core::LogSink& log)
      : settings_(std::move(settings)), company_db_(company_db), log_(log) {}

  // Assigns in place. False after a failed lookup (logged as "AssignDepartmentsAndJobs Error");
  // the record then keeps what the terminal sent, and the transfer assigns again.
  bool Assign(TcdRecord& record);

 private:
  ParameterOverride settings_;
  db::Database* company_db_;
  core::LogSink& log_;
};

}  // namespace clockcomm::records
