// The department and job-code validation tables the terminals receive: LEVEL2 (departments, coded
// by their number) and LEVEL3 (job codes), each row a code and a description.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "db/database.h"

namespace clockcomm::records {

struct ValidationCode {
  std::string code;
  std::string description;
  friend bool operator==(const ValidationCode&, const ValidationCode&) = default;
};

class ValidationCodes {
 public:
  explicit ValidationCodes(db::Database& company_db) : db_(company_db) {}

  // A department is coded by its number written plainly (7, not 07), as punches carry it. Throws
  // core::ArgumentException for a number outside 0..999999999 or a name with a control
  // character; false, and nothing written, when the department is there already.
  bool AddDepartment(int64_t number, std::string_view name);
  // The code is trimmed. Throws core::ArgumentException for an empty code, one longer than a
  // punch's job number may be, or a control character; false when the code is there already.
  bool AddJob(std::string_view code, std::string_view name);

  // Departments in order of their numbers, jobs in order of their codes.
  std::vector<ValidationCode> Departments();
  std::vector<ValidationCode> Jobs();

 private:
  bool Add(const char* table, const std::string& code, std::string_view name);
  std::vector<ValidationCode> List(const char* table);

  db::Database& db_;
};

}  // namespace clockcomm::records
