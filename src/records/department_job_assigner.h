// The line-based department/job assignment of the serial and modem call path: it takes a TCD
// line without the clock number as the terminal sent it and returns the finished TCD line.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/log_sink.h"

namespace clockcomm::records {

class DepartmentJobAssigner {
 public:
  // Punch types that receive a home department or default job on this path.
  static constexpr const char* kPunchTypes = " I C PI LC LO BC BO H P V B S T X A ";

  DepartmentJobAssigner(std::string clock_number, std::filesystem::path company_database,
                        std::filesystem::path program_folder, core::LogSink& log)
      : clock_number_(std::move(clock_number)),
        company_database_(std::move(company_database)),
        program_folder_(std::move(program_folder)),
        log_(log) {}

  // The finished line, or nothing after a failure (logged as "AssignDepartmentsAndJobs Error"
  // with the step reached).
  std::optional<std::string> AssignDepartmentsAndJobs(std::string_view line);

 private:
  std::string clock_number_;
  std::filesystem::path company_database_;
  std::filesystem::path program_folder_;
  core::LogSink& log_;
};

}  // namespace clockcomm::records
